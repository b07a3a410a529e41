#ifndef OSTREL_CHARSET_JAPANESE_H
#define OSTREL_CHARSET_JAPANESE_H

// Internal. Detects the Japanese encoding of a text and converts between these encodings.
//
// ISO-2022-JP (RFC 1468), called JIS here, is the hub: a conversion first converts to JIS and then
// from JIS. Characters are converted by arithmetic on their bytes. No byte is refused: a pair of
// bytes that stands for no character is converted in the same way.
//
// Texts end with a zero byte. A pair of bytes that stands for no character may become a pair with a
// zero byte, which ends the result. A two-byte character whose second byte is missing at the end of
// the text is left out. A conversion to EncodingMime removes every CR and LF (see mime_words.h).
//
// Ownership: a result is a new string from malloc; the caller releases it with free.
// Errors: a conversion returns null when the text is null or has more than INT_MAX bytes and when
// memory is short, and from EncodingMime when the body of a word is not well-formed.
// Threads: the functions share no state.

#include <cstdint>

namespace OS::charset {

enum Encoding : std::int32_t {
    EncodingNone = 0,      // no Japanese encoding detected: plain 7-bit text, or undecided
    EncodingJis = 1,       // ISO-2022-JP, with half-width katakana after ESC ( I
    EncodingShiftJis = 2,  // Shift_JIS
    EncodingEucJp = 3,     // EUC-JP, with characters of one and two bytes only
    EncodingMime = 4,      // text that holds MIME encoded words, see mime_words.h
    EncodingMasked = 5,    // only as a target: 7 bits, `?` for each byte of Japanese text in JIS
};

// The encoding in which the library keeps Japanese text.
inline constexpr std::int32_t InternalEncoding = EncodingEucJp;

// Detects the encoding of `text`. Returns EncodingNone to EncodingMime, and EncodingNone for null.
//
// A text that is valid as EUC-JP and as Shift_JIS is EUC-JP. When it is valid as neither, the
// encoding with more points wins: two for each character before the first invalid byte, but one for
// a half-width katakana of Shift_JIS. With fewer than 20 points the result is EncodingNone. When
// neither reading finds a character, the escape sequences (EncodingJis) and the prefixes of encoded
// words (EncodingMime) before the first invalid byte decide.
int DetectJapaneseEncoding(const char *text);

// Converts to JIS from `encoding`, 0 to 4. Returns an empty string for another encoding.
char *ConvertToJis(const char *text, int encoding);

// Converts from JIS to `target`, 1 to 5. For another target the result has only the single-byte
// text.
char *ConvertFromJis(const char *text, int target);

// Converts to `target`, 1 to 5, from the encoding that DetectJapaneseEncoding returns.
char *ConvertDetected(const char *text, int target);

// Converts to InternalEncoding from `source`, 0 to 4.
char *ConvertToInternal(const char *text, int source);

// Converts from InternalEncoding to `target`, 1 to 5.
char *ConvertFromInternal(const char *text, int target);

}  // namespace OS::charset

#endif  // OSTREL_CHARSET_JAPANESE_H
