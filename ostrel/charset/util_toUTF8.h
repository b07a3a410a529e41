#ifndef OSTREL_CHARSET_UTIL_TOUTF8_H
#define OSTREL_CHARSET_UTIL_TOUTF8_H

// CUTF8String converts a text in any charset that ICU knows to UTF-8.
//
//   CUTF8String text(bytes, 0, "Shift_JIS");
//   if (text.Get() != nullptr) ...
//
// The constructor converts. It drops up to 11 illegal byte sequences; a character that is cut at
// the end of the text is one. The conversion fails at the twelfth illegal sequence, and at the
// first legal sequence that stands for no character. For the code pages of the system see
// ostrel/core/convert.h.
//
// Ownership: an object owns its text; a copy shares nothing with its source.
// Threads: use an object on one thread at a time.
// Errors: when the conversion fails, Get returns null and the constructor traces the reason. The
// constructor and the copies throw std::bad_alloc when there is no memory for the UTF-8 text.

#include <cstdint>

#include "ostrel/core/api.h"

class OSTREL_API CUTF8String {
public:
    // Converts `text`, which ends at its first NUL; null is an empty text. `unused` is ignored.
    // `charset` is a name or an alias of an ICU converter; null is ICU's default charset. On
    // failure Get returns null: when ICU does not know `charset`, when the text has too many
    // illegal sequences as above or more than 715827882 bytes or UTF-16 units, and when ICU reports
    // another error, a lack of memory among them.
    CUTF8String(const char *text, std::uint64_t unused, const char *charset);
    CUTF8String(const CUTF8String &other);
    CUTF8String &operator=(const CUTF8String &other);
    ~CUTF8String();

    // Returns the terminated UTF-8 text, or null when the conversion failed. The text is valid
    // until the object is destroyed or assigned to.
    const char *Get() const noexcept { return m_pszUTF8; }

private:
    char *m_pszUTF8;
};

#endif  // OSTREL_CHARSET_UTIL_TOUTF8_H
