#ifndef OSTREL_PLATFORM_CODEPAGE_H
#define OSTREL_PLATFORM_CODEPAGE_H

// Code pages: how the bytes of narrow text are read.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// The number of the system code page. It is 65001 (UTF-8), unless the locale environment names
// another charset: of the variables LC_ALL, LC_CTYPE and LANG the first that is not empty counts,
// and in it the text between '.' and '@'. ja_JP.SJIS gives 932, de_DE.ISO-8859-15 gives 28605; a
// charset that is unknown, has no such number or does not hold ASCII (ISO-2022-JP, for one) gives
// 65001. The environment is read at the first use of the code page and then no more; the C locale
// (setlocale) plays no part.
OSTREL_PLATFORM_API unsigned GetACP() noexcept;

// Code pages by name; numbers are those of the platform's winnls.h. The first three are all the
// system code page.
inline constexpr unsigned CP_ACP = 0;
inline constexpr unsigned CP_OEMCP = 1;
inline constexpr unsigned CP_THREAD_ACP = 3;
inline constexpr unsigned CP_UTF8 = 65001;

// Convert between bytes in a code page and UTF-16. A code page is one of those above, or any of
// which ICU has a converter and the platform a number (932, 1252, 54936, 50220, 20273, ...), with
// the tables of ICU; UTF-16 and UTF-32 are none.
//
// `length` counts the bytes or units of the source; a negative one says that the source ends at its
// NUL, and the NUL is converted too. `room` counts the units or bytes that the target holds; with 0
// nothing is stored and `target` is not looked at. `flags` is 0: nothing in the source is refused.
// On the way to UTF-16 and to UTF-8 what is broken becomes U+FFFD: each maximal part of a broken
// sequence, each lone surrogate. A character that another code page lacks becomes the one that ICU
// has as its fallback there, or '?'. A byte order mark is a character like any other.
//
// `default_char` and `used_default` must be null: replaced characters are not reported.
//
// Result: the units or bytes stored, with room 0 those that the target has to hold (0 for a source
// that consists of escape sequences). 0 on failure, with the last error ERROR_INSUFFICIENT_BUFFER
// (`target` is too small, or null with a room; it may hold the beginning), ERROR_INVALID_FLAGS, or
// ERROR_INVALID_PARAMETER (an unknown code page, a null source, a length of 0, a negative room,
// source and target the same, a default character, or more than 2147483647 to store), or
// ERROR_NOT_ENOUGH_MEMORY.
OSTREL_PLATFORM_API int MultiByteToWideChar(unsigned code_page, DWORD flags, const char *source,
                                            int length, WCHAR *target, int capacity) noexcept;
OSTREL_PLATFORM_API int WideCharToMultiByte(unsigned code_page, DWORD flags, const WCHAR *source,
                                            int length, char *target, int capacity,
                                            const char *default_char, BOOL *used_default) noexcept;

#endif

#endif  // OSTREL_PLATFORM_CODEPAGE_H
