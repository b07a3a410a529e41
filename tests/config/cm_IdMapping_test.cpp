#include "ostrel/config/cm_IdMapping.h"

#include <memory>

#include "ostrel/core/exception.h"
#include "support/temp_dir.h"
#include "support/text.h"
#include "support/trace_capture.h"

namespace {

std::u16string name_of(const CIDMapping &mapping, int id) {
    const WCHAR *const name = mapping.GetID(id);
    return name != nullptr ? name : u"<null>";
}

// The last line wins, for number and name by itself.
TEST(CmIdMapping, AnswersBothWays) {
    const std::string lines =
        "# comment line with enough words\n\n7 alpha beta\n\t8\t\tgamma  x  y  z  zz\n9 only\n"
        " # 10 hidden x\n-3 minus x\nword zero x\n22 alpha x\n20 shared\u0100b x\n"
        "21 shared\u0100a x\n";
    const CIDMapping mapping(TempDir().Write("ids.txt", lines).c_str());
    const std::pair<int, const WCHAR *> cases[] = {
        {8, u"gamma"},          {-3, u"minus"}, {0, u"zero"},   {20, u"shared\u0100b"},
        {21, u"shared\u0100a"}, {22, u"alpha"}, {-1, u"Alpha"}, {-1, u"only"},
        {-1, u"hidden"},        {-1, u""}};
    for (const auto &[id, name] : cases) {
        EXPECT_EQ(mapping.GetID(name), id) << PrintToString(name);
        EXPECT_EQ(name_of(mapping, id), id != -1 ? name : u"<null>");
    }
    EXPECT_EQ(name_of(mapping, 7), u"alpha");
}

TEST(CmIdMapping, HandsItsItemsToTheCopyWhichTakesFurtherEntries) {
    const TempDir dir;
    auto source = std::make_unique<CIDMapping>(dir.Write("ids.txt", "7 alpha x\n8 beta x").c_str());
    CIDMapping copy(*source), mapping(dir.Write("ids.txt", "1 one x").c_str());
    EXPECT_EQ(name_of(*source, 7), u"alpha");  // from the items of the copy
    source.reset();
    copy.AddItem(7, TEXT("gamma"), TEXT("x"));
    mapping = copy;
    mapping.AddItem(9, TEXT("beta"), nullptr);
    EXPECT_EQ(name_of(mapping, 7) + name_of(mapping, 8), u"gammabeta");
    EXPECT_EQ(mapping.GetID(TEXT("alpha")) * 10 + mapping.GetID(TEXT("beta")), 79);
    EXPECT_EQ(mapping.GetID(TEXT("one")), -1);
}

// The only test that touches the process's instance.
TEST(CmIdMapping, LoadsTheInstanceAtTheFirstCallThatSucceeds) {
    const TempDir dir;
    EXPECT_THROW(CIDMapping::Instance(), OS::CSystemException);
    EXPECT_THROW(CIDMapping::Instance(), OS::CSystemException);
    dir.Write("config/cfg_IdMapping.txt", "7 alpha beta\n");
    CIDMapping *const instance = CIDMapping::Instance();
    dir.Write("config/cfg_IdMapping.txt", "7 changed beta\n");
    EXPECT_EQ(CIDMapping::Instance(), instance);
    EXPECT_EQ(name_of(*instance, 7), u"alpha");
}

TEST(CmIdMapping, TracesWhatItReadsAddsAndFinds) {
    const TempDir dir;
    dir.Write("ids.txt", "7 alpha beta\n");
    const TraceCapture trace;
    const CIDMapping mapping(TEXT("ids.txt"));
    EXPECT_EQ(mapping.GetID(mapping.GetID(7)), 7);
    EXPECT_EQ(mapping.GetID(mapping.GetID(8)), -1);
    EXPECT_EQ(trace.Lines(), R"(272 .\cm_ini_reader.cpp CINIReader::Parse(pszFile = ids.txt)
258 .\cm_ini_reader.cpp There were 3 streams flushed
273 .\cm_ini_reader.cpp CINIReader::Parse(pszFile = ids.txt), [REUTRN=1]
272 .\cm_ini_reader.cpp CINIReader::Enumerate()
258 .\cm_ini_reader.cpp Token = 7, Counter = 0
258 .\cm_ini_reader.cpp Token = alpha, Counter = 1
258 .\cm_ini_reader.cpp Token = beta, Counter = 2
258 .\cm_IdMapping.cpp ID         = 7
258 .\cm_IdMapping.cpp Logical ID = alpha
258 .\cm_IdMapping.cpp Category   = beta
273 .\cm_ini_reader.cpp CINIReader::Enumerate()
258 .\cm_IdMapping.cpp CIDMapping::GetID() = alpha
258 .\cm_IdMapping.cpp CIDMapping::GetID() = 7
4099 .\cm_IdMapping.cpp ID (8) cannot be found!
258 .\cm_IdMapping.cpp CIDMapping::GetID() = (null)
4099 .\cm_IdMapping.cpp ID ((null)) cannot be found!
258 .\cm_IdMapping.cpp CIDMapping::GetID() = -1
)");
    EXPECT_TRUE(trace.Modules().size() == 1 && trace.Modules().count(nullptr) == 0);
}

}  // namespace
