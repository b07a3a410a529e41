#ifndef TESTS_SUPPORT_TRACE_CAPTURE_H
#define TESTS_SUPPORT_TRACE_CAPTURE_H

#include <set>
#include <string>

#include "wexlog/wexlog.h"

// Collects the trace lines of a scope, all ASCII, as "level file text\n".
class TraceCapture {
public:
    TraceCapture() : m_sink(DBG::AddSink([this](const DBG::Line &line) { Take(line); })) {}
    ~TraceCapture() { DBG::RemoveSink(m_sink); }
    TraceCapture &operator=(TraceCapture &&) = delete;  // nor copied

    const std::string &Lines() const { return m_lines; }
    const std::set<HINSTANCE> &Modules() const { return m_modules; }

private:
    void Take(const DBG::Line &line) {
        const std::u16string file = line.file;
        m_lines += std::to_string(line.level) + ' ' + std::string(file.begin(), file.end()) + ' ' +
                   std::string(line.text.begin(), line.text.end()) + '\n';
        m_modules.insert(line.module);
    }

    std::string m_lines;
    std::set<HINSTANCE> m_modules;
    DBG::SinkId m_sink;
};

#endif  // TESTS_SUPPORT_TRACE_CAPTURE_H
