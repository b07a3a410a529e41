// CEnumProcess and KillProcess when the calls of the platform fail, and which of them they make:
// the file defines some of them itself.

#include "ostrel/core/exception.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/process.h"
#include "ostrel/platform/sync.h"
#include "ostrel/service/ProcessUtility.h"
#include "ostrel/service/ServiceManager.h"
#include "support/text.h"
#include "support/trace_capture.h"

namespace {

std::string g_missing;  // the function that the library lacks, or the library
std::string g_calls;
int g_loads;
int g_exit;

// Gives null, or `result` when a call is not to fail.
template <class Result>
Result unless_missing(const std::string &name, DWORD code, Result result) {
    if (name == g_missing) {
        SetLastError(code);
        return Result{};
    }
    return result;
}

BOOL list_processes(DWORD *ids, DWORD size, DWORD *stored) {
    for (DWORD i = 0; i < size / 4; ++i) {
        ids[i] = i;
    }
    *stored = size;
    g_calls += "list " + std::to_string(size) + ' ';
    return unless_missing("list", 1460, TRUE);
}

// Process 2 has no program, process 3 no name.
BOOL list_modules(HANDLE process, HMODULE *modules, DWORD size, DWORD *needed) {
    EXPECT_EQ(size, 8u);
    *modules = reinterpret_cast<HMODULE>(7);
    *needed = 800;
    return process != reinterpret_cast<HANDLE>(2);
}

DWORD read_name(HANDLE process, HMODULE module, WCHAR *name, DWORD capacity) {
    EXPECT_EQ(std::tuple(reinterpret_cast<std::uintptr_t>(module), capacity), std::tuple(7u, 260u));
    if (process == reinterpret_cast<HANDLE>(3)) {
        return 0;
    }
    name[0] = u'x';
    name[1] = 0;
    return 1;
}

struct Callback : OS::CEnumProcess::CEnumProcessCallback {
    explicit Callback(DWORD last) : m_last(last) {}
    bool OnProcess(DWORD id, const WCHAR *name) override {
        const std::u16string text = name;
        g_calls += std::to_string(id) + std::string(text.begin(), text.end()) + ' ';
        if (m_last == 0) {
            throw 5;
        }
        return id == m_last;
    }
    DWORD m_last;
};

}  // namespace

HMODULE LoadLibraryW(const WCHAR *name) noexcept {
    EXPECT_EQ(std::u16string(name), u"PSAPI.DLL");
    g_loads += g_missing == "library" ? 0 : 1;
    return unless_missing("library", 126, reinterpret_cast<HMODULE>(&g_loads));
}

FARPROC GetProcAddress(HMODULE, const char *name) noexcept {
    g_calls += std::string(name) + ' ';
    const std::string wanted = name;
    return unless_missing(wanted, 127,
                          wanted == "EnumProcesses" ? reinterpret_cast<FARPROC>(&list_processes)
                          : wanted == "EnumProcessModules"
                              ? reinterpret_cast<FARPROC>(&list_modules)
                              : reinterpret_cast<FARPROC>(&read_name));
}

BOOL FreeLibrary(HMODULE) noexcept {
    --g_loads;
    return TRUE;
}

HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD id) noexcept {
    EXPECT_EQ(std::tuple(access, inherit), std::tuple(0x410u, FALSE));
    g_loads += id > 0 ? 1 : 0;
    return reinterpret_cast<HANDLE>(std::uintptr_t{id});
}

BOOL CloseHandle(HANDLE) noexcept {
    --g_loads;
    return TRUE;
}

namespace {

constexpr char kFunctions[] = "EnumProcessModules GetModuleBaseNameW EnumProcesses ";

TEST(ProcessCallsReplaced, WalksTheProcessesAndReleasesWhatItOpens) {
    const std::tuple<const char *, DWORD, std::string, int> cases[] = {
        {"", 1, std::string(kFunctions) + "list 4096 1x ", 0},
        {"", 4, std::string(kFunctions) + "list 4096 1x 3UNKNOWN 4x ", 0},
        {"", 0, std::string(kFunctions) + "list 4096 1x ", 5},
        {"library", 1, "", 126},
        {"EnumProcessModules", 1, "EnumProcessModules ", 127},
        {"GetModuleBaseNameW", 1, "EnumProcessModules GetModuleBaseNameW ", 127},
        {"EnumProcesses", 1, kFunctions, 127},
        {"list", 1, std::string(kFunctions) + "list 4096 ", 1460},
    };
    for (const auto &[missing, last, calls, code] : cases) {
        g_missing = missing;
        g_calls.clear();
        Callback callback(last);
        int thrown = 0;
        try {
            OS::CEnumProcess walk;
            walk = OS::CEnumProcess();
            walk.EnumProcess(callback);
        } catch (const OS::CSystemException &failure) {
            thrown = failure.GetErrorCode();
        } catch (int value) {
            thrown = value;
        }
        EXPECT_EQ(thrown, code) << missing;
        EXPECT_EQ(g_calls, calls) << missing << last;
        EXPECT_EQ(g_loads, 0) << missing << last;
    }
    g_missing.clear();
    g_calls.clear();
    Callback all(5000);
    OS::CEnumProcess().EnumProcess(all);
    EXPECT_EQ(g_calls.substr(g_calls.size() - 7), " 1023x ");
}

}  // namespace

BOOL CreateProcessW(const WCHAR *application, WCHAR *line, SECURITY_ATTRIBUTES *,
                    SECURITY_ATTRIBUTES *, BOOL inherit, DWORD flags, LPVOID environment,
                    const WCHAR *directory, STARTUPINFOW *startup,
                    PROCESS_INFORMATION *information) noexcept {
    EXPECT_EQ(std::u16string(line), u"CMD.exe /C \"taskkill /im \"x\" /F \"");
    EXPECT_TRUE(application == nullptr && environment == nullptr && directory == nullptr);
    EXPECT_EQ(std::tuple(inherit, flags, startup->cb, startup->dwFlags, startup->wShowWindow),
              std::tuple(TRUE, 0u, 104u, 1u, 0u));
    g_loads += g_missing == "CreateProcessW" || g_missing == "silently" ? 0 : 2;
    *information = {reinterpret_cast<HANDLE>(1), reinterpret_cast<HANDLE>(2), 3, 4};
    return g_missing == "silently" ? unless_missing("silently", 0, TRUE)
                                   : unless_missing("CreateProcessW", 740, TRUE);
}

DWORD WaitForSingleObject(HANDLE, DWORD milliseconds) noexcept {
    EXPECT_EQ(milliseconds, INFINITE);
    return WAIT_OBJECT_0;
}

BOOL GetExitCodeProcess(HANDLE process, DWORD *code) noexcept {
    EXPECT_EQ(process, reinterpret_cast<HANDLE>(1));
    *code = static_cast<DWORD>(g_exit);
    return unless_missing("GetExitCodeProcess", 6, TRUE);
}

namespace {

TEST(ProcessCallsReplaced, TellWhyNothingWasKilled) {
    const std::tuple<const char *, int, const char *, bool> cases[] = {
        {"", 0, "258 Process exit code: 0", true},
        {"", 1, "258 Process exit code: 1", false},
        {"", 4, "258 Process exit code: 4, Unable to run because of share fodler permission",
         false},
        {"GetExitCodeProcess", 0, "4099 Cannot get process exit code, error code: 6", false},
        {"CreateProcessW", 0, "4099 Create Process failed, error code: 740", false},
        {"silently", 0, "", false},
    };
    for (const auto &[missing, exit, line, killed] : cases) {
        g_missing = missing;
        g_exit = exit;
        const TraceCapture capture;
        EXPECT_EQ(KillProcess(u"x"), killed) << missing << exit;
        std::string lines = capture.Lines();
        const std::string file = ".\\ServiceManager.cpp ";
        for (std::size_t at; (at = lines.find(file)) != lines.npos;) {
            lines.erase(at, file.size());
        }
        EXPECT_EQ(lines,
                  "272 KillProcess\n258 Command line: CMD.exe /C \"taskkill /im \"x\" /F \"\n" +
                      std::string(line) + (*line != 0 ? "\n" : "") + "273 KillProcess\n");
        EXPECT_EQ(g_loads, 0) << missing << exit;
    }
}

}  // namespace
