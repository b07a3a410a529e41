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

}  // namespace OS::detail

#endif  // OSTREL_CORE_TEXT_LENGTH_H
