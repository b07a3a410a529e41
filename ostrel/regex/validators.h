#ifndef OSTREL_REGEX_VALIDATORS_H
#define OSTREL_REGEX_VALIDATORS_H

// Checks of the form of e-mail addresses and of directory paths.
//
//     if (!VerifyEMailAddress(TEXT("j.smith@example.com"))) ...
//     if (!CheckPathFormat(path.c_str(), path.length())) ...
//
// Both look at the text alone: no name is resolved, no file is touched. They compile their patterns
// at every call and keep nothing between calls.
//
// Threads: both use local objects only and may be called from any number of threads.

#include <cstdint>

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

namespace OS {

// What the pattern engine throws. It is no std::exception and no CException, and it is as large as
// its one field.
struct OSTREL_API RegexFailure {
    DWORD code;  // an HRESULT: one of those below

    static constexpr DWORD kFailed = 0x80004005;           // E_FAIL
    static constexpr DWORD kOutOfMemory = 0x8007000E;      // E_OUTOFMEMORY
    static constexpr DWORD kInvalidArgument = 0x80070057;  // E_INVALIDARG
};

}  // namespace OS

// Whether `address`, a text with a NUL at its end, has the form of an e-mail address:
//
//   local part   a text in double quotes that holds no other double quote, or one or more of
//                A-Z a-z 0-9 . _
//   @
//   domain       one label; or labels, each with a dot behind it, and a last part of two or three
//                letters; or four decimal numbers from 0 to 255, of one to three digits each, with
//                dots between, in brackets. A label is one or more of A-Z a-z 0-9 -
//
//   a.b_c@host  "a b"@x.org  j@[10.0.0.1]   -> true
//   a-b@host    j@x.info     j@[10.0.0.256] -> false
//
// Null and the empty text give false, and so does a lack of memory: an address takes 48 bytes for
// each of its characters, the double while the memory grows.
OSTREL_API bool VerifyEMailAddress(const WCHAR *address);

// Whether the first `length` characters at `path` are an absolute path of a directory, with the
// separator at its end: a letter, a colon and '\', then any number of names, each with a '\' behind
// it. A name has one character at least, none of the tab and / \ : * ? " < > |, and begins and ends
// with neither a blank nor a dot. The text needs no NUL; a NUL within the length ends it.
//
//   C:\  d:\a b\c.d\   -> true
//   C:   C:\a  C:\\a\  C:\.\  \\host\share\  C:/a/  -> false
//
// A `length` of 260 or more gives false, and the text is not looked at. A lack of memory gives
// false.
//
// Throws RegexFailure with kInvalidArgument when `path` is null and `length` is from 1 to 259.
OSTREL_API bool CheckPathFormat(const WCHAR *path, std::uint64_t length);

#endif  // OSTREL_REGEX_VALIDATORS_H
