#include "ostrel/core/replace_all.h"

#include "support/step_by_step.h"
#include "support/test.h"

namespace {

template <class String>
void compare(const std::string &ascii, const std::string &search, const std::string &replacement) {
    const String sought(search.begin(), search.end()),
        other(replacement.begin(), replacement.end());
    for (const std::uint64_t limit : {~std::uint64_t{0}, std::uint64_t{20}}) {
        String expected(ascii.begin(), ascii.end()), actual = expected;
        const std::uint64_t hits = step_by_step(&expected, sought, other, limit);
        EXPECT_GT(hits, 2u);
        EXPECT_EQ(OS::detail::replace_all(&actual, sought, other, limit), hits) << search;
        EXPECT_TRUE(actual == expected) << search << " by " << replacement;
    }
}

// Much of the text resembles what is searched, which must not be compared again and again.
TEST(ReplaceAll, DoesWhatTheStepByStepRuleDoes) {
    const std::string a60(60, 'a');
    std::string text;
    for (std::size_t i = 0; i < 400; ++i) {
        text += std::string(i % 6 < 3 ? 55 + i % 13 : i % 5, 'a') + (i % 7 == 0 ? "bb" : "b");
    }
    const std::string searches[] = {"a", "aa", "aba", "bab", "aabaaaa", a60 + 'b' + a60};
    const std::string replacements[] = {"", "c", "longer", std::string(1100, 'l')};
    for (const std::string &search : searches) {
        for (const std::string &replacement : replacements) {
            compare<std::string>(text, search, replacement);
            compare<std::u16string>(text, search, replacement);
        }
    }
}

}  // namespace
