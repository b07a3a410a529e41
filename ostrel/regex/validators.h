#ifndef OSTREL_REGEX_VALIDATORS_H
#define OSTREL_REGEX_VALIDATORS_H

// Functions that check the form of e-mail addresses and of directory paths.
//
//   if (!VerifyEMailAddress(TEXT("j.smith@example.com"))) ...
//   if (!CheckPathFormat(path.c_str(), path.length())) ...
//
// The functions check the text alone: they resolve no name and access no file. Each call compiles
// its patterns anew; nothing is kept between calls.
//
// Threads: the functions use local objects only and may run on several threads at once.
// Errors: both functions return false when memory is short. CheckPathFormat throws RegexFailure for
// a null path.

#include <cstdint>

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

namespace OS {

// The exception of the pattern engine. Derives neither from std::exception nor from CException. The
// structure has no other content than its one field of 4 bytes.
struct OSTREL_API RegexFailure {
    DWORD code;  // an HRESULT: one of the constants below

    static constexpr DWORD kFailed = 0x80004005;           // E_FAIL
    static constexpr DWORD kOutOfMemory = 0x8007000E;      // E_OUTOFMEMORY
    static constexpr DWORD kInvalidArgument = 0x80070057;  // E_INVALIDARG
};

}  // namespace OS

// Checks whether the whole of `address`, a terminated text, has the form of an e-mail address:
//
//   local part   one or more of A-Z a-z 0-9 . _
//                or a pair of double quotes around any characters but the double quote
//   @
//   domain       one label
//                or one or more labels, each followed by a dot, and two or three letters A-Z a-z
//                or "[", four decimal numbers from 0 to 255 with dots between them, and "]"; a
//                number has one to three digits
//   label        one or more of A-Z a-z 0-9 -
//
//   true    a.b_c@host   "a b"@x.org   j@[10.0.0.1]
//   false   a-b@host     j@x.info      j@[10.0.0.256]
//
// Returns true when `address` has the form. Returns false when it does not, when it is null or
// empty, and when memory is short. Does not throw. Needs 48 bytes of memory for each character, and
// twice as much while the memory grows.
OSTREL_API bool VerifyEMailAddress(const WCHAR *address);

// Checks whether `path` is the absolute path of a directory, with a separator at its end: a letter
// A-Z a-z, ":\", then any number of names, each followed by '\'. A name has one or more characters,
// none of them a tab or one of / \ : * ? " < > |. Neither the first nor the last character of a
// name is a blank or a dot.
//
//   true    C:\   d:\a b\c.d\   (both)
//   false   C:    C:\a   C:\\a\   C:\.\   \\host\share\   C:/a/
//
// `length` is the length of `path` in characters (UTF-16 units). The text needs no NUL; a NUL
// within `length` ends the text.
//
// Returns true when `path` has the form. Returns false when it does not, when `length` is 0, when
// `length` is 260 or more (the call then does not read `path`, which may be null), and when memory
// is short. Throws RegexFailure with kInvalidArgument when `path` is null and `length` is from 1 to
// 259.
OSTREL_API bool CheckPathFormat(const WCHAR *path, std::uint64_t length);

#endif  // OSTREL_REGEX_VALIDATORS_H
