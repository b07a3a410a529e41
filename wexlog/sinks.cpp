#include "wexlog/sinks.h"

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <memory>
#include <string_view>
#include <utility>

#include "wexlog/log_file.h"

namespace DBG::detail {
namespace {

constexpr char kPattern[] = "%Y-%m-%d %H:%M:%S.%e [%t] %v";

void AppendCharacter(char32_t code, std::string &out) {
    const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
        return;
    }
    if (code < 0x800) {
        put(0xC0 | (code >> 6));
    } else {
        if (code < 0x10000) {
            put(0xE0 | (code >> 12));
        } else {
            put(0xF0 | (code >> 18));
            put(0x80 | ((code >> 12) & 0x3F));
        }
        put(0x80 | ((code >> 6) & 0x3F));
    }
    put(0x80 | (code & 0x3F));
}

// Returns true for a character that could end a line or control a terminal.
bool IsControl(char32_t code) {
    return (code < 0x20 && code != '\t') || (code >= 0x7F && code < 0xA0) || code == 0x2028 ||
           code == 0x2029;
}

void AppendEscape(char32_t code, std::string &out) {
    if (code == '\r' || code == '\n') {
        out += code == '\r' ? "\\r" : "\\n";
        return;
    }
    constexpr char kDigits[] = "0123456789abcdef";
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4) {
        out += kDigits[code >> shift & 0xF];
    }
}

// Appends `text` to `out` as UTF-8, on one line.
void AppendOneLine(std::basic_string_view<WCHAR> text, std::string &out) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t code = text[i];
        if (IsControl(code)) {
            AppendEscape(code, out);
            continue;
        }
        if (code >= 0xD800 && code < 0xE000) {
            const bool paired = code < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
                                text[i + 1] < 0xE000;
            code = paired ? 0x10000 + ((code - 0xD800) << 10) + (text[++i] - 0xDC00u) : 0xFFFD;
        }
        AppendCharacter(code, out);
    }
}

std::string Body(const Line &line) {
    std::string body = std::to_string(line.level) + ' ';
    AppendOneLine(line.file, body);
    body += '(' + std::to_string(line.line) + ") ";
    body.reserve(body.size() + line.text.size());
    AppendOneLine(line.text, body);
    return body;
}

// A write to a pipe without a reader, or to a file at the size limit, raises a signal that would
// end the program. This scope blocks the signals and discards one that was raised within the scope.
class NoWriteSignals {
public:
    NoWriteSignals() noexcept {
        sigemptyset(&m_signals);
        sigaddset(&m_signals, SIGPIPE);
        sigaddset(&m_signals, SIGXFSZ);
        sigset_t pending;
        sigpending(&pending);
        for (const int signal : {SIGPIPE, SIGXFSZ}) {
            if (sigismember(&pending, signal) == 1) {
                sigdelset(&m_signals, signal);  // raised before this scope: not to be discarded
            }
        }
        pthread_sigmask(SIG_BLOCK, &m_signals, &m_before);
    }
    ~NoWriteSignals() {
        constexpr timespec kAtOnce{};
        while (sigtimedwait(&m_signals, nullptr, &kAtOnce) > 0) {
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    NoWriteSignals(const NoWriteSignals &) = delete;
    NoWriteSignals &operator=(const NoWriteSignals &) = delete;

private:
    sigset_t m_signals;
    sigset_t m_before;
};

void Write(spdlog::sinks::sink &sink, const Line &line) {
    spdlog::level::level_enum level = spdlog::level::debug;
    if (line.level == kLevelFailure) {
        level = spdlog::level::err;
    } else if (line.level == kLevelUnmet) {
        level = spdlog::level::warn;
    }
    const std::string body = Body(line);
    const NoWriteSignals quiet;
    sink.log(spdlog::details::log_msg(spdlog::string_view_t(), level, body));
    sink.flush();
}

// Writes to a file and reopens the file after a failure.
class ReopenedFile {
public:
    ReopenedFile(std::string path, std::size_t maxBytes, std::size_t olderFiles)
        : m_path(std::move(path)), m_maxBytes(maxBytes), m_olderFiles(olderFiles) {
        Open();
    }

    void WriteLine(const Line &line) {
        if (m_file == nullptr) {
            // A failing attempt takes time, and the thread that traces waits for it.
            if (Clock::now() < m_nextAttempt) {
                return;
            }
            m_nextAttempt = Clock::now() + kPause;
            Open();
        }
        try {
            const std::string body = Body(line);
            spdlog::memory_buf_t text;
            m_formatter.format(
                spdlog::details::log_msg(spdlog::string_view_t(), spdlog::level::debug, body),
                text);
            const NoWriteSignals quiet;
            m_file->Add({text.data(), text.size()});
        } catch (...) {
            m_file = nullptr;
            m_nextAttempt = Clock::now() + kPause;
            throw;
        }
    }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kPause{1};

    void Open() { m_file = std::make_unique<LogFile>(m_path, m_maxBytes, m_olderFiles); }

    const std::string m_path;
    const std::size_t m_maxBytes;
    const std::size_t m_olderFiles;
    spdlog::pattern_formatter m_formatter{kPattern};
    std::unique_ptr<LogFile> m_file;
    Clock::time_point m_nextAttempt;
};

}  // namespace

SinkFunction MakeErrorStreamSink() {
    const auto sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
    sink->set_pattern(kPattern);
    return [sink](const Line &line) { Write(*sink, line); };
}

SinkFunction MakeFileSink(std::string path, std::size_t maxBytes, std::size_t olderFiles) {
    const auto file = std::make_shared<ReopenedFile>(std::move(path), maxBytes, olderFiles);
    return [file](const Line &line) { file->WriteLine(line); };
}

SinkFunction MakeSystemLogSink(std::string program) {
    const auto sink = std::make_shared<spdlog::sinks::syslog_sink_mt>(std::move(program), LOG_PID,
                                                                      LOG_USER, false);
    return [sink](const Line &line) { Write(*sink, line); };
}

}  // namespace DBG::detail
