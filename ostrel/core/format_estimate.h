#ifndef OSTREL_CORE_FORMAT_ESTIMATE_H
#define OSTREL_CORE_FORMAT_ESTIMATE_H

// Internal. The estimating pass of Format: walks a format once, reads the values as it goes, and
// adds up a length that the text, as a rule, does not exceed.

#include <cstdarg>
#include <cstdint>

#include "ostrel/platform/types.h"

namespace OS::detail {

// Both lengths are in characters without the NUL. Neither is a bound: a number whose precision
// alone makes its item can be longer by its sign, point and exponent (%+.40d counts 40), so whoever
// prints must bound what is printed.
struct FormatEstimate {
    // The length by the rule of the pass: a character of plain text counts with the whole rest of
    // the format, so plain text counts about half the square of its length.
    std::uint64_t total = 0;

    // The same with plain text counted once: what to allocate.
    std::uint64_t expected = 0;

    // False when the format holds what the pass does not measure: a conversion that is none of
    // s S c C d i o u x X p e g G f n, or a negative *. The pass ends there, since it cannot tell
    // which value belongs to what follows; the lengths then cover the part in front.
    bool complete = true;

    // Whether a character conversion may print a NUL, as `%c` does of 0.
    bool may_hold_nul = false;
};

// Reads the values of `args`, which is left behind the last one.
FormatEstimate estimate_format(const WCHAR *format, std::va_list *args);
FormatEstimate estimate_format(const char *format, std::va_list *args);

}  // namespace OS::detail

#endif  // OSTREL_CORE_FORMAT_ESTIMATE_H
