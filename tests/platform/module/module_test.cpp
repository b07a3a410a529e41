#include "ostrel/platform/module.h"

#include "support/file_calls.h"

namespace {

TEST(Module, IsNamedByItsFile) {
    const std::u16string program = platform_path(fs::read_symlink("/proc/self/exe"));
    const auto length = static_cast<DWORD>(program.size());
    WCHAR buffer[1000];
    const std::tuple<void *, DWORD, std::u16string, DWORD> cases[] = {
        {nullptr, length + 1, program, 0},
        {nullptr, length, program.substr(0, length - 1), ERROR_INSUFFICIENT_BUFFER},
        {buffer, 1000, u"", ERROR_MOD_NOT_FOUND}};
    for (const auto &[module, room, name, error] : cases) {
        SCOPED_TRACE(room);
        buffer[0] = 0;
        SetLastError(0);
        const DWORD stored = GetModuleFileNameW(static_cast<HMODULE>(module), buffer, room);
        EXPECT_EQ(stored, error == ERROR_INSUFFICIENT_BUFFER ? room : name.size());
        EXPECT_EQ(GetLastError(), error);
        EXPECT_EQ(buffer, name);
    }
}

}  // namespace
