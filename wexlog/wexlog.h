#ifndef WEXLOG_WEXLOG_H
#define WEXLOG_WEXLOG_H

// wexlog receives the trace lines of the product and passes them to sinks.
//
//   const DBG::SinkId sink = DBG::AddFileSink("/var/log/product.log");  // 0 on failure
//   DBG::DebugLogEx(nullptr, DBG::kLevelValue, TEXT("main.cpp"), __LINE__, TEXT("count = %d"), 3);
//   DBG::RemoveSink(sink);
//
// Code that traces calls DBG::DebugLogEx and nothing else. Nothing is written unless the program
// adds a sink or the environment asks for one. wexlog reads the environment once, at the first call
// of any of these functions:
//
//   WEXLOG_LEVEL   the wanted kinds of line: "all", or names from the list
//                  value,entry,exit,failure,unmet,other, separated by commas, blanks or tabs, in
//                  small letters. Unset or empty: none. Other words are ignored.
//   WEXLOG_FILE    the host path of a file to which the lines are added, of up to 10 MiB, with two
//                  older files beside it (name.1.ext and name.2.ext). Unset, empty or impossible to
//                  open: standard error.
//
// In a program that has rights which its caller lacks, such as a set-user-ID program (AT_SECURE),
// wexlog ignores both variables.
//
// A line that no sink wants costs a load and a branch; its arguments are not read.
//
// A line in a file or on standard error is UTF-8: local time, thread, level, file and line, text.
//
//   2026-11-24 15:16:51.123 [4711] 272 .\cm_ini_reader.cpp(42) CINIReader::Enumerate()
//
// Each line stays one line and cannot control a terminal: CR and LF in the text are written as \r
// and \n. Other control characters except the tab, and U+2028 and U+2029, are written as \u and
// four hexadecimal digits, a lone surrogate as U+FFFD. The system log gets the part after the
// thread.
//
// Ownership: wexlog owns the sinks and their functions, and does not destroy them at the end of the
// process.
// Threads: every function may be called from any thread, also before main and from static
// destructors. wexlog calls one sink at a time, so a sink must not wait for a thread that traces. A
// child of fork may trace only if no other thread was tracing at the fork. wexlog turns off
// cancellation of a thread while the thread traces. A sink must not end its thread.
// Errors: no function throws. A sink that fails or throws loses its line and nothing else; when
// memory is short, the line is lost. DebugLogEx never fails its caller: it restores errno and the
// last error, and the caller receives no signal that writing raises (SIGPIPE, SIGXFSZ).

#include <cstddef>
#include <functional>
#include <string_view>

#include "ostrel/platform/types.h"

#ifdef _WIN32
#ifdef WEXLOG_BUILD
#define WEXLOG_API __declspec(dllexport)
#else
#define WEXLOG_API __declspec(dllimport)
#endif
#else
#define WEXLOG_API __attribute__((visibility("default")))
#endif

namespace DBG {

// The levels, one for each meaning of a line.
inline constexpr int kLevelValue = 258;     // 0x102: a value that was found, decided or made
inline constexpr int kLevelEntry = 272;     // 0x110: an operation begins
inline constexpr int kLevelExit = 273;      // 0x111: an operation ends
inline constexpr int kLevelFailure = 4097;  // 0x1001: a call failed and ended its operation
inline constexpr int kLevelUnmet = 4099;    // 0x1003: a request that cannot be met

// The kinds of line, as bits. Lines of a level other than the five above are of the kind kOther.
using Kinds = unsigned;
inline constexpr Kinds kValue = 1;
inline constexpr Kinds kEntry = 2;
inline constexpr Kinds kExit = 4;
inline constexpr Kinds kFailure = 8;
inline constexpr Kinds kUnmet = 16;
inline constexpr Kinds kOther = 32;
inline constexpr Kinds kAllKinds = 63;

// Passes one line to the sinks that want its kind. `module` is the handle of the module that
// traces, `file` the source file as the module names it, `line` the line in that file. The
// conversions of `format` are those of ostrel/platform/printf.h: %s takes a wide string in the wide
// overload and a narrow one in the narrow overload. The narrow overload converts its text from the
// system code page, up to the first NUL.
//
// Every pointer may be null, those of %s too; a null `file` or `format` is an empty text. When the
// platform refuses the format, the text of the line is the format itself, without its arguments. A
// call from within a sink has no effect.
WEXLOG_API void DebugLogEx(HINSTANCE module, int level, const WCHAR *file, int line,
                           const WCHAR *format, ...);
WEXLOG_API void DebugLogEx(HINSTANCE module, int level, const WCHAR *file, int line,
                           const char *format, ...);

// A line as a sink receives it. The texts are valid during the call only.
struct Line {
    HINSTANCE module;
    int level;
    const WCHAR *file;  // never null
    int line;
    std::basic_string_view<WCHAR> text;
};

// Identifies a sink for RemoveSink. The functions below return 0, which identifies no sink, when
// they fail, also when memory is short. A line goes to every sink that wants its kind. Bits of
// `kinds` that are no kind are ignored.
using SinkId = unsigned;

// Adds a sink that calls `function` with each line of `kinds`, on the thread that traces. Lines
// that the function itself traces are dropped, and its exceptions are ignored. Returns the sink, or
// 0 when `function` is empty.
WEXLOG_API SinkId AddSink(std::function<void(const Line &)> function, Kinds kinds = kAllKinds);

// Adds a sink that writes the lines of `kinds` to standard error. Returns the sink.
WEXLOG_API SinkId AddErrorStreamSink(Kinds kinds = kAllKinds);

// Adds a sink that adds the lines of `kinds` to the file `path`, a host path in UTF-8. Creates
// missing directories. A file that the sink creates has the mode 0600, whatever the umask allows. A
// symbolic link at `path` is not followed. Programs that the process starts do not inherit the
// file. A file belongs to one sink of one process.
//
// `maxBytes` (at least 1) limits the file: before the file would grow beyond that size, the sink
// renames it to name.1.ext and numbers the older files up. `olderFiles` (0 to 200000) is the number
// of older files to keep; with 0 the sink truncates the file instead. A character device has no
// limit. Each line reaches the system before DebugLogEx returns, so a crash of the process loses no
// line.
//
// Returns the sink. On failure returns 0: when `path` is null or empty, when the file cannot be
// opened or is neither a regular file nor a character device, such as a symbolic link, and when a
// number is out of range. After a failed write or renaming the sink closes the file. It opens the
// file again with the first line after one second, and so on after each failure; the lines until
// then are lost.
WEXLOG_API SinkId AddFileSink(const char *path, std::size_t maxBytes = std::size_t{10} << 20,
                              std::size_t olderFiles = 2, Kinds kinds = kAllKinds);

// Adds a sink that sends the lines of `kinds` to the system log under the name `program`, with the
// facility LOG_USER and the process id: kLevelFailure as LOG_ERR, kLevelUnmet as LOG_WARNING, all
// others as LOG_DEBUG. The system keeps one name for a process: that of the sink added last, and
// its default name once any such sink has been removed. Returns the sink, or 0 when `program` is
// null.
WEXLOG_API SinkId AddSystemLogSink(const char *program, Kinds kinds = kAllKinds);

// Removes a sink. First waits for another thread that passes a line to the sinks. After RemoveSink
// the sink receives no more lines and its function has been destroyed; when memory is short, a
// later change of the sinks destroys the function. A sink may remove itself; its function is then
// destroyed after the call of the sink has returned. Has no effect for an id that identifies no
// sink.
WEXLOG_API void RemoveSink(SinkId sink);

}  // namespace DBG

#endif  // WEXLOG_WEXLOG_H
