#include "ostrel/platform/module.h"

#include "support/file_calls.h"

namespace {

TEST(Module, IsNamedByItsFile) {
    const std::u16string program = platform_path(fs::read_symlink("/proc/self/exe"));
    const auto length = static_cast<DWORD>(program.size());
    std::vector<WCHAR> name(length + 1);
    EXPECT_EQ(GetModuleFileNameW(nullptr, name.data(), length + 1), length);
    EXPECT_EQ(name.data(), program);
    EXPECT_EQ(GetModuleFileNameW(nullptr, name.data(), length), length);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(name.data(), program.substr(0, length - 1));
}

}  // namespace
