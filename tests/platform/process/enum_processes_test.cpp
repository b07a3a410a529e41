// EnumProcesses, OpenProcess, EnumProcessModules and GetModuleBaseNameW.

#include "ostrel/platform/error.h"
#include "ostrel/platform/module.h"
#include "support/modules.h"
#include "support/processes.h"

namespace {

std::u16string name_of(HANDLE process) {
    WCHAR name[MAX_PATH];
    HMODULE module = nullptr;
    DWORD needed = 0;
    if (!EnumProcessModules(process, &module, 8, &needed)) {
        return fs::path(std::to_string(GetLastError())).u16string();
    }
    EXPECT_EQ(needed, 8u);
    const DWORD size = GetModuleBaseNameW(process, module, name, MAX_PATH);
    EXPECT_EQ(size, std::u16string(name).size());
    return name;
}

TEST(EnumProcesses, ListsTheIdsThatFit) {
    const TempDir dir;
    const NamedProcess process("listed");
    std::vector<DWORD> ids(1 << 16);
    DWORD stored = 0;
    ASSERT_TRUE(EnumProcesses(ids.data(), static_cast<DWORD>(4 * ids.size()), &stored));
    ids.resize(stored / 4);
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
    EXPECT_EQ(std::count(ids.begin(), ids.end(), process.Id()), 1);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), static_cast<DWORD>(getpid())), 1);
    DWORD two[] = {0, 77};
    EXPECT_TRUE(EnumProcesses(two, 7, &stored));
    EXPECT_EQ(std::tuple(two[0], two[1], stored), std::tuple(ids[0], 77u, 4u));
    EXPECT_TRUE(EnumProcesses(nullptr, 3, &stored));
    EXPECT_EQ(stored, 0u);
}

TEST(EnumProcesses, NamesTheFileThatAProcessExecutes) {
    const TempDir dir;
    const std::tuple<const char *, const WCHAR *, void (*)()> cases[] = {
        {"plain", u"plain", [] {}},
        {"gone", u"gone", [] { fs::remove("gone"); }},
        {"gone (deleted)", u"gone (deleted)", [] {}},
        {"x (deleted)", u"x (deleted)", [] { fs::remove("x (deleted)"); }},
        {"new", u"new", [] { fs::copy_file("/bin/true", "n"), fs::rename("n", "new"); }},
        {"mark", u"mark", [] { fs::remove("mark"), fs::copy_file("plain", "mark (deleted)"); }},
        {"old", u"moved", [] { fs::rename("old", u"moved"); }},
        {"a \"b\" & \xFF\n", u"a \"b\" & \xDCFF\n", [] {}},
    };
    for (const auto &[file, name, change] : cases) {
        NamedProcess process(file);
        change();
        const HANDLE handle = OpenProcess(kLook, FALSE, process.Id());
        EXPECT_EQ(name_of(handle), name);
        EXPECT_EQ(WaitForSingleObject(handle, 0), DWORD{WAIT_TIMEOUT}) << file;
        process.End();
        EXPECT_EQ(WaitForSingleObject(handle, INFINITE), WAIT_OBJECT_0) << file;
        EXPECT_EQ(name_of(handle), u"299") << file;
        EXPECT_TRUE(CloseHandle(handle));
    }
}

TEST(EnumProcesses, KeepsTheNameThatAProcessHadWhenItWasOpened) {
    int go[2], done[2];
    ASSERT_EQ(pipe2(go, O_CLOEXEC) + pipe2(done, O_CLOEXEC), 0);
    const pid_t child = fork_child();
    if (child == 0) {
        char byte;
        static_cast<void>(read(go[0], &byte, 1));
        execlp("sleep", "sleep", "600", nullptr);
        _exit(127);
    }
    close(done[1]);
    const HANDLE before = OpenProcess(kLook, FALSE, static_cast<DWORD>(child));
    const std::u16string own = fs::read_symlink("/proc/self/exe").filename().u16string();
    char byte = 0;
    EXPECT_EQ(write(go[1], &byte, 1) + read(done[0], &byte, 1), 1);  // it has executed sleep
    const HANDLE after = OpenProcess(kLook, FALSE, static_cast<DWORD>(child));
    EXPECT_EQ(name_of(before), own);
    EXPECT_EQ(name_of(after), u"sleep");
    EXPECT_TRUE(CloseHandle(before) && CloseHandle(after));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(go[0]);
    close(go[1]);
    close(done[0]);
}

TEST(EnumProcesses, CutsANameAndRefusesWhatIsWrong) {
    const auto self = static_cast<DWORD>(getpid());
    const HANDLE own = OpenProcess(kLook, FALSE, self);
    const HANDLE blind = OpenProcess(SYNCHRONIZE | PROCESS_VM_READ, FALSE, self);
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    WCHAR name[8] = u"?";
    EXPECT_EQ(GetModuleBaseNameW(own, nullptr, name, 4), 3u);
    EXPECT_EQ(name, fs::read_symlink("/proc/self/exe").filename().u16string().substr(0, 3));
    DWORD count = 0;
    DWORD id = 0;
    HMODULE module;
    const std::tuple<const char *, DWORD, DWORD> cases[] = {
        {"no id", error_of(OpenProcess(kLook, FALSE, 0) != nullptr), ERROR_INVALID_PARAMETER},
        {"no process", error_of(OpenProcess(kLook, FALSE, 0x7FFFFFFF) != nullptr),
         ERROR_INVALID_PARAMETER},
        {"above all ids", error_of(OpenProcess(kLook, FALSE, 0xFFFFFFFF) != nullptr),
         ERROR_INVALID_PARAMETER},
        {"no list", error_of(EnumProcesses(nullptr, 4, &count)), ERROR_NOACCESS},
        {"no count", error_of(EnumProcesses(&id, 4, nullptr)), ERROR_NOACCESS},
        {"no access", error_of(EnumProcessModules(blind, &module, 8, &count)), ERROR_ACCESS_DENIED},
        {"an event", error_of(EnumProcessModules(event, &module, 8, &count)), ERROR_INVALID_HANDLE},
        {"no needed", error_of(EnumProcessModules(own, &module, 8, nullptr)), ERROR_NOACCESS},
        {"no room", error_of(EnumProcessModules(own, nullptr, 7, &count)), 0},
        {"foreign module",
         error_of(GetModuleBaseNameW(own, reinterpret_cast<HMODULE>(&id), name, 8) != 0),
         ERROR_INVALID_HANDLE},
        {"capacity", error_of(GetModuleBaseNameW(own, nullptr, name, 0) != 0),
         ERROR_INVALID_PARAMETER},
        {"no name", error_of(GetModuleBaseNameW(own, nullptr, nullptr, 8) != 0), ERROR_NOACCESS},
    };
    for (const auto &[what, code, expected] : cases) {
        EXPECT_EQ(code, expected) << what;
    }
    EXPECT_EQ(count, 8u);
    EXPECT_TRUE(CloseHandle(own) && CloseHandle(blind) && CloseHandle(event));
}

TEST(EnumProcesses, RefusesWhatTheHostRefuses) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs a second user";
    }
    const DWORD parent = static_cast<DWORD>(getpid());
    EXPECT_TRUE(holds_in_child([parent] {
        ASSERT_EQ(setgid(65534) + setuid(65534), 0);
        for (const DWORD access : {PROCESS_TERMINATE, PROCESS_VM_READ, PROCESS_QUERY_INFORMATION}) {
            EXPECT_EQ(OpenProcess(access, FALSE, parent), nullptr) << access;
            EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED) << access;
        }
        EXPECT_TRUE(CloseHandle(OpenProcess(SYNCHRONIZE, FALSE, parent)));
    }));
}

TEST(EnumProcesses, AreCallsOfALibrary) {
    for (const WCHAR *const name : {u"PSAPI.DLL", u"psapi", u"Psapi.dll"}) {
        const HMODULE module = LoadLibraryW(name);
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(LoadLibraryW(u"PSAPI.DLL"), module);
        EXPECT_TRUE(FreeLibrary(module));
        EXPECT_EQ(GetProcAddress(module, "EnumProcesses"),
                  reinterpret_cast<FARPROC>(&EnumProcesses));
        EXPECT_EQ(GetProcAddress(module, "GetModuleBaseNameW"),
                  reinterpret_cast<FARPROC>(&GetModuleBaseNameW));
        EXPECT_EQ(GetProcAddress(module, "enumprocesses"), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
        EXPECT_EQ(file_of(module).substr(0, 18), "libostrel_platform");
        EXPECT_TRUE(DisableThreadLibraryCalls(module));
        EXPECT_TRUE(FreeLibrary(module));
        EXPECT_FALSE(FreeLibrary(module));
        EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
        EXPECT_EQ(GetProcAddress(module, "EnumProcesses"), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    }
    const TempDir dir;
    EXPECT_EQ(loaded_file(u".\\psapi.dll"), "126");
}

}  // namespace
