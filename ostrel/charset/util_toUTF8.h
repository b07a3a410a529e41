#ifndef OSTREL_CHARSET_UTIL_TOUTF8_H
#define OSTREL_CHARSET_UTIL_TOUTF8_H

// Text in any charset that ICU knows, as UTF-8.
//
//   CUTF8String text(bytes, 0, "Shift_JIS");
//   if (text.Get() != nullptr) ...
//
// The conversion happens in the constructor. Up to 11 illegal byte sequences (a character that is
// cut at the end is one) are dropped; the twelfth, and the first sequence that is legal but stands
// for no character, end it: there is no result then. For the system's own code pages see
// ostrel/core/convert.h.
//
// Errors: whatever prevents a conversion is traced, and Get gives null. std::bad_alloc when there
// is no memory for the result or a copy.
// Threads: nothing is shared; an object belongs to one thread at a time.

#include <cstdint>

#include "ostrel/core/api.h"

class OSTREL_API CUTF8String {
public:
    // `text` is read up to its first NUL; null is an empty text. `unused` is not looked at.
    // `charset` is a name or an alias of an ICU converter; null is ICU's default charset. Text
    // beyond 715827882 bytes or UTF-16 units is not converted.
    CUTF8String(const char *text, std::uint64_t unused, const char *charset);
    CUTF8String(const CUTF8String &other);
    CUTF8String &operator=(const CUTF8String &other);
    ~CUTF8String();

    // The terminated UTF-8 text, or null when there is no result. Valid as long as the object
    // lives and is not assigned to.
    const char *Get() const noexcept { return m_pszUTF8; }

private:
    char *m_pszUTF8;
};

#endif  // OSTREL_CHARSET_UTIL_TOUTF8_H
