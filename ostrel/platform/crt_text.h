#ifndef OSTREL_PLATFORM_CRT_TEXT_H
#define OSTREL_PLATFORM_CRT_TEXT_H

// The runtime's calls on text, for 16-bit characters and for bytes.
//
// They behave as under the locale that a process starts with and never look at another: letters
// fold from A-Z to a-z and back, nothing else does. The classes of 16-bit characters are Unicode's
// (general categories, as ICU has them); a surrogate belongs to none.

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

// Compares two texts after turning A-Z to a-z, as unsigned values: negative, 0 or positive. Letters
// therefore sort behind '_'. A null text gives INT_MAX with errno EINVAL.
OSTREL_PLATFORM_API int _wcsicmp(const WCHAR *left, const WCHAR *right) noexcept;
OSTREL_PLATFORM_API int _stricmp(const char *left, const char *right) noexcept;

// The length of a text in characters, without its NUL.
OSTREL_PLATFORM_API std::size_t wcslen(const WCHAR *text) noexcept;

// The length of the leading part of `text` that holds no character of `set`.
OSTREL_PLATFORM_API std::size_t wcscspn(const WCHAR *text, const WCHAR *set) noexcept;

// The decimal number at the start of `text`, behind white space and a sign; 0 when there is none.
// A number out of range gives the nearest 32-bit value with errno ERANGE, a null text 0 with
// EINVAL.
OSTREL_PLATFORM_API int _wtoi(const WCHAR *text) noexcept;

// The number at the start of `text` in base 2 to 36, or in the base that its prefix names when
// `base` is 0: "0x" 16, "0" 8, else 10. White space, a sign and, in base 16, "0x" may stand before
// the digits; digits and letters are ASCII. `end`, unless null, receives where the number ends:
// `text` itself when there is none, and the result is 0 then.
//
// A number out of range gives the nearest 32-bit value with errno ERANGE; a null text or another
// base gives 0 with EINVAL.
OSTREL_PLATFORM_API LONG wcstol(const WCHAR *text, WCHAR **end, int base) noexcept;

// The next token of a text: skips leading characters of `delimiters`, ends the token by writing a
// NUL over the first delimiter behind it, and remembers, for the calling thread, where to go on.
// `text` null goes on there. Result: the token, or null when none is left, or when `delimiters` is
// null or there is no text to go on with (errno EINVAL).
OSTREL_PLATFORM_API WCHAR *wcstok(WCHAR *text, const WCHAR *delimiters) noexcept;

// Turns A-Z into a-z in place. `count` is the room at `text` in characters, its NUL included.
// Result: 0, or EINVAL, also in errno, for a null text and for one without a NUL in that room; its
// first character becomes NUL then.
OSTREL_PLATFORM_API int _wcslwr_s(WCHAR *text, std::size_t count) noexcept;

// Classes and case of one 16-bit character. They are templates, so that the host's functions of the
// same names keep all other arguments.
template <class Char>
using IfWide = std::enable_if_t<std::is_same_v<Char, WCHAR>, int>;

// The upper-case form: a-z become A-Z, everything else is left as it is.
template <class Char, IfWide<Char> = 0>
constexpr WCHAR towupper(Char character) noexcept {
    return character >= u'a' && character <= u'z' ? static_cast<WCHAR>(character - 0x20)
                                                  : character;
}

// Not 0 for white space: U+0009 to U+000D, U+0085 and Unicode's separators (general category Z).
OSTREL_PLATFORM_API int platform_iswspace(WCHAR character) noexcept;
template <class Char, IfWide<Char> = 0>
int iswspace(Char character) noexcept {
    return platform_iswspace(character);
}

// Not 0 for a letter (general category L), for a decimal digit (Nd), for either of them.
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

// The character behind the one at `text`, by the system code page (GetACP): one byte further, two
// when a lead byte and its trail byte stand there, up to four in UTF-8 and GB18030. What cannot be
// a trail byte, such as a NUL, is never stepped over within a character: a broken sequence is one
// byte. Null gives null with errno EINVAL.
OSTREL_PLATFORM_API unsigned char *_mbsinc(const unsigned char *text) noexcept;

// Sizes of the buffers for _wsplitpath, in characters with the NUL.
inline constexpr std::size_t _MAX_DRIVE = 3;
inline constexpr std::size_t _MAX_DIR = 256;
inline constexpr std::size_t _MAX_FNAME = 256;
inline constexpr std::size_t _MAX_EXT = 256;

// Cuts a path: "C:" into `drive` when the second character is a colon, all up to and including the
// last '\' or '/' into `directory`, the last '.' behind it and what follows into `extension`, what
// lies between into `name`. Parts that are not there become empty. Each buffer has the size above,
// or is null when the part is not wanted.
//
//   C:\a/b\c.tar.gz  ->  "C:", "\a/b\", "c.tar", ".gz"        ..  ->  "", "", ".", "."
//   \\host\share     ->  "", "\\host\", "share", ""           .profile  ->  "", "", "", ".profile"
//
// A part that is wanted and too long for its buffer empties all four, with errno ERANGE; a null
// path does so with EINVAL.
OSTREL_PLATFORM_API void _wsplitpath(const WCHAR *path, WCHAR *drive, WCHAR *directory, WCHAR *name,
                                     WCHAR *extension) noexcept;

#endif

#endif  // OSTREL_PLATFORM_CRT_TEXT_H
