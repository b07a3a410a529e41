#ifndef OSTREL_PLATFORM_SCANF_H
#define OSTREL_PLATFORM_SCANF_H

// The runtime's scanf on 16-bit text, with the conversions that fixed text forms need.
//
//   int year = 0;
//   int month = 0;
//   if (swscanf(TEXT("2026-11"), TEXT("%4d-%2d"), &year, &month) == 2) {
//       // year is 2026, month is 11
//   }
//
// Implemented without the host's scanf.

#ifdef _WIN32
#include <cwchar>
#else

#include "ostrel/platform/types.h"

// Reads `text` by `format` and stores the values through the pointers that follow.
//
//   %d, %Nd      a decimal number of at most N characters, its sign included, behind any white
//                space: into an int *. A number out of range gives the nearest int.
//   %s, %Ns      at most N characters that are not white space, behind any white space: into a
//                WCHAR * with room for them and a NUL.
//   %%           a percent sign, behind any white space
//   white space  any run of white space, or none
//   others       the same character
//
// Reading stops at the first part of the format that the text does not match, and at a conversion
// that is not listed (a width of 0 is not listed).
//
// Returns the number of values stored. Returns -1 when no value has been stored and the text ended
// before the part of the format that stopped the call, unless that part is a conversion that is not
// listed; errno stays unchanged. On failure, when `text` or `format` is null, returns -1 and sets
// errno to EINVAL.
OSTREL_PLATFORM_API int swscanf(const WCHAR *text, const WCHAR *format, ...) noexcept;

#endif

#endif  // OSTREL_PLATFORM_SCANF_H
