#ifndef OSTREL_CHARSET_MIME_WORDS_H
#define OSTREL_CHARSET_MIME_WORDS_H

// Internal. Converts encoded words of mail headers (RFC 2047) in the Japanese charsets to JIS (see
// japanese.h) and back.
//
// Ownership: a result is a new string from malloc; the caller releases it with free.
// Errors: the conversions return null when the text is null, when the text or the result comes
// within 1 KiB of INT_MAX bytes, and when memory is short.
// Threads: the functions share no state.

namespace OS::charset {

// The beginning of a word: "=?", the charset, "?", the letter of the coding, "?".
struct MimePrefix {
    const char *text;  // in capital letters
    int encoding;      // an Encoding: that of the decoded bytes
    int length;        // of `text`, in characters
    char coding;       // 'B' Base64, 'Q' quoted-printable
};

// Returns the prefix at `text`: "=?ISO-2022-JP?", "=?SHIFT_JIS?" or "=?EUC-JP?", then "B?" or "Q?",
// in letters of either case. Returns null when no prefix begins there. `text` must not be null.
const MimePrefix *find_mime_prefix(const char *text);

// Returns the text with each word of these charsets decoded and converted to JIS, each word by
// itself. Everything else stays as it is: words in other charsets, white space between two words,
// and the rest of the text from a word without "?=" on. Returns null also when the body of a word
// is not well-formed.
char *DecodeMimeWords(const char *text);

// Returns JIS text with each double-byte run as a word "=?ISO-2022-JP?B?...?=", and without CR and
// LF. A run begins with ESC $ B or ESC $ J, ends with ESC ( B or at the end of the text, and
// includes these escape sequences. Half-width katakana and other escape sequences are not encoded.
char *EncodeMimeWords(const char *text);

}  // namespace OS::charset

#endif  // OSTREL_CHARSET_MIME_WORDS_H
