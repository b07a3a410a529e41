#include "ostrel/service/ServiceManager.h"

#include <cstdarg>
#include <cstddef>

#include "ostrel/core/handles.h"
#include "ostrel/core/trace.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/printf.h"
#include "ostrel/platform/process.h"
#include "ostrel/platform/sync.h"

namespace {

constexpr std::size_t kLineSize = 16384;  // characters with the NUL
constexpr DWORD kNoPermission = 4;        // an exit code of the command

int last_error() {
    return static_cast<int>(GetLastError());
}

// Prints at most `count` characters; the buffer has one more, which stays.
void print(WCHAR *buffer, std::size_t count, const WCHAR *format, ...) {
    std::va_list values;
    va_start(values, format);
    _vsnwprintf(buffer, count, format, values);
    va_end(values);
}

// Waits for the end of a process. Returns whether it has exited with 0.
bool has_succeeded(HANDLE process) {
    DWORD code = 0;
    WaitForSingleObject(process, INFINITE);
    if (!GetExitCodeProcess(process, &code)) {
        OSTREL_TRACE(DBG::kLevelUnmet, TEXT("Cannot get process exit code, error code: %d"),
                     last_error());
        return false;
    }
    if (code == kNoPermission) {
        OSTREL_TRACE(
            DBG::kLevelValue,
            TEXT("Process exit code: %d, Unable to run because of share fodler permission"), code);
    } else {
        OSTREL_TRACE(DBG::kLevelValue, TEXT("Process exit code: %d"), code);
    }
    return code == 0;
}

}  // namespace

bool KillProcess(const WCHAR *processName) noexcept {
    OSTREL_TRACE(DBG::kLevelEntry, TEXT("KillProcess"));
    WCHAR line[kLineSize] = {};
    print(line, kLineSize - 1, TEXT("CMD.exe /C \"taskkill /im \"%s\" /F \""), processName);
    line[kLineSize - 1] = 0;
    OSTREL_TRACE(DBG::kLevelValue, TEXT("Command line: %s"), line);

    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = SW_HIDE;
    PROCESS_INFORMATION information = {};
    bool is_killed = false;
    if (CreateProcessW(nullptr, line, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                       &information)) {
        const CHandle thread(information.hThread);
        const CHandle process(information.hProcess);
        is_killed = has_succeeded(process);
    } else if (const int code = last_error()) {
        OSTREL_TRACE(DBG::kLevelUnmet, TEXT("Create Process failed, error code: %d"), code);
    }
    OSTREL_TRACE(DBG::kLevelExit, TEXT("KillProcess"));
    return is_killed;
}
