// Ends all processes of one name. The text of /? describes the program.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/process.h"
#include "ostrel/platform/process/programs/tool_line.h"
#include "ostrel/platform/sync.h"

namespace ostrel_platform {
namespace {

enum ExitCode { kKilled = 0, kRefused = 1, kNotFound = 128 };

constexpr DWORD kLook = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;
constexpr DWORD kExitCodeOfKilled = 1;
constexpr DWORD kWaitForEnd = 5000;  // milliseconds

constexpr char kHelp[] =
    "Usage: taskkill /IM NAME /F\n"
    "\n"
    "Ends all processes whose program is the file NAME, by SIGKILL, and waits for their end up to\n"
    "five seconds each. Case does not count, and NAME.exe is also the file NAME. For a script,\n"
    "the program is its interpreter. NAME may stand in quotation marks, up to the last one of\n"
    "the line; nothing in it has a meaning. This process, its parents and process 1 stay.\n"
    "\n"
    "Exit codes:\n"
    "    0  all such processes were ended\n"
    "    1  one of them may not be ended by this user, or wrong options\n"
    "  128  there is no such process\n";

struct Options {
    std::u16string name;
    bool is_forced = false;
};

// Takes a name: a word, or a text between quotation marks, which ends with the line's last one.
std::u16string take_name(std::u16string_view *text) {
    if (!text->starts_with(u'"')) {
        return std::u16string(take_word(text));
    }
    const std::size_t end = text->rfind(u'"');
    std::u16string name(text->substr(1, std::max<std::size_t>(end, 1) - 1));
    *text = trim_front(text->substr(end + 1));
    return name;
}

bool parse(std::u16string_view text, Options *options) {
    for (text = trim_front(text); !text.empty();) {
        const std::u16string_view word = take_word(&text);
        if (is_same_name(word, u"/F")) {
            options->is_forced = true;
        } else if (is_same_name(word, u"/IM") && options->name.empty()) {
            options->name = take_name(&text);
        } else {
            return false;
        }
    }
    // The name of a file has no folder.
    std::replace(options->name.begin(), options->name.end(), u'\\', kNameBackslash);
    return options->is_forced && !options->name.empty();
}

// Returns what the host says in a small file of a process.
std::string read_file(DWORD id, const char *name) {
    const std::string path = "/proc/" + std::to_string(id) + '/' + name;
    char text[512];
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t size = file >= 0 ? read(file, text, sizeof text) : 0;
    if (file >= 0) {
        close(file);
    }
    return {text, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
}

// This process, its parents and process 1.
std::vector<DWORD> processes_to_keep() {
    std::vector<DWORD> kept = {1};
    for (auto id = static_cast<DWORD>(getpid()); id > 1;) {
        kept.push_back(id);
        const std::string stat = read_file(id, "stat");
        // "id (name) state parent ...", where the name may hold anything.
        const std::size_t end = stat.rfind(')');
        id = end != stat.npos && end + 4 < stat.size()
                 ? static_cast<DWORD>(std::strtoul(stat.c_str() + end + 4, nullptr, 10))
                 : 0;
    }
    return kept;
}

std::vector<DWORD> list_processes() {
    std::vector<DWORD> ids(1024);
    for (;;) {
        const auto size = static_cast<DWORD>(ids.size() * sizeof(DWORD));
        DWORD stored = 0;
        if (!EnumProcesses(ids.data(), size, &stored)) {
            return {};
        }
        if (stored < size) {
            ids.resize(stored / sizeof(DWORD));
            return ids;
        }
        ids.resize(2 * ids.size());
    }
}

bool is_named(std::u16string_view process, std::u16string_view name) {
    constexpr std::u16string_view kSuffix = u".exe";
    const bool has_suffix = name.size() > kSuffix.size() &&
                            is_same_name(name.substr(name.size() - kSuffix.size()), kSuffix);
    return is_same_name(process, name) ||
           (has_suffix && is_same_name(process, name.substr(0, name.size() - kSuffix.size())));
}

// Whether a process that this user may not look into seems to have the name. The host shows the
// first 15 bytes of what the process calls itself.
bool seems_named(DWORD id, std::u16string_view name) {
    constexpr std::size_t kShown = 15;
    std::string shown = read_file(id, "comm");
    shown.resize(std::min(shown.find('\n'), shown.size()));
    const std::u16string text(shown.begin(), shown.end());
    return !text.empty() && (text.size() < kShown ? is_named(text, name)
                                                  : is_same_name(text, name.substr(0, kShown)));
}

enum class Outcome { kOther, kEnded, kDenied };

// Ends a process that has the name. The handle means the process whose name is read, also when
// another one gets its id meanwhile.
Outcome end_process(DWORD id, std::u16string_view name) {
    const HANDLE process = OpenProcess(kLook | SYNCHRONIZE, FALSE, id);
    if (process == nullptr) {
        return GetLastError() == ERROR_ACCESS_DENIED && seems_named(id, name) ? Outcome::kDenied
                                                                              : Outcome::kOther;
    }
    WCHAR found[MAX_PATH];
    Outcome outcome = Outcome::kOther;
    if (GetModuleBaseNameW(process, nullptr, found, MAX_PATH) != 0 && is_named(found, name)) {
        // Of the same process: the id cannot pass to another while this handle tells no end.
        const HANDLE killer = OpenProcess(PROCESS_TERMINATE, FALSE, id);
        const bool is_same = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
        if (killer != nullptr && is_same && TerminateProcess(killer, kExitCodeOfKilled)) {
            WaitForSingleObject(process, kWaitForEnd);
            outcome = Outcome::kEnded;
        } else if (WaitForSingleObject(process, 0) == WAIT_TIMEOUT) {
            outcome = Outcome::kDenied;
        }
        CloseHandle(killer);
    }
    CloseHandle(process);
    return outcome;
}

int run(const Options &options) {
    const std::string name = printable(options.name);
    const std::vector<DWORD> kept = processes_to_keep();
    bool is_any_ended = false, is_any_denied = false;
    for (const DWORD id : list_processes()) {
        if (std::find(kept.begin(), kept.end(), id) != kept.end()) {
            continue;
        }
        switch (end_process(id, options.name)) {
            case Outcome::kEnded:
                is_any_ended = true;
                std::printf("SUCCESS: The process \"%s\" with PID %u has been terminated.\n",
                            name.c_str(), id);
                break;
            case Outcome::kDenied:
                is_any_denied = true;
                std::fprintf(stderr,
                             "ERROR: The process \"%s\" with PID %u could not be terminated.\n"
                             "Reason: Access is denied.\n",
                             name.c_str(), id);
                break;
            case Outcome::kOther:
                break;
        }
    }
    if (!is_any_ended && !is_any_denied) {
        std::fprintf(stderr, "ERROR: The process \"%s\" not found.\n", name.c_str());
        return kNotFound;
    }
    return is_any_denied ? kRefused : kKilled;
}

int run_program(int count, const char *const *arguments) {
    const std::u16string line = tool_line(count, arguments);
    Options options;
    if (trim_front(line) == u"/?") {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (!parse(line, &options)) {
        std::fputs(kHelp, stderr);
        return kRefused;
    }
    return run(options);
}

}  // namespace
}  // namespace ostrel_platform

int main(int count, char **arguments) {
    signal(SIGPIPE, SIG_IGN);  // the processes end also when nobody reads what is printed
    try {
        return ostrel_platform::run_program(count, arguments);
    } catch (const std::bad_alloc &) {
        std::fputs("taskkill: memory is short\n", stderr);
        return ostrel_platform::kRefused;
    }
}
