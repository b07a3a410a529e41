#ifndef WEXLOG_WEXLOG_H
#define WEXLOG_WEXLOG_H

// Where the trace lines of the product go.
//
// Code that traces calls DBG::DebugLogEx and knows nothing else. A program that wants the lines
// adds a sink, or the environment asks for one. The environment is read once, at the first call of
// any of these functions:
//
//   WEXLOG_LEVEL   the kinds of line that are wanted: "all", or names of the list
//                  value,entry,exit,failure,unmet,other, separated by commas or blanks, in
//                  small letters. Unset or empty: none. A word that is no kind is passed over.
//   WEXLOG_FILE    the file to which they are added, 10 MiB at most and two older ones beside it
//                  (name.1.ext and name.2.ext). Unset, empty or impossible to open: standard error.
//
// Nothing is written unless one of the two asks. A line that nobody wants costs a load and a
// branch; its arguments are not looked at.
//
// A line in a file or on standard error is UTF-8: local time, thread, level, file and line, text.
//
//   2026-11-24 15:16:51.123 [4711] 272 .\cm_ini_reader.cpp(42) CINIReader::Enumerate()
//
// It stays one line, and gives a terminal no orders: CR and LF in the text are written as \r and
// \n, other control characters but the tab, U+2028 and U+2029 as \u and four digits. A lone
// surrogate is written as U+FFFD. The system log gets the part behind the thread.
//
// Threads: every function may be called from any thread, also before main and from static
// destructors. Sinks are called one at a time, so a sink must not wait for a thread that traces. A
// child of fork may trace only if no other thread was tracing then.
// Errors: a sink that fails or throws loses its line and nothing else; a line never fails its
// caller, nor does a signal that writing raises (SIGPIPE, SIGXFSZ). errno and the last error are
// after a line what they were before it. A thread is not cancelled while it traces; a sink must not
// end its thread.

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

// The levels say what a line is.
inline constexpr int kLevelValue = 258;     // 0x102: what was found, decided or done
inline constexpr int kLevelEntry = 272;     // 0x110: an operation begins
inline constexpr int kLevelExit = 273;      // 0x111: an operation ends
inline constexpr int kLevelFailure = 4097;  // 0x1001: a call failed and ended its operation
inline constexpr int kLevelUnmet = 4099;    // 0x1003: a request that cannot be met

// Kinds of line, to be joined with |. A level that is none of the five is of the kind kOther.
using Kinds = unsigned;
inline constexpr Kinds kValue = 1;
inline constexpr Kinds kEntry = 2;
inline constexpr Kinds kExit = 4;
inline constexpr Kinds kFailure = 8;
inline constexpr Kinds kUnmet = 16;
inline constexpr Kinds kOther = 32;
inline constexpr Kinds kAllKinds = 63;

// Writes one line: `module` is the handle of the module that traces, `file` the source file as the
// module names it, `line` the line in it. The conversions of `format` are the platform's, as in
// ostrel/platform/printf.h: %s takes a wide string in the wide overload and a narrow one in the
// narrow overload, and may be null. The text of the narrow overload is read in the system code page
// and ends at its first NUL.
//
// Null is allowed everywhere: a null `file` or `format` is an empty text. A format that the
// platform refuses is traced as it stands, without its arguments.
WEXLOG_API void DebugLogEx(HINSTANCE module, int level, const WCHAR *file, int line,
                           const WCHAR *format, ...);
WEXLOG_API void DebugLogEx(HINSTANCE module, int level, const WCHAR *file, int line,
                           const char *format, ...);

// A line as a sink gets it. The texts are valid during the call only.
struct Line {
    HINSTANCE module;
    int level;
    const WCHAR *file;  // never null
    int line;
    std::basic_string_view<WCHAR> text;
};

// Names a sink, for RemoveSink. 0 names none; it is what the functions below give when they fail,
// also for want of memory. Each sink has kinds of its own: a line goes to all that want its kind.
using SinkId = unsigned;

// Adds a sink that calls `function` with each line of `kinds`, on the thread that traces. Lines
// that are traced within the call are dropped.
WEXLOG_API SinkId AddSink(std::function<void(const Line &)> function, Kinds kinds = kAllKinds);

// Adds a sink that writes lines of `kinds` to standard error.
WEXLOG_API SinkId AddErrorStreamSink(Kinds kinds = kAllKinds);

// Adds a sink that adds lines of `kinds` to the file `path` (a host path in UTF-8); missing folders
// are made. Before the file would grow beyond `maxBytes` (at least 1), it is renamed to name.1.ext
// and older ones move up; `olderFiles` (200,000 at most) are kept, and with 0 the file is begun
// anew. Each line is handed to the system before the call ends, so that a crash loses none. A file
// belongs to one sink of one process. Result: 0 when the file cannot be opened or a number is out
// of range.
//
// After a failed write the file is closed and opened again a second later; the lines until then are
// lost.
WEXLOG_API SinkId AddFileSink(const char *path, std::size_t maxBytes = std::size_t{10} << 20,
                              std::size_t olderFiles = 2, Kinds kinds = kAllKinds);

// Adds a sink that sends lines of `kinds` to the system log under the name `program`: failures as
// errors, unmet requests as warnings, all others as debugging messages. The system knows one name a
// process: that of the sink added last, and its own default once any such sink has been removed.
// Result: 0 when `program` is null.
WEXLOG_API SinkId AddSystemLogSink(const char *program, Kinds kinds = kAllKinds);

// Removes a sink. When it returns, the sink is not called any more; a call under way on another
// thread has ended, and its function has been destroyed. A sink may remove itself; its function is
// then destroyed when the call has ended. An id that names no sink is ignored.
WEXLOG_API void RemoveSink(SinkId sink);

}  // namespace DBG

#endif  // WEXLOG_WEXLOG_H
