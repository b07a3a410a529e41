#ifndef OSTREL_TEXT_STRING_UTILS_H
#define OSTREL_TEXT_STRING_UTILS_H

// Free functions for wide text: filtering characters, splitting a line into words, joining paths,
// reading a value of a profile file, undoing '%' escapes, numbers and times at fixed positions.
//
//   WCHAR path[260];
//   NS_StringUtils::concatPath(TEXT("c:\\data"), TEXT("list.txt"), path);   // c:\data\list.txt
//
// Text arguments are terminated and must not be null unless a comment says otherwise. An `output`
// is a buffer of the caller; its size, in characters with the NUL, stands with each function, and
// there is no way to report one that is too small. It must not overlap an argument unless a comment
// says that it may.
//
// Classes of characters are those of the runtime's iswalpha and iswdigit: Unicode's letters
// (general category L) and decimal digits (Nd); a surrogate is neither.
//
// Threads: there is no state. Errors: std::bad_alloc from a string or a vector; nothing else but
// the results told here.

#include <vector>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/types.h"

namespace NS_StringUtils {

// Tests of one character. Not deleted through a pointer to the base.

struct OSTREL_API SCharIndentifier {
    virtual bool operator()(WCHAR character) const;  // always true
};

// True for a letter and for a decimal digit.
struct OSTREL_API SAlphaDigitIndentifier : SCharIndentifier {
    bool operator()(WCHAR character) const override;
};

// True for a character that IsValidCharacter takes.
struct OSTREL_API SFilenameIndentifier : SCharIndentifier {
    bool operator()(WCHAR character) const override;

    // The table of invalid characters: \ / : # ? \ x 2 2 < > | , . in this order. The small x and
    // the digit 2 are invalid, the double quote is not.
    static const WCHAR *GetInvalidCharacters();

    // False for a character of the table and for NUL.
    static bool IsValidCharacter(WCHAR character);
};

// Turn a word of splitWords into what is stored. Not deleted through a pointer to the base.

struct OSTREL_API SWordsAdapter {
    virtual OS::x_wstring operator()(const OS::x_wstring &word) const = 0;

protected:
    SWordsAdapter() = default;
};

// Gives the word as it is.
struct OSTREL_API SCharAdapter : SWordsAdapter {
    OS::x_wstring operator()(const OS::x_wstring &word) const override;
};

// Gives the word, up to its first NUL, without the invalid characters of SFilenameIndentifier:
// "txt" becomes "tt".
struct OSTREL_API SFileExtensionAdapter : SWordsAdapter {
    OS::x_wstring operator()(const OS::x_wstring &word) const override;

    static const WCHAR *GetInvalidCharacters();
};

// Copies the characters of `text` for which `test` is true, in order. `output` holds the length of
// `text` + 1; it may be `text` itself.
OSTREL_API void collect(const WCHAR *text, const SCharIndentifier &test, WCHAR *output);

// Adds the parts of `text` between separators to the end of `words`, each as `adapter` turns it.
// Parts that are empty, before or behind the adapter, are left out. `text` may lie in `words`.
OSTREL_API void splitWords(WCHAR separator, const WCHAR *text, std::vector<OS::x_wstring> &words,
                           const SWordsAdapter &adapter);

// Adds the tokens of `text` to the end of `words`. `delimiters` is a set of characters, as in
// SplitStringToTokensW: runs count as one, no token is empty, tokens are not trimmed. Both texts
// may lie in `words`.
OSTREL_API void GetStrings(const WCHAR *text, const WCHAR *delimiters,
                           std::vector<OS::x_wstring> &words);

// The last character of `text`: a pointer into it, to its NUL when it is empty; null for null.
OSTREL_API const WCHAR *getLastChar(const WCHAR *text);

// Joins two pieces of a path with one separator at the seam.
//
//   "a" "b" -> "a/b"    "a/" "b" -> "a/b"    "a" "/b" -> "a/b"    "a/" "/b" -> "a/b"
//   "" "b" -> "b"       "" "/b" -> "/b"      "a" "" -> "a"        "a//" "/b" -> "a//b"
//
// One separator at most is added or removed. `output` holds the length of both pieces + 2; it may
// be `first` itself.
OSTREL_API void concatPathURL(const WCHAR *first, const WCHAR *second, WCHAR *output,
                              WCHAR separator);

// The same with the separator '\'. '/' is a plain character to it.
OSTREL_API void concatPath(const WCHAR *first, const WCHAR *second, WCHAR *output);

// The joined path as a string of 260 characters at most. A longer one gives the empty string: a
// path that is cut would name another file.
OSTREL_API OS::x_wstring concatPath(const WCHAR *first, const WCHAR *second);

// The value of a key in a profile file, by GetPrivateProfileStringW, with its rules for null
// arguments, defaults and last errors (see ostrel/platform/profile.h). At most 259 characters; what
// is longer is cut. Where the platform gives a list of names, the result is its first one.
OSTREL_API OS::x_wstring getPrivateProfileString(const WCHAR *section, const WCHAR *key,
                                                 const WCHAR *fallback, const WCHAR *file);

// The number of a key in a profile file, by GetPrivateProfileIntW.
OSTREL_API int getPrivateProfileInt(const WCHAR *section, const WCHAR *key, int fallback,
                                    const WCHAR *file);

// Copies `text`, and puts one character in the place of each '%' and the two behind it: the number
// that wcstol reads there in base 16, so that "%20" is a blank and "%25" a percent sign. It reads
// "% 5" and "%+5" as 5, "%5g" as 5, "%-1" as U+FFFF, and what begins with no number as 0. A text
// that ends within an escape ends before it. An escape of 0 is a NUL in the output; what follows is
// stored behind it.
//
// `output` holds the length of `text` + 1; it may be `text` itself.
OSTREL_API void convertFromEscape(const WCHAR *text, WCHAR *output);

// The same as a string, which ends at an escape of 0.
OSTREL_API OS::x_wstring convertFromEscapeChar(const WCHAR *text);

// The number (_wtoi) in the `count` characters of `text` from `start` on; 0 for a count of 0. That
// range must lie inside the text. `scratch` holds `count` + 1 and receives those characters; it may
// overlap `text`.
OSTREL_API int getInteger(const WCHAR *text, int start, int count, WCHAR *scratch);

// Reads yyyymmddhhmmss into the six fields of `time`; its day of the week and milliseconds stay as
// they are. Each field is what getInteger reads there; nothing tests that they form a date. What
// stands behind the 14 characters is ignored.
//
// Result: 1; 0, with `time` as it was, when `text` is null or shorter.
OSTREL_API int convertTime(const WCHAR *text, SYSTEMTIME &time);

// Whether `text` has the form of `format`, as far as both reach: C or c in the format stands for a
// letter, D or d for a digit, X or x for either, any other character for itself. "ddd-dd" takes
// "123-45", "123" and "123-456".
//
// Result: not 0 when it has; 0 also when one of the two is null or empty.
OSTREL_API int isFormatCorrect(const WCHAR *format, const WCHAR *text);

// 1 when every character is one of 0 to 9, also for an empty text; 0 otherwise.
OSTREL_API int isAllDigitChar(const WCHAR *text);

// Turns hexadecimal text into bytes: each two characters, as sscanf reads them by "%x", into one,
// the low byte of the number. " 5", "+5" and "5g" are 5, "-5" is 0xFB; a pair that begins with no
// number is 0.
//
// `output` holds `size` bytes. Result: true; false, with nothing written, when `size` is not half
// the length of `text` or that length is odd.
OSTREL_API bool StringToBinary(const OS::x_astring &text, unsigned char *output, int size);

}  // namespace NS_StringUtils

#endif  // OSTREL_TEXT_STRING_UTILS_H
