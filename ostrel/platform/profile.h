#ifndef OSTREL_PLATFORM_PROFILE_H
#define OSTREL_PLATFORM_PROFILE_H

// Profile files: sections of keys with values.
//
//   ; a comment
//   [Server]
//   Port = 8080
//   Greeting = " hello, "
//
//   WCHAR greeting[50];
//   const unsigned port =
//       GetPrivateProfileIntW(TEXT("Server"), TEXT("Port"), 80, TEXT("C:\\srv\\server.ini"));
//   GetPrivateProfileStringW(TEXT("Server"), TEXT("Greeting"), TEXT("welcome"), greeting, 50,
//                            TEXT("C:\\srv\\server.ini"));
//
// Implemented with stat, open and read, and with ICU for text that is not UTF-8 or UTF-16.
//
// Lines. A line ends with LF or CR LF. A NUL in a line ends its text. White space (the blank and
// U+0009 to U+000D) at both ends of a line, of a name and of a value does not count.
//
//   - A line that begins with ';' is a comment. A ';' further on is an ordinary character.
//   - A line that begins with '[' begins a section. The section's name runs to the first ']', or to
//     the end of the line when there is none. What follows the ']' is ignored.
//   - In any other line the key runs to the first '='. The value is what stands behind the '=',
//     without one pair of ' or " around it. A line without '=' holds nothing, and neither does a
//     line without a key or one before the first section.
//
// Names. The calls compare names without regard to the case of A to Z. The first match counts: of
// two sections of one name the second is never read. An empty name is not found.
//
// Text. A file that begins with a byte order mark of UTF-16 (low byte first) or UTF-8 is decoded as
// that, any other file from the system code page (see codepage.h). A broken sequence gives U+FFFD.
//
// Files. Paths are those of file.h, of any length. A relative path begins at the current directory;
// there is no system directory to search. Each call reads the file anew, up to the answer, so that
// the next call sees a change. A call keeps one line in memory and a buffer of constant size.
//
// Threads: the calls keep no state and take no lock. A call that meets a writer reads what the file
// holds at that moment.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// Stores the value of a key, or a list of names, in `buffer`, which holds `size` characters. A null
// `buffer` counts as one of size 0.
//
// `section` and `key` name the value. When the value is missing or the file cannot be read, the
// call stores `fallback` without its trailing white space; null is the empty text. `fallback` may
// lie in `buffer`.
//
// With a null `key` the call stores the list of the section's keys, in the order of the file; with
// a null `section`, that of the sections. A NUL follows each name, and a second one the last name;
// an empty list is two NULs. When the file cannot be read, the call stores `fallback` and two NULs.
//
// Returns the number of characters stored, without the last NUL; without both NULs for an empty
// list and for a `fallback` that stands for a list. Cuts a value to `size` - 1 characters and a
// list to `size` - 2, stores one NUL or two NULs behind, returns `size` - 1 or `size` - 2 and sets
// the last error to ERROR_MORE_DATA. In a buffer too small for its NULs stores as many as fit and
// returns 0.
//
// When the file cannot be read, returns what it stored of `fallback` and sets the last error:
//   ERROR_FILE_NOT_FOUND     the file or its directory is missing, `file` is null, or no host file
//                            can have the path (its drive does not exist)
//   ERROR_PATH_NOT_FOUND     a directory on the way is a file
//   ERROR_ACCESS_DENIED      no regular file (the call never waits for one), or no permission
//   ERROR_INVALID_DATA       a line before the answer is longer than the limit
//   ERROR_NOT_ENOUGH_MEMORY  memory is missing
// or the code that error_codes.inc gives for the host's errno; that code stands also when
// `fallback` is cut. A missing key or section leaves the last error as it is, unless `fallback` is
// cut.
OSTREL_PLATFORM_API DWORD GetPrivateProfileStringW(const WCHAR *section, const WCHAR *key,
                                                   const WCHAR *fallback, WCHAR *buffer, DWORD size,
                                                   const WCHAR *file) noexcept;

// Returns the number at the start of a key's value: an optional sign, then decimal digits, or "0x"
// and hexadecimal digits. Ignores what follows. A value that is empty or begins with no number is
// 0. The result is the number modulo 2^32: a negative number is its two's complement, and
// 4294967296 is 0.
//
// Returns `fallback`, as two's complement too, when the key or section is missing or `section` or
// `key` is null; the last error then stays as it is. When the file cannot be read, returns
// `fallback` and sets the last error like GetPrivateProfileStringW.
OSTREL_PLATFORM_API unsigned GetPrivateProfileIntW(const WCHAR *section, const WCHAR *key,
                                                   int fallback, const WCHAR *file) noexcept;

#endif

#endif  // OSTREL_PLATFORM_PROFILE_H
