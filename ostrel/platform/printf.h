#ifndef OSTREL_PLATFORM_PRINTF_H
#define OSTREL_PLATFORM_PRINTF_H

// The runtime's bounded formatted output, wide and narrow, on 16-bit and 8-bit text.
//
// The conversions are the platform's (its Universal C Runtime), not ISO C's; the host's printf is
// not involved. What differs from ISO C:
//
//   %s %c          a string, a character of the function's own width
//   %S %C          of the other width
//   %hs %hc, %ls %lc (also with S and C, and w for l)
//                  always narrow, always wide
//   %d %i %o %u %x %X
//                  32 bits, with l too; 64 bits with ll, I64, j, I, z and t; 32 with I32, 16 with
//                  h, 8 with hh
//   %p             16 upper-case hexadecimal digits, no prefix, # or not
//   %e %f %g %a (and capitals)
//                  a double; L changes nothing (a long double is a double on the platform). The
//                  digits are exact to any precision, a tie is rounded to even. %e has two exponent
//                  digits at least, %a 13 digits by default (0x1.8000000000000p+0).
//   %F             %f in capitals; before one of the conversions s S c C d i o u x X p e g G f n it
//                  is the far modifier of older runtimes instead, which is skipped, as is N
//   %n             takes its pointer and stores nothing
//
// What is no finite number prints as "inf", "nan", "nan(snan)" for a signalling NaN, or, behind the
// sign, "nan(ind)" for the negative NaN that an invalid operation gives; padded with blanks always.
//
// The flags are - + blank 0 #, width and precision are numbers or *. A negative * width means
// left-justified, a negative * precision none. 0 pads strings and characters too. Of modifiers that
// contradict each other the last counts.
//
// A null string prints as "(null)". Strings of the other width are converted in the system code
// page (GetACP); what has no counterpart there is replaced, never refused. The precision of a
// string counts characters or bytes of the argument, which need not be terminated within it; when
// the string is converted, a character that the precision cuts is left out. The width counts
// characters of the result. %c of a NUL writes a NUL and counts it.
//
// Threads: any; the calls keep nothing. A call that succeeds leaves errno as it was.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <cstdio>
#include <cwchar>

#else

#include <cstdarg>
#include <cstddef>

// Prints into `buffer`, which holds `count` characters (WCHAR or bytes).
//
// Result: the length of the text. When it is less than `count`, a NUL follows the text; when it
// equals `count`, the text fills the buffer and no NUL is written. When the text is longer, the
// first `count` characters are stored without a NUL and the result is -1, also for a `count` of 0.
// An unknown conversion (%% with options between is one), a format that ends within one, a null
// `format` or a null `buffer` with a `count` other than 0 give -1 with errno EINVAL, memory that is
// missing for the conversion of a string gives -1 with ENOMEM; what was printed before stays in the
// buffer, with a NUL behind it if there is room. Never writes past `count`.
OSTREL_PLATFORM_API int _vsnwprintf(WCHAR *buffer, std::size_t count, const WCHAR *format,
                                    std::va_list args);
OSTREL_PLATFORM_API int _vsnprintf(char *buffer, std::size_t count, const char *format,
                                   std::va_list args);

// The length that the text would have, without a NUL, or -1 as above. A text of more than
// 2,147,483,647 characters gives -1 with errno EOVERFLOW, here and above.
OSTREL_PLATFORM_API int _vscwprintf(const WCHAR *format, std::va_list args);
OSTREL_PLATFORM_API int _vscprintf(const char *format, std::va_list args);

#endif

#endif  // OSTREL_PLATFORM_PRINTF_H
