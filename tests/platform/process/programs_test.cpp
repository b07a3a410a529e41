// The programs CMD.exe and taskkill.

#include "ostrel/platform/module.h"
#include "support/file_calls.h"
#include "support/processes.h"

namespace {

// Starts a command line and waits. Returns the exit code, or minus the error.
int exit_of(std::u16string line) {
    STARTUPINFOW startup = {};
    PROCESS_INFORMATION info;
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &info)) {
        return -static_cast<int>(GetLastError());
    }
    DWORD code = 0;
    EXPECT_EQ(WaitForSingleObject(info.hProcess, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeProcess(info.hProcess, &code));
    EXPECT_TRUE(CloseHandle(info.hProcess) && CloseHandle(info.hThread));
    return static_cast<int>(code);
}

// The folder of the programs, beside the layer's library.
fs::path tools() {
    const HMODULE library = LoadLibraryW(u"PSAPI.DLL");
    WCHAR path[MAX_PATH];
    EXPECT_NE(GetModuleFileNameW(library, path, MAX_PATH), 0u);
    EXPECT_TRUE(FreeLibrary(library));
    std::u16string text = path + 2;  // behind the drive
    std::replace(text.begin(), text.end(), u'\\', u'/');
    return fs::path(text).parent_path() / "ostrel";
}

TEST(Programs, RunCommandLines) {
    const TempDir dir;
    std::ofstream("a b") << "#!/bin/sh\nexit 7\n";
    chmod("a b", 0755);
    const std::pair<std::u16string, int> cases[] = {
        {u"CMD.exe /C true", 0},
        {u"cmd /c false", 1},
        {u"CMD.exe /C sh -c \"exit 6\"", 6},
        {u"CMD.exe /C \"sh -c \"exit 5\"\"", 5},
        {u"CMD.exe /C \"sh -c \"exit 5\" \"", 5},
        {u"CMD.exe /C \".\\a b\"", 7},
        {u"CMD.exe /C \".\\a b\" x", 7},
        {u"CMD.exe /C \"\".\\a b\" \"x y\"\"", 7},
        {u"CMD.exe /C \"cmd /c \"cmd /c \".\\a b\"\"\"", 7},
        {u"CMD.exe /C sh -c \"kill -9 $$\"", 255},
        {u"CMD.exe /C true & false", 0},
        {u"CMD.exe /C sh -c \"test '%PATH%' = %PATH^%\"", 1},
        {u"CMD.exe /C no_such_command", 1},
        {u"CMD.exe /C true" + std::u16string(8187, u' '), 0},
        {u"CMD.exe /C true" + std::u16string(8188, u' '), 1},
        {u"CMD.exe /C", 1},
        {u"CMD.exe /K true", 1},
        {u"CMD.exe", 1},
        {u"taskkill /im no_such_process", 1},
        {u"taskkill /F", 1},
        {u"taskkill /F /im a /im b", 1},
        {u"taskkill /F /x /im a", 1},
        {u"TaskKill.exe /f /IM \"no such process\"", 128},
    };
    for (const auto &[line, code] : cases) {
        EXPECT_EQ(exit_of(line), code) << PrintToString(line.substr(0, 50));
    }
    setenv("PATH", "/nowhere", 1);  // not needed to find them
    EXPECT_EQ(exit_of(u"CMD.exe /C taskkill /F /im no_such_process"), 128);
    setenv("PATH", "/usr/local/bin:/usr/bin:/bin", 1);
}

TEST(Programs, SpareThemselvesTheirParentsAndWhatTheyMayNotEnd) {
    const TempDir dir;
    fs::permissions(dir.Path(), fs::perms::all);
    fs::copy_file(tools() / "taskkill", "own_killer");
    fs::copy_file(tools() / "CMD.exe", "own_command");
    NamedProcess process("./of_root_with_a_long_name");
    EXPECT_EQ(exit_of(u".\\own_killer /F /im own_killer"), 128);
    EXPECT_EQ(exit_of(u".\\own_command /C taskkill /F /im own_command"), 128);
    EXPECT_TRUE(holds_in_child([] {
        if (geteuid() == 0 && setgid(65534) + setuid(65534) == 0 &&
            access((tools() / "taskkill").c_str(), X_OK) == 0) {
            EXPECT_EQ(exit_of(u"taskkill /F /im OF_root_with_a_long_name.exe"), 1);
        }
    }));
    EXPECT_TRUE(process.Runs());
    EXPECT_EQ(exit_of(u".\\own_command /C \"taskkill /F /im of_root_with_a_long_name\""), 0);
    EXPECT_TRUE(process.WasKilled());
}

}  // namespace
