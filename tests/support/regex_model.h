#ifndef OSTREL_TESTS_SUPPORT_REGEX_MODEL_H
#define OSTREL_TESTS_SUPPORT_REGEX_MODEL_H

// A second reading of the pattern language, as slow and plain as can be: functions that call each
// other, without a program. For short patterns and texts.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace test {

// The start and end of a match or a group.
using Span = std::pair<std::size_t, std::size_t>;
inline constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

// The spans of a match and its groups as text: "2-5 2-3 -".
std::string describe(const std::vector<Span> &spans);

// What `pattern`, which is one that compiles and has no abbreviations, finds in `text`: a
// description, "no", or nothing at all when that takes more than `steps`. Case counts.
std::string model_match(const std::u16string &pattern, const std::u16string &text, int steps);

// The parts of `text` between the separators.
inline std::vector<std::u16string> split(const std::u16string &text, char16_t separator = u' ') {
    std::vector<std::u16string> parts(1);
    for (const char16_t c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

}  // namespace test

#endif  // OSTREL_TESTS_SUPPORT_REGEX_MODEL_H
