#ifndef OSTREL_CORE_FORMAT_H
#define OSTREL_CORE_FORMAT_H

// Internal. What stands behind the Format members of the strings.

#include <cstdarg>
#include <string>

#include "ostrel/platform/types.h"

namespace OS::detail {

// Replaces `out` by the terminated text that the format makes. The values may point into `out`.
// Both lists hold the same values: one is walked through, one is printed from.
void format_text(std::basic_string<WCHAR> *out, const WCHAR *format, std::va_list *to_measure,
                 std::va_list *to_print);
void format_text(std::string *out, const char *format, std::va_list *to_measure,
                 std::va_list *to_print);

}  // namespace OS::detail

#endif  // OSTREL_CORE_FORMAT_H
