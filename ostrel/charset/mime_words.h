#ifndef OSTREL_CHARSET_MIME_WORDS_H
#define OSTREL_CHARSET_MIME_WORDS_H

// Internal. Encoded words of mail headers (RFC 2047) in the Japanese charsets: to JIS, see
// japanese.h, and back.
//
// Ownership: a result is a new string from malloc; the caller releases it with free.
// Errors: a null text, a text or a result that comes within 1 KiB of INT_MAX bytes, or a lack of
// memory gives null.
// Threads: no state is shared.

namespace OS::charset {

// How a word begins: "=?", the charset, "?", then the letter of its coding and "?".
struct MimePrefix {
    const char *text;  // in capital letters
    int encoding;      // of the decoded bytes
    int length;        // of all of it
    char coding;       // 'B' Base64, 'Q' quoted-printable
};

// The prefix that begins at `text`, in letters of either case: B or Q behind "=?ISO-2022-JP?",
// "=?SHIFT_JIS?" or "=?EUC-JP?". Null when there is none.
const MimePrefix *find_mime_prefix(const char *text);

// The text with each word of those charsets decoded and converted to JIS by itself. All else stays
// as it is: words in other charsets, the white space between two words, and all behind the prefix
// of a word that has no "?=".
//
// Errors: null also when the body of a word is not well-formed.
char *DecodeMimeWords(const char *text);

// JIS text with each double-byte run, its escape sequences included, as a word
// "=?ISO-2022-JP?B?...?=", and without any CR and LF. A run begins with ESC $ B or ESC $ J and ends
// with ESC ( B or with the text. Half-width katakana and other escape sequences are not wrapped.
char *EncodeMimeWords(const char *text);

}  // namespace OS::charset

#endif  // OSTREL_CHARSET_MIME_WORDS_H
