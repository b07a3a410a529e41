#ifndef OSTREL_PLATFORM_PROFILE_H
#define OSTREL_PLATFORM_PROFILE_H

// Profile files: sections of keys with values.
//
//   ; a comment
//   [Server]
//   Port = 8080
//   Greeting = " hello, "
//
// A line ends with LF or CR LF; a NUL in it ends its text. Blanks (the blank, U+0009 to U+000D) at
// both ends of a line, of a name and of a value do not count.
//
//   - A line that begins with ';' is a comment. A ';' further on is an ordinary character.
//   - A line that begins with '[' begins a section. Its name runs to the first ']', and to the end
//     of the line when there is none; what follows is ignored.
//   - In any other line the key runs to the first '=' and the value is what stands behind it,
//     without one pair of ' or " around it. A line without '=' and one without a key hold nothing,
//     as does everything before the first section.
//
// Names are compared without regard to the case of A to Z, and the first that fits counts: of two
// sections of one name the second is never looked at. A name that is empty is not found.
//
// Text. A file that begins with the byte order mark of UTF-16, low byte first, is read as that, one
// with the mark of UTF-8 as that; any other in the system code page (see codepage.h). A broken
// sequence gives U+FFFD.
//
// Files. Paths are those of file.h: a path that is not a full one begins at the current directory,
// for there is no system folder to look in. The file is read anew at each call, up to the place
// where the answer is known, so that a change is seen by the next call. A call keeps one line in
// memory and a buffer of constant size.
//
// Threads: the calls keep no state. A file that is being written is read as it stands.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// Stores the value of a key, or a list of names, in `buffer`, which holds `size` characters.
//
// `section` and `key` name the value. When it is not there, or the file cannot be read, `fallback`
// stands for it, without its trailing blanks; null is the empty text. It may lie in `buffer`.
//
// `key` null: the list of the keys of the section, in the order of the file; `section` null: that
// of the sections. Each name has a NUL behind it, and the last a second one; an empty list is two
// NULs. When the file cannot be read, the fallback is stored with two NULs behind it.
//
// Result: the characters stored, without the last NUL. A text that is too long is cut to `size` - 1
// characters, a list to `size` - 2, with a NUL or two NULs behind; that is the result then, and the
// last error is ERROR_MORE_DATA. A buffer too small for the NULs gets as many as it holds, with the
// result 0. `buffer` null counts as one of size 0.
//
// Last error, beside the fallback: ERROR_FILE_NOT_FOUND for a file that is not there and for a null
// `file`; ERROR_ACCESS_DENIED for one that is no regular file (the call never waits for it) or may
// not be read; ERROR_NOT_ENOUGH_MEMORY; otherwise the code of what the host reports.
// A key or section that is not there leaves it alone.
OSTREL_PLATFORM_API DWORD GetPrivateProfileStringW(const WCHAR *section, const WCHAR *key,
                                                   const WCHAR *fallback, WCHAR *buffer, DWORD size,
                                                   const WCHAR *file) noexcept;

// The number at the start of a key's value: an optional sign, then decimal digits, or "0x" and
// hexadecimal ones. What follows is ignored; a value that begins with no number, or is empty, is 0.
// The result is the number modulo 2^32: a negative one is its two's complement, and 4294967296
// is 0.
//
// `fallback`, as two's complement too, stands for a key that is not there, for a null `section` or
// `key`, and for a file that cannot be read, with the last errors above.
OSTREL_PLATFORM_API unsigned GetPrivateProfileIntW(const WCHAR *section, const WCHAR *key,
                                                   int fallback, const WCHAR *file) noexcept;

#endif

#endif  // OSTREL_PLATFORM_PROFILE_H
