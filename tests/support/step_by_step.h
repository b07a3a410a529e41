#ifndef TESTS_SUPPORT_STEP_BY_STEP_H
#define TESTS_SUPPORT_STEP_BY_STEP_H

#include <cstdint>

// The rule of replacing itself: search from the end of the last replacement, one at a time.
template <class String>
std::uint64_t step_by_step(String *text, const String &search, const String &replacement,
                           std::uint64_t limit) {
    std::uint64_t count = 0;
    for (std::size_t at = 0; count < limit && (at = text->find(search, at)) != text->npos;
         ++count) {
        text->replace(at, search.size(), replacement);
        at += replacement.size();
    }
    return count;
}

#endif  // TESTS_SUPPORT_STEP_BY_STEP_H
