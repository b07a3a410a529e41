#ifndef OSTREL_CORE_CONVERT_H
#define OSTREL_CORE_CONVERT_H

// Converts text between the system code page (see ostrel/platform/codepage.h), UTF-16 and UTF-8.
// The member TransTo of the strings returns the same conversions as a raw buffer. CUTF8String
// converts from other charsets.
//
//   OS::x_wstring wide = OS::CharToWChar(line, nullptr);
//   OS::x_astring utf8 = OS::WCharToUTF8Char(wide, nullptr);
//
// Each function reads `text` up to its first NUL and returns the converted text. No content is
// refused: a broken sequence, or a character that the target lacks, is replaced as
// MultiByteToWideChar and WideCharToMultiByte replace it. The last argument is ignored and may be
// null.
//
// Threads: the functions keep no state of their own and may run on several threads at once.
// Errors: std::bad_alloc when memory for the result is short. Conversions from or to the system
// code page return the empty string and set the last error when the platform refuses them:
//   ERROR_INVALID_PARAMETER  the result, with its NUL, would have more than 2147483647 characters,
//                            or the tables of the code page cannot be opened
//   ERROR_NOT_ENOUGH_MEMORY  memory for the conversion is short
// Conversions between UTF-16 and UTF-8 have no such limit and no such failure.

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"

namespace OS {

// From and to the system code page.
OSTREL_API x_wstring CharToWChar(const x_astring &text, const char *unused);
OSTREL_API x_astring WCharToChar(const x_wstring &text, const char *unused);

// Between UTF-16 and UTF-8.
OSTREL_API x_astring WCharToUTF8Char(const x_wstring &text, const char *unused);
OSTREL_API x_wstring UTF8CharToWChar(const x_astring &text, const char *unused);

// From the system code page to UTF-8, by way of UTF-16. Fails as CharToWChar does.
OSTREL_API x_astring CharToUTF8Char(const x_astring &text, const char *unused);

}  // namespace OS

#endif  // OSTREL_CORE_CONVERT_H
