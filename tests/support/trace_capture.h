#ifndef TESTS_SUPPORT_TRACE_CAPTURE_H
#define TESTS_SUPPORT_TRACE_CAPTURE_H

#include <string>
#include <vector>

#include "wexlog/wexlog.h"

// Collects the trace lines of a scope as "level file text".
class TraceCapture {
public:
    explicit TraceCapture(DBG::Kinds kinds = DBG::kAllKinds)
        : m_sink(DBG::AddSink([this](const DBG::Line &line) { Take(line); }, kinds)) {}
    ~TraceCapture() { DBG::RemoveSink(m_sink); }
    TraceCapture(const TraceCapture &) = delete;
    TraceCapture &operator=(const TraceCapture &) = delete;

    const std::vector<std::string> &Lines() const { return m_lines; }
    const std::vector<HINSTANCE> &Modules() const { return m_modules; }

private:
    static std::string Ascii(std::basic_string_view<WCHAR> text) {
        std::string bytes;
        for (const WCHAR c : text) {
            bytes.push_back(c < 0x80 ? static_cast<char>(c) : '?');
        }
        return bytes;
    }

    void Take(const DBG::Line &line) {
        m_lines.push_back(std::to_string(line.level) + " " + Ascii(line.file) + " " +
                          Ascii(line.text));
        m_modules.push_back(line.module);
    }

    std::vector<std::string> m_lines;
    std::vector<HINSTANCE> m_modules;
    DBG::SinkId m_sink;
};

#endif  // TESTS_SUPPORT_TRACE_CAPTURE_H
