#ifndef OSTREL_CORE_REPLACE_ALL_H
#define OSTREL_CORE_REPLACE_ALL_H

// Internal. Replaces every occurrence of a text in another in one pass: as many searches from the
// end of the last hit, without moving the rest of the text at each of them.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace OS::detail {

// Replaces the first `limit` (at least 1) occurrences at most of `search`, which is not empty. The
// views may lie inside `text`. Result: the number replaced. What it throws leaves `text` as it was.
std::uint64_t replace_all(std::string *text, std::string_view search, std::string_view replacement,
                          std::uint64_t limit);
std::uint64_t replace_all(std::basic_string<WCHAR> *text, std::basic_string_view<WCHAR> search,
                          std::basic_string_view<WCHAR> replacement, std::uint64_t limit);

}  // namespace OS::detail

#endif  // OSTREL_CORE_REPLACE_ALL_H
