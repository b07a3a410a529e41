#ifndef OSTREL_CHARSET_TRANSFER_CODING_H
#define OSTREL_CHARSET_TRANSFER_CODING_H

// Internal. Base64 and quoted-printable (RFC 2045).
//
// Data is `length` bytes, which need no zero byte behind them and may hold some. `outLength` is not
// null and tells the length of the result in bytes.
//
// Ownership: a result is a new buffer from malloc; the caller releases it with free.
// Errors: null data, INT_MAX bytes of data or more, a result whose length *outLength cannot tell,
// or a lack of memory gives null, and 0 as the length.
// Threads: no state is shared.

namespace OS::charset {

// Decodes concatenated texts as one; `=` may end each of them. Characters that are not of the
// alphabet are skipped, and so are bits at the end that make no byte. The result has a zero byte at
// its end.
//
// Errors: null also when `=` stands as the first or second of a group of four, or alone as the
// third.
char *DecodeBase64(const char *data, unsigned length, unsigned *outLength);

// In lines of 60 characters, CR LF behind each and behind the last one even when it is empty. The
// result has a zero byte at its end. No data gives an empty string, although its length is given
// as 2; two zero bytes are there.
char *EncodeBase64(const char *data, unsigned length, unsigned *outLength);

// Reads up to the first zero byte at most. Drops blanks that stand as themselves in front of CR. A
// `=` at the end of the data is ignored, and in front of CR or CR LF it takes these away with it.
// The result has a zero byte at its end.
//
// Errors: null also when `=` stands in front of anything else than two hexadecimal digits.
char *DecodeQuotedPrintable(const char *data, unsigned length, unsigned *outLength);

// In lines of up to 75 characters and `=`. CR LF in the data ends a line, CR or LF alone is encoded
// like other control characters. Decoding gives the data back. The result has a zero byte at its
// end.
char *EncodeQuotedPrintable(const char *data, unsigned length, unsigned *outLength);

// Takes every CR and LF out of `text`, and returns it; null for null.
char *RemoveLineBreaks(char *text);

}  // namespace OS::charset

#endif  // OSTREL_CHARSET_TRANSFER_CODING_H
