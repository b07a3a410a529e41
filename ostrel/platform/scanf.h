#ifndef OSTREL_PLATFORM_SCANF_H
#define OSTREL_PLATFORM_SCANF_H

// The runtime's scanf on 16-bit text, as far as fixed text forms need it.

#ifdef _WIN32
#include <cwchar>
#else

#include "ostrel/platform/types.h"

// Reads `text` by `format` and stores what it reads through the pointers that follow.
//
//   %d, %Nd   a decimal number, of N characters at most, its sign included, behind any white space:
//             to an int *. One that is out of range gives the nearest int.
//   %s, %Ns   up to N characters that are no white space, behind any white space: to a WCHAR * with
//             room for them and a NUL.
//   %%        a percent sign, behind any white space.
//   white space in the format: any run of it in the text, none too.
//   any other character: itself.
//
// Reading stops at the first thing that does not match, and at a conversion that is not listed.
// Result: the number of values stored; -1 when the text ends before the first of them was found or
// failed to match, and, with errno EINVAL, when a text is null.
OSTREL_PLATFORM_API int swscanf(const WCHAR *text, const WCHAR *format, ...) noexcept;

#endif

#endif  // OSTREL_PLATFORM_SCANF_H
