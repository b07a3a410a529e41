#ifndef OSTREL_PLATFORM_CODEPAGE_H
#define OSTREL_PLATFORM_CODEPAGE_H

// Code pages: the encodings of narrow text, and conversion between them and UTF-16.
//
//   WCHAR wide[64];
//   char narrow[64];
//   if (MultiByteToWideChar(CP_UTF8, 0, "Z\xC3\xBCrich", -1, wide, 64) == 7) {  // with the NUL
//       WideCharToMultiByte(CP_ACP, 0, wide, -1, narrow, 64, nullptr, nullptr);
//   }
//
// Implemented with code of our own for UTF-8 and with ICU's converters for all other code pages.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// Returns the number of the system code page: 65001 (UTF-8), unless the locale environment names
// another charset.
//
// The first of the variables LC_ALL, LC_CTYPE and LANG that is not empty decides, by its text
// between '.' and '@': ja_JP.SJIS and ja_JP.CP932 give 932, ko_KR.UHC gives 949, de_DE.ISO-8859-15
// gives 28605. The names are those of glibc and ICU, without regard to case, '-' and '_'. A charset
// that is unknown, has no such number or does not contain ASCII (ISO-2022-JP) gives 65001. The
// first use of the code page reads the environment; later changes have no effect, and neither has
// the C locale (setlocale). A call that runs out of memory returns 65001, and the next call tries
// again.
OSTREL_PLATFORM_API unsigned GetACP() noexcept;

// Code pages by name; the numbers are those of the platform's winnls.h. The first three all mean
// the system code page.
inline constexpr unsigned CP_ACP = 0;
inline constexpr unsigned CP_OEMCP = 1;
inline constexpr unsigned CP_THREAD_ACP = 3;
inline constexpr unsigned CP_UTF8 = 65001;

// Convert between bytes in a code page and UTF-16.
//
// `code_page` is one of the above, or any for which ICU has a converter and the platform a number
// (932, 1252, 54936, 50220, 20273, ...). UTF-16 and UTF-32 are not code pages. ICU's tables apply,
// with what Microsoft's tables of 437, 720, 852, 860 to 865, 932 and 1250 to 1257 say beyond them.
// `flags` is 0. `length` counts the bytes or units of the source. A negative `length` means that
// the source ends at its NUL, and the NUL is converted too; otherwise the calls add no NUL.
// `capacity` is the size of `target` in units or bytes; when it is 0, the calls only measure and
// ignore `target`. `default_char` and `used_default` must be null: the calls do not report
// replaced characters.
//
// The calls reject no content. In UTF-16 and UTF-8 results, U+FFFD replaces each maximal part of a
// broken sequence and each lone surrogate. A byte that the code page leaves undefined gives the
// platform's character, mostly of private use (0xA0 in 932 is U+F8F0), and comes back when that
// character is written. In other code pages, the platform's best fit (in 1252, U+0141 gives 'L' and
// U+221E gives '8'), ICU's fallback or '?' replaces a character that the code page lacks, and '?' a
// lone surrogate. A byte order mark is a character like any other.
//
// Return the units or bytes stored, or with a `capacity` of 0 the size that the result needs. 0
// is a success, with the last error unchanged, for a source that consists of escape sequences. On
// failure return 0 and set the last error:
//   ERROR_INSUFFICIENT_BUFFER  `target` is too small and may hold the beginning, or `target` is
//                              null with a `capacity` above 0
//   ERROR_INVALID_FLAGS        `flags` is not 0
//   ERROR_INVALID_PARAMETER    `source` is null, `length` is 0, `capacity` is negative, or
//                              `code_page` is unknown
//   ERROR_INVALID_PARAMETER    `source` and `target` are equal with a `capacity` above 0
//   ERROR_INVALID_PARAMETER    `default_char` or `used_default` is not null
//   ERROR_INVALID_PARAMETER    the result needs more than 2147483647 units or bytes
//   ERROR_NOT_ENOUGH_MEMORY    memory for the conversion is short
OSTREL_PLATFORM_API int MultiByteToWideChar(unsigned code_page, DWORD flags, const char *source,
                                            int length, WCHAR *target, int capacity) noexcept;
OSTREL_PLATFORM_API int WideCharToMultiByte(unsigned code_page, DWORD flags, const WCHAR *source,
                                            int length, char *target, int capacity,
                                            const char *default_char, BOOL *used_default) noexcept;

#endif

#endif  // OSTREL_PLATFORM_CODEPAGE_H
