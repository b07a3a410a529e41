#ifndef WEXLOG_FORMATTED_TEXT_H
#define WEXLOG_FORMATTED_TEXT_H

// Internal. Formats a text with the platform's conversions.

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

#include "ostrel/platform/printf.h"

namespace DBG::detail {

inline int Print(WCHAR *buffer, std::size_t count, const WCHAR *format, std::va_list args) {
    return _vsnwprintf(buffer, count, format, args);
}
inline int Print(char *buffer, std::size_t count, const char *format, std::va_list args) {
    return _vsnprintf(buffer, count, format, args);
}
inline int LengthOf(const WCHAR *format, std::va_list args) {
    return _vscwprintf(format, args);
}
inline int LengthOf(const char *format, std::va_list args) {
    return _vscprintf(format, args);
}

// The text of a format and its arguments. A text of up to kSmall characters needs no allocation.
// The text is the format itself when the platform refuses the format, and empty for a null format.
template <class Char>
class FormattedText {
public:
    // Do not use `args` after the call. Throws std::bad_alloc when memory is short.
    FormattedText(const Char *format, std::va_list args);
    FormattedText(const FormattedText &) = delete;
    FormattedText &operator=(const FormattedText &) = delete;

    // Returns the text, which need not be terminated and is valid as long as this object.
    std::basic_string_view<Char> View() const { return m_text; }

private:
    static constexpr std::size_t kSmall = 512;

    Char m_small[kSmall];
    std::basic_string<Char> m_large;
    std::basic_string_view<Char> m_text;
};

template <class Char>
FormattedText<Char>::FormattedText(const Char *format, std::va_list args) {
    if (format == nullptr) {
        return;
    }
    std::va_list copy;
    va_copy(copy, args);
    const int printed = Print(m_small, kSmall, format, copy);
    va_end(copy);
    if (printed >= 0) {
        m_text = {m_small, static_cast<std::size_t>(printed)};
        return;
    }
    va_copy(copy, args);
    const int length = LengthOf(format, copy);
    va_end(copy);
    if (length < 0) {
        m_text = format;
        return;
    }
    m_large.resize(static_cast<std::size_t>(length));
    // When another thread has changed an argument since LengthOf, the length differs.
    const int stored = Print(m_large.data(), m_large.size(), format, args);
    m_text = m_large;
    if (stored >= 0) {
        m_text = m_text.substr(0, static_cast<std::size_t>(stored));
    }
}

}  // namespace DBG::detail

#endif  // WEXLOG_FORMATTED_TEXT_H
