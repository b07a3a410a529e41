#include "ostrel/service/ProcessUtility.h"

#include "support/processes.h"

namespace {

struct Collect : OS::CEnumProcess::CEnumProcessCallback {
    bool OnProcess(DWORD id, const WCHAR *name) override {
        names.emplace_back(id, name);
        return false;
    }
    std::vector<std::pair<DWORD, std::u16string>> names;
};

TEST(ProcessUtility, PassesEveryProcessWithItsName) {
    const TempDir dir;
    const NamedProcess process("enumerated");
    Collect collect;
    OS::CEnumProcess().EnumProcess(collect);
    EXPECT_EQ(std::count(collect.names.begin(), collect.names.end(),
                         std::pair(process.Id(), std::u16string(u"enumerated"))),
              1);
}

}  // namespace
