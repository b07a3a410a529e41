#ifndef OSTREL_CORE_CONVERT_H
#define OSTREL_CORE_CONVERT_H

// Text between the system code page (see ostrel/platform/codepage.h), UTF-16 and UTF-8. The members
// TransTo of the strings hand out the same as a raw buffer; other charsets are the business of
// CUTF8String.
//
// Nothing in a source is refused: what is broken, or has no counterpart in the target, is replaced
// as MultiByteToWideChar and WideCharToMultiByte replace it. A source is read up to its first NUL.
//
// The last argument is not looked at; null is as good as any other.
//
// Errors: a conversion that the platform refuses (more than 2147483647 characters, no memory for
// its tables) gives the empty string, and the platform's last error says why. std::bad_alloc.
// Threads: no state; separate strings may be converted at the same time.

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"

namespace OS {

OSTREL_API x_wstring CharToWChar(const x_astring &text, const char *unused);
OSTREL_API x_astring WCharToChar(const x_wstring &text, const char *unused);

OSTREL_API x_astring WCharToUTF8Char(const x_wstring &text, const char *unused);
OSTREL_API x_wstring UTF8CharToWChar(const x_astring &text, const char *unused);

// From the system code page, by way of UTF-16.
OSTREL_API x_astring CharToUTF8Char(const x_astring &text, const char *unused);

}  // namespace OS

#endif  // OSTREL_CORE_CONVERT_H
