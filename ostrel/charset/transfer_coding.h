#ifndef OSTREL_CHARSET_TRANSFER_CODING_H
#define OSTREL_CHARSET_TRANSFER_CODING_H

// Internal. Base64 and quoted-printable (RFC 2045).
//
// `data` has `length` bytes; it needs no zero byte at its end and may contain zero bytes.
// `outLength` must not be null; `*outLength` receives the length of the result in bytes, without
// the zero byte that follows every result.
//
// Ownership: a result is a new buffer from malloc; the caller releases it with free.
// Errors: a function returns null and stores 0 in `*outLength` when `data` is null, when `length`
// is INT_MAX or more, when the length of the result does not fit `*outLength`, and when memory is
// short.
// Threads: the functions share no state.

namespace OS::charset {

// Decodes Base64. Decodes concatenated texts, each of which may end with `=`, as one. Skips
// characters outside the alphabet, and bits at the end that do not fill a byte. Returns null also
// when `=` is the first or second character of a group of four, or the third one without another
// `=` immediately after it.
char *DecodeBase64(const char *data, unsigned length, unsigned *outLength);

// Encodes in Base64, in lines of 60 characters. CR LF follows each line, and the last line even
// when it is empty. For a `length` of 0 the result is an empty string, but `*outLength` is 2; the
// two bytes are zero bytes.
char *EncodeBase64(const char *data, unsigned length, unsigned *outLength);

// Decodes quoted-printable, up to the first zero byte at most. Drops unencoded blanks before CR.
// Ignores `=` at the end of the data, and removes `=` before CR or CR LF together with these.
// Returns null also when anything else but two hexadecimal digits follows `=`.
char *DecodeQuotedPrintable(const char *data, unsigned length, unsigned *outLength);

// Encodes in quoted-printable, in lines of up to 75 characters and `=`. CR LF in the data ends a
// line. A single CR or LF is encoded like other control characters. Decoding returns the original
// data.
char *EncodeQuotedPrintable(const char *data, unsigned length, unsigned *outLength);

// Removes every CR and LF from `text` in place. Returns `text`, or null for null.
char *RemoveLineBreaks(char *text);

}  // namespace OS::charset

#endif  // OSTREL_CHARSET_TRANSFER_CODING_H
