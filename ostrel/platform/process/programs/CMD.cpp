// Runs one command line. The text of /? describes the program.

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <new>
#include <string>
#include <string_view>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/process.h"
#include "ostrel/platform/process/programs/tool_line.h"
#include "ostrel/platform/sync.h"

namespace ostrel_platform {
namespace {

constexpr int kFailed = 1;
constexpr DWORD kMaxExitCode = 255;
constexpr std::size_t kMaxCommand = 8191;  // characters, as on the platform

constexpr char kHelp[] =
    "Usage: CMD.exe /C COMMAND\n"
    "\n"
    "Runs a command line, waits for its end and gives its exit code; 255 for a code above 255,\n"
    "such as that of a signal, and 1 when the command cannot be started.\n"
    "\n"
    "A quotation mark at the front goes away, and with it the last one of the line. Both stay\n"
    "when they are the only ones, with a blank and none of &<>()@^| between them, and what they\n"
    "enclose is a program. The program is no shell: nothing is expanded, and no other character\n"
    "has a meaning. A command of more than 8191 characters, which its caller may have cut, is\n"
    "not started.\n";

// Whether the quotation marks of a command may be those of a program's name.
bool may_quote_a_program(std::u16string_view command) {
    const std::size_t end = command.find(u'"', 1);
    if (!command.starts_with(u'"') || end == command.npos ||
        command.find(u'"', end + 1) != command.npos) {
        return false;
    }
    const std::u16string_view name = command.substr(1, end - 1);
    return name.find_first_of(u"&<>()@^|") == name.npos && name.find(u' ') != name.npos;
}

std::u16string without_outer_marks(std::u16string_view command) {
    std::u16string text(command);
    if (text.starts_with(u'"')) {
        const std::size_t last = text.rfind(u'"');
        text.erase(last, 1);
        text.erase(0, last > 0 ? 1 : 0);
    }
    return text;
}

// Starts a command. Returns 0 or an error code.
DWORD start(std::u16string command, HANDLE *process) {
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information;
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                        &startup, &information)) {
        return GetLastError();
    }
    *process = information.hProcess;
    return ERROR_SUCCESS;
}

int run(std::u16string_view command) {
    HANDLE process = nullptr;
    DWORD code = ERROR_FILE_NOT_FOUND;
    if (may_quote_a_program(command)) {
        code = start(std::u16string(command), &process);
    }
    if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND) {
        code = start(without_outer_marks(command), &process);
    }
    if (code != ERROR_SUCCESS) {
        WCHAR text[200] = {};
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                       text, 200, nullptr);
        const std::u16string_view message = text;
        std::fprintf(stderr, "%s: %s (%u)\n", printable(command).c_str(),
                     printable(message.substr(0, message.find(u'\r'))).c_str(), code);
        return kFailed;
    }
    DWORD exit_code = 0;
    WaitForSingleObject(process, INFINITE);
    return GetExitCodeProcess(process, &exit_code)
               ? static_cast<int>(std::min(exit_code, kMaxExitCode))
               : kFailed;
}

int run_program(int count, const char *const *arguments) {
    const std::u16string line = tool_line(count, arguments);
    const std::u16string_view text = trim_front(line);
    if (text == u"/?") {
        std::fputs(kHelp, stdout);
        return 0;
    }
    const std::u16string_view command =
        is_same_name(text.substr(0, 2), u"/C") ? trim_front(text.substr(2)) : std::u16string_view();
    if (command.empty()) {
        std::fputs(kHelp, stderr);
        return kFailed;
    }
    if (command.size() > kMaxCommand) {
        std::fputs("The command line is too long.\n", stderr);
        return kFailed;
    }
    return run(command);
}

}  // namespace
}  // namespace ostrel_platform

int main(int count, char **arguments) {
    try {
        return ostrel_platform::run_program(count, arguments);
    } catch (const std::bad_alloc &) {
        std::fputs("CMD.exe: memory is short\n", stderr);
        return ostrel_platform::kFailed;
    }
}
