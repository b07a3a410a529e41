#ifndef OSTREL_CHARSET_JAPANESE_H
#define OSTREL_CHARSET_JAPANESE_H

// Internal. Recognises which of the Japanese encodings a text is in, and converts between them.
//
// ISO-2022-JP (RFC 1468), called JIS here, is the hub: a conversion goes into JIS first and out of
// JIS afterwards. Characters are mapped by arithmetic on their bytes, so nothing is refused: bytes
// that stand for no character are mapped in the same way.
//
// Texts end with a zero byte. A pair of bytes that no character has may be mapped to one that holds
// a zero byte; the result ends there. A character of two bytes whose second one is missing at the
// end of the text is left out.
//
// Ownership: a result is a new string from malloc; the caller releases it with free.
// Errors: a null text, a text of more than INT_MAX bytes or a lack of memory gives null; from
// EncodingMime also a word whose body is not well-formed. To EncodingMime every CR and LF is taken
// out; see mime_words.h for both.
// Threads: no state is shared.

#include <cstdint>

namespace OS::charset {

enum Encoding : std::int32_t {
    EncodingNone = 0,      // nothing Japanese recognised: plain 7-bit text, or undecided
    EncodingJis = 1,       // ISO-2022-JP, with half-width katakana behind ESC ( I
    EncodingShiftJis = 2,  // Shift_JIS
    EncodingEucJp = 3,     // EUC-JP, of two bytes a character at most
    EncodingMime = 4,      // text that holds MIME encoded words, see mime_words.h
    EncodingMasked = 5,    // as a target only: 7 bits, `?` for each byte of Japanese text in JIS
};

// What the library keeps Japanese text in.
inline constexpr std::int32_t InternalEncoding = EncodingEucJp;

// The encoding of `text`, EncodingNone to EncodingMime; EncodingNone for null. A text that can be
// read as EUC-JP and as Shift_JIS is EUC-JP. Where neither reading comes to the end of the text,
// the one with more points wins: two a character in front of what does not fit, one a half-width
// katakana of Shift_JIS. It needs 20; with fewer the result is EncodingNone. With no character at
// all, escape sequences and prefixes of encoded words in front of the misfit decide.
int DetectJapaneseEncoding(const char *text);

// To JIS from `encoding`, 0 to 4. Another encoding gives an empty string.
char *ConvertToJis(const char *text, int encoding);

// From JIS to `target`, 1 to 5. With another target, what is not in the single-byte state is left
// out.
char *ConvertFromJis(const char *text, int target);

// To `target`, 1 to 5, from the encoding that is detected.
char *ConvertDetected(const char *text, int target);

// To InternalEncoding from `source`, 0 to 4.
char *ConvertToInternal(const char *text, int source);

// From InternalEncoding to `target`, 1 to 5.
char *ConvertFromInternal(const char *text, int target);

}  // namespace OS::charset

#endif  // OSTREL_CHARSET_JAPANESE_H
