#ifndef OSTREL_PLATFORM_PRINTF_H
#define OSTREL_PLATFORM_PRINTF_H

// The runtime's bounded formatted output, wide (16 bits) and narrow (8 bits).
//
//   int print(WCHAR *buffer, std::size_t count, const WCHAR *format, ...) {
//       std::va_list args;
//       va_start(args, format);
//       const int length = _vsnwprintf(buffer, count, format, args);
//       va_end(args);
//       return length;
//   }
//
// Implemented with std::to_chars for digits and with the system code page's converter for strings
// of the other width; the host's printf is not involved. The conversions are those of the platform
// (its Universal C Runtime), which differ from ISO C:
//
//   %s %c          a string, a character of the function's own width
//   %S %C          a string, a character of the other width
//   %hs %hc, %ls %lc (also with S and C, and w for l)
//                  always narrow, always wide; the sizes ll I64 I32 j I z t mean nothing to strings
//                  and characters
//   %d %i %o %u %x %X
//                  32 bits, with l too; 64 bits with ll, I64, j, I, z and t; 32 with I32, 16 with
//                  h, 8 with hh
//   %p             16 upper-case hexadecimal digits without a prefix, with or without #
//   %e %f %g %a (and capitals)
//                  a double; L has no effect (a long double is a double on the platform). The
//                  digits are exact to any precision, and a tie is rounded to even. %e writes at
//                  least two exponent digits, %a 13 digits by default (0x1.8000000000000p+0).
//   %F             %f in capitals. Before one of the conversions s S c C d i o u x X p e g G f n,
//                  F is the far modifier of older runtimes instead and is ignored, as N is.
//   %n             takes its pointer and stores nothing
//
// An infinity prints as "inf", a NaN as "nan", a signalling NaN as "nan(snan)", and the negative
// NaN that an invalid operation gives as "nan(ind)"; in capitals for %E %F %G %A. A sign stands in
// front as for a number. The padding is always blanks.
//
// The flags are - + blank 0 #. Width and precision are numbers or *. A negative * width means
// left-justified, a negative * precision no precision. The flag 0 pads strings and characters too.
// Of modifiers that contradict each other the last counts.
//
// A null string prints as "(null)". Strings of the other width are converted in the system code
// page (GetACP), which replaces what has no counterpart and refuses nothing. The precision of a
// string counts characters or bytes of the argument, and the argument need not be terminated within
// that many. A converted string loses a character that the precision cuts. The width counts
// characters of the result. %c of a NUL writes and counts a NUL.
//
// Threads: the calls keep no state and may run on several threads at once.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <cstdio>
#include <cwchar>

#else

#include <cstdarg>
#include <cstddef>

// Print into `buffer`, which holds `count` characters (WCHAR or bytes). `buffer` may be null when
// `count` is 0. The calls do not advance the caller's `args` and never write past `count`.
//
// Return the length of the text without a NUL, and leave errno unchanged. A text shorter than
// `count` is followed by a NUL; a text of exactly `count` characters is not. When the text is
// longer than `count`, also for a `count` of 0, the calls store its first `count` characters
// without a NUL, return -1 and leave errno unchanged.
//
// On failure return -1 and set errno:
//   EINVAL     `format` is null, or `buffer` is null with a `count` above 0
//   EINVAL     a conversion is unknown (%% with options between is unknown), or the format ends
//              within a conversion
//   ENOMEM     memory for converting a string is short
//   EOVERFLOW  the text has more than 2,147,483,647 characters; the calls store the first `count`
//              without a NUL
// After EINVAL and ENOMEM the buffer holds what was printed before, with a NUL if there is room.
OSTREL_PLATFORM_API int _vsnwprintf(WCHAR *buffer, std::size_t count, const WCHAR *format,
                                    std::va_list args);
OSTREL_PLATFORM_API int _vsnprintf(char *buffer, std::size_t count, const char *format,
                                   std::va_list args);

// Return the length that the text would have, without a NUL. On failure return -1 and set errno as
// above. A success leaves errno unchanged.
OSTREL_PLATFORM_API int _vscwprintf(const WCHAR *format, std::va_list args);
OSTREL_PLATFORM_API int _vscprintf(const char *format, std::va_list args);

#endif

#endif  // OSTREL_PLATFORM_PRINTF_H
