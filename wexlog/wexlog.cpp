#include "wexlog/wexlog.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "ostrel/platform/error.h"
#include "wexlog/formatted_text.h"
#include "wexlog/sink_list.h"
#include "wexlog/sinks.h"

namespace DBG {
namespace {

using detail::FormattedText;
using detail::SinkFunction;
using detail::SinkList;

constexpr std::size_t kEnvironmentMaxBytes = std::size_t{10} << 20;
constexpr std::size_t kEnvironmentOlderFiles = 2;

// The kinds that any sink wants. All kinds until the environment has been read, so that the first
// line of any kind calls Sinks().
constinit std::atomic<Kinds> g_wanted{kAllKinds};

bool IsWanted(int level) {
    return (g_wanted.load(std::memory_order_relaxed) & detail::KindOf(level)) != 0;
}

Kinds KindsNamed(std::string_view words) {
    constexpr std::pair<std::string_view, Kinds> kNames[] = {
        {"value", kValue}, {"entry", kEntry}, {"exit", kExit},    {"failure", kFailure},
        {"unmet", kUnmet}, {"other", kOther}, {"all", kAllKinds},
    };
    constexpr std::string_view kSeparators = ", \t";
    Kinds kinds = 0;
    for (std::size_t end = 0; end < words.size();) {
        const std::size_t begin = words.find_first_not_of(kSeparators, end);
        if (begin == words.npos) {
            break;
        }
        end = std::min(words.find_first_of(kSeparators, begin), words.size());
        for (const auto &[name, kind] : kNames) {
            if (name == words.substr(begin, end - begin)) {
                kinds |= kind;
            }
        }
    }
    return kinds;
}

SinkFunction MakeEnvironmentSink() {
    const char *const path = secure_getenv("WEXLOG_FILE");
    if (path != nullptr && *path != '\0') {
        try {
            return detail::MakeFileSink(path, kEnvironmentMaxBytes, kEnvironmentOlderFiles);
        } catch (...) {
            // Falls back to standard error, so that a wrong file name does not hide the lines.
        }
    }
    return detail::MakeErrorStreamSink();
}

std::unique_ptr<SinkList> MakeSinks() {
    auto sinks = std::make_unique<SinkList>(g_wanted);
    const char *const level = secure_getenv("WEXLOG_LEVEL");
    const Kinds kinds = level == nullptr ? 0 : KindsNamed(level);
    if (kinds != 0) {
        sinks->Add(MakeEnvironmentSink(), kinds);
    } else {
        sinks->PublishWanted();
    }
    return sinks;
}

// Returns the sinks of the process, that of the environment included. The list is never destroyed,
// because static destructors trace too. Throws std::bad_alloc when memory is short; the next call
// retries.
// The list whose lock a fork takes along, so that the child finds the lock free and the list whole.
SinkList *g_forkedSinks = nullptr;

SinkList *ListThatMayFork() {
    g_forkedSinks = MakeSinks().release();
    pthread_atfork([] { g_forkedSinks->Mutex().lock(); }, [] { g_forkedSinks->Mutex().unlock(); },
                   // Renewed, since the owner has another thread id in the child.
                   [] { std::construct_at(&g_forkedSinks->Mutex()); });
    return g_forkedSinks;
}

SinkList &Sinks() {
    static SinkList *const sinks = ListThatMayFork();
    return *sinks;
}

// Restores errno and the last error, which traced code may read after the line.
class KeptErrors {
public:
    KeptErrors() noexcept : m_errno(errno), m_lastError(GetLastError()) {}
    ~KeptErrors() {
        SetLastError(m_lastError);
        errno = m_errno;
    }
    KeptErrors(const KeptErrors &) = delete;
    KeptErrors &operator=(const KeptErrors &) = delete;

private:
    const int m_errno;
    const DWORD m_lastError;
};

void Send(Line line, const WCHAR *format, std::va_list args) {
    const FormattedText<WCHAR> text(format, args);
    line.text = text.View();
    Sinks().Dispatch(line);
}

void SendPrinted(const Line &line, const WCHAR *format, ...) {
    std::va_list args;
    va_start(args, format);
    Send(line, format, args);
    va_end(args);
}

void Send(const Line &line, const char *format, std::va_list args) {
    const FormattedText<char> text(format, args);
    const std::string_view bytes = text.View();
    SendPrinted(line, TEXT("%.*hs"), static_cast<int>(bytes.size()), bytes.data());
}

// Turns off cancellation: a thread cancelled in a sink would unwind through noexcept functions.
class NoCancellation {
public:
    NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
    ~NoCancellation() { pthread_setcancelstate(m_before, nullptr); }
    NoCancellation(const NoCancellation &) = delete;
    NoCancellation &operator=(const NoCancellation &) = delete;

private:
    int m_before = PTHREAD_CANCEL_ENABLE;
};

template <class Char>
void Trace(const Line &line, const Char *format, std::va_list args) noexcept {
    if (SinkList::InSink()) {
        return;
    }
    const KeptErrors errors;
    const NoCancellation uncancelled;
    try {
        Sinks();  // reads the environment, which may not want the kind of this line
        if (IsWanted(line.level)) {
            Send(line, format, args);
        }
    } catch (...) {
        // No memory: the line is lost.
    }
}

Line MakeLine(HINSTANCE module, int level, const WCHAR *file, int line) {
    return {module, level, file == nullptr ? TEXT("") : file, line, {}};
}

template <class Make>
SinkId AddMade(Make make, Kinds kinds) noexcept {
    try {
        return Sinks().Add(make(), kinds);
    } catch (...) {
        return 0;
    }
}

}  // namespace

void DebugLogEx(HINSTANCE module, int level, const WCHAR *file, int line, const WCHAR *format,
                ...) {
    if (!IsWanted(level)) {
        return;
    }
    std::va_list args;
    va_start(args, format);
    Trace(MakeLine(module, level, file, line), format, args);
    va_end(args);
}

void DebugLogEx(HINSTANCE module, int level, const WCHAR *file, int line, const char *format, ...) {
    if (!IsWanted(level)) {
        return;
    }
    std::va_list args;
    va_start(args, format);
    Trace(MakeLine(module, level, file, line), format, args);
    va_end(args);
}

SinkId AddSink(std::function<void(const Line &)> function, Kinds kinds) {
    if (!function) {
        return 0;
    }
    return AddMade([&function] { return std::move(function); }, kinds);
}

SinkId AddErrorStreamSink(Kinds kinds) {
    return AddMade(detail::MakeErrorStreamSink, kinds);
}

SinkId AddFileSink(const char *path, std::size_t maxBytes, std::size_t olderFiles, Kinds kinds) {
    if (path == nullptr || *path == '\0') {
        return 0;
    }
    return AddMade([=] { return detail::MakeFileSink(path, maxBytes, olderFiles); }, kinds);
}

SinkId AddSystemLogSink(const char *program, Kinds kinds) {
    if (program == nullptr) {
        return 0;
    }
    return AddMade([=] { return detail::MakeSystemLogSink(program); }, kinds);
}

void RemoveSink(SinkId sink) {
    try {
        Sinks().Remove(sink);
    } catch (...) {
        // No list could be made, so there is no sink.
    }
}

}  // namespace DBG
