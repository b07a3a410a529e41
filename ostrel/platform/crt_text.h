#ifndef OSTREL_PLATFORM_CRT_TEXT_H
#define OSTREL_PLATFORM_CRT_TEXT_H

// The runtime's calls on text, for 16-bit characters and for bytes.
//
//   WCHAR line[] = TEXT("Size = 0x20");
//   const WCHAR *const name = wcstok(line, TEXT(" ="));
//   const WCHAR *const value = wcstok(nullptr, TEXT(" ="));
//   if (name != nullptr && value != nullptr && _wcsicmp(name, TEXT("size")) == 0) {
//       const LONG size = wcstol(value, nullptr, 0);  // 32
//   }
//
// The calls behave as in the locale that a process starts with, and setlocale has no effect on
// them: only the letters A-Z and a-z have a case. The classes of 16-bit characters are Unicode's
// general categories; a surrogate belongs to no class.
//
// Implemented with ICU's character properties for the classes and with code of our own for the
// rest. A pointer must not be null unless the comment of a call allows it or names the failure.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <mbstring.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>

#else

#include <cstddef>
#include <cwchar>  // before wcstol is overloaded: <string> takes the address of std::wcstol
#include <type_traits>

// Compare two texts, with A-Z turned to a-z, as unsigned values; letters therefore sort behind '_'.
// Return a negative number, 0 or a positive number. On failure, when a text is null, return INT_MAX
// and set errno to EINVAL.
OSTREL_PLATFORM_API int _wcsicmp(const WCHAR *left, const WCHAR *right) noexcept;
OSTREL_PLATFORM_API int _stricmp(const char *left, const char *right) noexcept;

// Returns the length of a text in characters, without its NUL.
OSTREL_PLATFORM_API std::size_t wcslen(const WCHAR *text) noexcept;

// Returns the length of a text in characters, without its NUL, or `limit` for a longer text. The
// text need not be terminated within `limit` characters. When `limit` is 0, the call does not read
// `text`.
OSTREL_PLATFORM_API std::size_t wcsnlen(const WCHAR *text, std::size_t limit) noexcept;

// Returns the length of the leading part of `text` that contains no character of `set`.
OSTREL_PLATFORM_API std::size_t wcscspn(const WCHAR *text, const WCHAR *set) noexcept;

// Returns the decimal number at the start of `text`, behind white space and a sign, or 0 when there
// is no number. On failure sets errno:
//   ERANGE  the number is out of range; the call returns the nearest 32-bit value
//   EINVAL  `text` is null; the call returns 0
OSTREL_PLATFORM_API int _wtoi(const WCHAR *text) noexcept;

// Reads the number at the start of `text` in base 2 to 36. With a `base` of 0 the prefix chooses
// the base: "0x" 16, "0" 8, otherwise 10. White space, a sign and, in base 16, "0x" may stand
// before the digits. Digits and letters are ASCII. Unless `end` is null, `*end` receives the
// address behind the number, or `text` when there is no number or the call fails with EINVAL.
//
// Returns the number, or 0 when there is no number. On failure sets errno:
//   ERANGE  the number is out of range; the call returns the nearest 32-bit value
//   EINVAL  `text` is null, or `base` is neither 0 nor 2 to 36; the call returns 0
OSTREL_PLATFORM_API LONG wcstol(const WCHAR *text, WCHAR **end, int base) noexcept;

// Cuts the next token out of a text in place. The call skips leading characters of `delimiters` and
// writes a NUL over the first delimiter behind the token. The calling thread remembers where to
// continue; `text` null continues there.
//
// Returns the token, or null when no token is left. On failure, when `delimiters` is null or there
// is no text to continue, returns null and sets errno to EINVAL.
OSTREL_PLATFORM_API WCHAR *wcstok(WCHAR *text, const WCHAR *delimiters) noexcept;

// Turns A-Z into a-z in place. `count` is the size of `text` in characters, the NUL included.
// Returns 0. On failure, when `text` is null or has no NUL within `count` characters, returns
// EINVAL and sets errno to EINVAL; a `text` with a `count` above 0 becomes empty.
OSTREL_PLATFORM_API int _wcslwr_s(WCHAR *text, std::size_t count) noexcept;

// Classes and case of one 16-bit character. The functions are templates for WCHAR alone, so that
// calls with any other argument type still reach the host's functions of the same names.
template <class Char>
using IfWide = std::enable_if_t<std::is_same_v<Char, WCHAR>, int>;

// Returns the upper-case form of a-z, and any other character unchanged.
template <class Char, IfWide<Char> = 0>
constexpr WCHAR towupper(Char character) noexcept {
    return character >= u'a' && character <= u'z' ? static_cast<WCHAR>(character - 0x20)
                                                  : character;
}

// Returns a value other than 0 for white space: U+0009 to U+000D, U+0085 and Unicode's separators
// (general category Z). Returns 0 otherwise.
OSTREL_PLATFORM_API int platform_iswspace(WCHAR character) noexcept;
template <class Char, IfWide<Char> = 0>
int iswspace(Char character) noexcept {
    return platform_iswspace(character);
}

// Return a value other than 0 for a letter (general category L), a decimal digit (Nd), or either of
// the two (iswalnum). Return 0 otherwise.
OSTREL_PLATFORM_API int platform_iswalpha(WCHAR character) noexcept;
OSTREL_PLATFORM_API int platform_iswdigit(WCHAR character) noexcept;
template <class Char, IfWide<Char> = 0>
int iswalpha(Char character) noexcept {
    return platform_iswalpha(character);
}
template <class Char, IfWide<Char> = 0>
int iswdigit(Char character) noexcept {
    return platform_iswdigit(character);
}
template <class Char, IfWide<Char> = 0>
int iswalnum(Char character) noexcept {
    return platform_iswalpha(character) | platform_iswdigit(character);
}

// Returns the address of the next character, by the system code page (GetACP): one byte further,
// two bytes for a lead byte with its trail byte, up to four in UTF-8 and GB18030 and three in
// EUC-JP. A broken sequence is one byte: the call never steps over a byte within a character that
// cannot be a trail byte, such as a NUL. On failure, when `text` is null, returns null and sets
// errno to EINVAL.
OSTREL_PLATFORM_API unsigned char *_mbsinc(const unsigned char *text) noexcept;

// Sizes of the buffers for _wsplitpath, in characters with the NUL.
inline constexpr std::size_t _MAX_DRIVE = 3;
inline constexpr std::size_t _MAX_DIR = 256;
inline constexpr std::size_t _MAX_FNAME = 256;
inline constexpr std::size_t _MAX_EXT = 256;

// Splits a path into four parts:
//   drive      the first two characters, when the second is a colon
//   directory  what follows, up to and including the last '\' or '/'
//   extension  the last '.' behind the directory and what follows it
//   name       what lies between directory and extension
// A part that the path does not have becomes empty. Each buffer has the size above, or is null when
// the caller does not want the part.
//
//   C:\a/b\c.tar.gz  ->  "C:", "\a/b\", "c.tar", ".gz"        ..  ->  "", "", ".", "."
//   \\host\share     ->  "", "\\host\", "share", ""           .profile  ->  "", "", "", ".profile"
//
// On failure stores an empty text in every buffer and sets errno:
//   ERANGE  a wanted part does not fit into its buffer
//   EINVAL  `path` is null
OSTREL_PLATFORM_API void _wsplitpath(const WCHAR *path, WCHAR *drive, WCHAR *directory, WCHAR *name,
                                     WCHAR *extension) noexcept;

#endif

#endif  // OSTREL_PLATFORM_CRT_TEXT_H
