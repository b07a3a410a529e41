#ifndef OSTREL_TEXT_STRING_UTILS_H
#define OSTREL_TEXT_STRING_UTILS_H

// Free functions for wide text: they filter characters, split a line into words, join paths, read
// values of profile files, decode '%' escapes, and read numbers and times at fixed positions.
//
//   WCHAR path[260];
//   NS_StringUtils::concatPath(TEXT("c:\\data"), TEXT("list.txt"), path);   // c:\data\list.txt
//
// Text arguments are terminated and must not be null unless a comment says otherwise. An `output`
// is a caller's buffer. Each function names the capacity that `output` needs, in characters with
// the NUL; the functions do not check the capacity. `output` must not overlap an argument unless a
// comment allows it.
//
// Letters and digits are those of the runtime's iswalpha and iswdigit: Unicode's letters (general
// category L) and decimal digits (Nd). A surrogate is neither.
//
// Threads: the functions keep no state and may run on several threads at once.
// Errors: each function names the result of a failure. A function that returns a string or fills a
// vector throws std::bad_alloc when memory is short. Exceptions of a caller's test or adapter pass
// through.

#include <vector>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/types.h"

namespace NS_StringUtils {

// The base of the tests of one character; it accepts every character. Do not delete an object
// through a pointer to the base: the destructor is not virtual.
struct OSTREL_API SCharIndentifier {
    virtual bool operator()(WCHAR character) const;  // returns true
};

// Returns true for a letter and for a decimal digit.
struct OSTREL_API SAlphaDigitIndentifier : SCharIndentifier {
    bool operator()(WCHAR character) const override;
};

// Returns the result of IsValidCharacter.
struct OSTREL_API SFilenameIndentifier : SCharIndentifier {
    bool operator()(WCHAR character) const override;

    // Returns the terminated list of invalid characters, in this order: \ / : # ? \ x 2 2 < > | , .
    // The small x and the digit 2 are invalid; the double quote is valid. The text is static.
    static const WCHAR *GetInvalidCharacters();

    // Returns false for a character of the list and for NUL, true for any other character.
    static bool IsValidCharacter(WCHAR character);
};

// The base of the adapters of splitWords: an adapter returns the text to store for a word. Do not
// delete an object through a pointer to the base: the destructor is not virtual.
struct OSTREL_API SWordsAdapter {
    virtual OS::x_wstring operator()(const OS::x_wstring &word) const = 0;

protected:
    SWordsAdapter() = default;
};

// Returns the word unchanged.
struct OSTREL_API SCharAdapter : SWordsAdapter {
    OS::x_wstring operator()(const OS::x_wstring &word) const override;
};

// Returns the word, up to its first NUL, without the invalid characters of SFilenameIndentifier:
// "txt" becomes "tt".
struct OSTREL_API SFileExtensionAdapter : SWordsAdapter {
    OS::x_wstring operator()(const OS::x_wstring &word) const override;

    // Returns the list of SFilenameIndentifier.
    static const WCHAR *GetInvalidCharacters();
};

// Copies the characters of `text` for which `test` returns true to `output`, in order, and
// terminates `output`. `output` holds the length of `text` + 1 characters and may be `text` itself.
OSTREL_API void collect(const WCHAR *text, const SCharIndentifier &test, WCHAR *output);

// Splits `text` at each `separator` and adds the results of `adapter` for the parts to the end of
// `words`. Leaves out empty parts and empty results. `text` may lie in `words`. When the call
// throws, the words added so far stay.
OSTREL_API void splitWords(WCHAR separator, const WCHAR *text, std::vector<OS::x_wstring> &words,
                           const SWordsAdapter &adapter);

// Adds the tokens of `text` to the end of `words`. `delimiters` is a set of characters, as in
// SplitStringToTokensW: a run separates once, no token is empty, tokens are not trimmed. `text` and
// `delimiters` may lie in `words`.
OSTREL_API void GetStrings(const WCHAR *text, const WCHAR *delimiters,
                           std::vector<OS::x_wstring> &words);

// Returns a pointer to the last character of `text`, to the NUL when `text` is empty, or null when
// `text` is null.
OSTREL_API const WCHAR *getLastChar(const WCHAR *text);

// Joins two parts of a path with one separator between the parts.
//
//   "a" "b" -> "a/b"    "a/" "b" -> "a/b"    "a" "/b" -> "a/b"    "a/" "/b" -> "a/b"
//   "" "b" -> "b"       "" "/b" -> "/b"      "a" "" -> "a"        "a//" "/b" -> "a//b"
//
// Adds or removes at most one separator. `output` holds the length of both parts + 2 characters and
// may be `first` itself.
OSTREL_API void concatPathURL(const WCHAR *first, const WCHAR *second, WCHAR *output,
                              WCHAR separator);

// Joins as concatPathURL with the separator '\'. '/' is an ordinary character.
OSTREL_API void concatPath(const WCHAR *first, const WCHAR *second, WCHAR *output);

// Returns the joined path. Returns the empty string when the path has more than 260 characters,
// because a truncated path would name another file.
OSTREL_API OS::x_wstring concatPath(const WCHAR *first, const WCHAR *second);

// Returns the value of a key in a profile file, as GetPrivateProfileStringW stores it, truncated to
// 259 characters. Returns `fallback` when the key is missing or the file cannot be read. Null
// arguments, trailing blanks of `fallback` and last errors follow GetPrivateProfileStringW (see
// ostrel/platform/profile.h). A null `section` or `key` asks for a list of names; the result is the
// first name of the list.
OSTREL_API OS::x_wstring getPrivateProfileString(const WCHAR *section, const WCHAR *key,
                                                 const WCHAR *fallback, const WCHAR *file);

// Returns the number at the start of a key's value in a profile file, as GetPrivateProfileIntW
// reads it, or 0 when the value begins with no number. Returns `fallback` when the key is missing,
// when `section` or `key` is null and when the file cannot be read. Last errors follow
// GetPrivateProfileIntW.
OSTREL_API int getPrivateProfileInt(const WCHAR *section, const WCHAR *key, int fallback,
                                    const WCHAR *file);

// Copies `text` to `output` and replaces each escape, a '%' with the two characters after it, by
// one character: the number that wcstol reads from the two characters in base 16. "%20" is a blank
// and "%25" a percent sign; "% 5", "%+5" and "%5g" are U+0005, "%-1" is U+FFFF, and an escape that
// begins with no number is U+0000. An incomplete escape at the end of `text` is left out. U+0000 is
// stored as a NUL, and the rest of the text follows it.
//
// `output` holds the length of `text` + 1 characters and may be `text` itself.
OSTREL_API void convertFromEscape(const WCHAR *text, WCHAR *output);

// Returns the text that convertFromEscape stores, up to the first NUL.
OSTREL_API OS::x_wstring convertFromEscapeChar(const WCHAR *text);

// Returns the decimal number (_wtoi) at the start of the `count` characters of `text` from `start`
// on, or 0 when no number stands there. A number out of range gives the nearest 32-bit value. The
// range must lie inside the text. `scratch` holds `count` + 1 characters, receives the characters
// of the range and a NUL, and may overlap `text`.
OSTREL_API int getInteger(const WCHAR *text, int start, int count, WCHAR *scratch);

// Reads yyyymmddhhmmss from `text` into the year, month, day, hour, minute and second of `time`.
// Day of the week and milliseconds stay as they are. getInteger reads each field, so a field that
// is no number becomes 0; nothing checks that the fields form a date. Characters after the first 14
// are ignored.
//
// Returns 1. Returns 0 and leaves `time` as it was when `text` is null or has fewer than 14
// characters.
OSTREL_API int convertTime(const WCHAR *text, SYSTEMTIME &time);

// Compares `text` with `format`, character by character, until the shorter one ends. In the format,
// C or c stands for a letter, D or d for a digit, X or x for either, any other character for
// itself. "ddd-dd" accepts "123-45", "123" and "123-456".
//
// Returns a value other than 0 when all compared characters fit. Returns 0 when one does not fit
// and when `format` or `text` is null or empty.
OSTREL_API int isFormatCorrect(const WCHAR *format, const WCHAR *text);

// Returns 1 when every character of `text` is one of 0 to 9, and for an empty text. Returns 0
// otherwise.
OSTREL_API int isAllDigitChar(const WCHAR *text);

// Decodes hexadecimal text: each pair of characters gives one byte, the low byte of the number that
// sscanf with "%x" reads from the pair. " 5", "+5" and "5g" give 5, "-5" gives 0xFB, and a pair
// that begins with no number gives 0. `output` holds `size` bytes.
//
// Returns true. Returns false and writes nothing when the length of `text` is odd or `size` is not
// half that length.
OSTREL_API bool StringToBinary(const OS::x_astring &text, unsigned char *output, int size);

}  // namespace NS_StringUtils

#endif  // OSTREL_TEXT_STRING_UTILS_H
