#ifndef OSTREL_CORE_FORMAT_ESTIMATE_H
#define OSTREL_CORE_FORMAT_ESTIMATE_H

// Internal. The estimating pass of Format: walks a format once, reads the values as it goes, and
// adds up a length that the text, as a rule, does not exceed.

#include <cstdarg>
#include <cstdint>

#include "ostrel/platform/types.h"

namespace OS::detail {

struct FormatEstimate {
    // Characters, without the NUL. A character of plain text counts with the whole rest of the
    // format, so plain text counts about half the square of its length. The text can be longer by
    // the sign, the point and the exponent of a number whose precision alone makes its item: %+.40d
    // counts 40. Whoever prints must bound what is printed.
    std::uint64_t total = 0;

    // False when the format holds what the pass does not measure: a conversion that is none of
    // s S c C d i o u x X p e g G f n, or a negative *. The pass ends there, since it can't tell
    // which value belongs to what follows, and `total` holds the part in front.
    bool complete = true;
};

FormatEstimate estimate_format(const WCHAR *format, std::va_list args);
FormatEstimate estimate_format(const char *format, std::va_list args);

}  // namespace OS::detail

#endif  // OSTREL_CORE_FORMAT_ESTIMATE_H
