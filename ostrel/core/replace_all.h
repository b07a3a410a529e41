#ifndef OSTREL_CORE_REPLACE_ALL_H
#define OSTREL_CORE_REPLACE_ALL_H

// Internal. Replaces all occurrences of a text in one pass. The result is that of a search from the
// end of each replacement, but the rest of the text is not moved at each occurrence.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace OS::detail {

// Replaces the occurrences of `search` from left to right, at most `limit` of them. `search` must
// not be empty and `limit` must be at least 1. The views may lie inside `text`. Returns the number
// of replacements. Throws std::bad_alloc or std::length_error and leaves `text` unchanged then.
std::uint64_t replace_all(std::string *text, std::string_view search, std::string_view replacement,
                          std::uint64_t limit);
std::uint64_t replace_all(std::basic_string<WCHAR> *text, std::basic_string_view<WCHAR> search,
                          std::basic_string_view<WCHAR> replacement, std::uint64_t limit);

}  // namespace OS::detail

#endif  // OSTREL_CORE_REPLACE_ALL_H
