#ifndef OSTREL_CORE_TEXT_LENGTH_H
#define OSTREL_CORE_TEXT_LENGTH_H

// Internal. The length of a terminated text, for code that both widths share: a block at a time,
// which the standard string's own measure is not for 16-bit text.

#include <cstring>

#include "ostrel/platform/crt_text.h"

namespace OS::detail {

inline std::size_t text_length(const char *text) {
    return std::strlen(text);
}
inline std::size_t text_length(const WCHAR *text) {
    return wcslen(text);
}

// The same, or `limit` for a longer text, which need not be terminated within `limit` characters.
inline std::size_t text_length_within(const char *text, std::size_t limit) {
    return strnlen(text, limit);
}
inline std::size_t text_length_within(const WCHAR *text, std::size_t limit) {
    return wcsnlen(text, limit);
}

}  // namespace OS::detail

#endif  // OSTREL_CORE_TEXT_LENGTH_H
