#include "ostrel/core/replace_all.h"

#include <gtest/gtest.h>

#include <random>

namespace {

// The rule itself: search from the end of the last replacement, one at a time.
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

template <class String>
void compare_on_random_text() {
    std::mt19937 random(1);
    const auto text_of = [&](std::size_t length, std::size_t letters) {
        String text(length, 0);
        for (auto &c : text) {
            // In 16 bits, there are units that share a byte.
            const std::size_t letter = ('a' + random() % letters) * (random() % 9 == 0 ? 0x101 : 1);
            c = static_cast<typename String::value_type>(letter);
        }
        return text;
    };
    for (int round = 0; round < 6000; ++round) {
        const std::size_t letters = 1 + random() % 3;
        const std::size_t longest = round % 20 == 0 ? 6000 : 200;
        String expected = text_of(random() % longest, letters), actual = expected;
        const String search = text_of(1 + random() % (random() % 4 == 0 ? 40 : 4), letters);
        const String replacement = text_of(random() % 30, 4);
        const std::uint64_t limit = random() % 4 == 0 ? 1 + random() % 5 : ~std::uint64_t{0};
        const std::uint64_t hits = step_by_step(&expected, search, replacement, limit);
        ASSERT_EQ(OS::detail::replace_all(&actual, search, replacement, limit), hits);
        ASSERT_EQ(actual, expected);
    }
}

TEST(ReplaceAll, DoesWhatTheStepByStepRuleDoes) {
    compare_on_random_text<std::string>();
    compare_on_random_text<std::u16string>();
}

// Text that resembles what is searched all over must not be compared again and again.
TEST(ReplaceAll, TakesTextThatNearlyMatches) {
    const std::string search = std::string(60, 'a') + 'b' + std::string(60, 'a');
    for (const std::string replacement :
         {"", "c",
          "longer than what it stands for, which is 121 characters, "
          "as this text is with all that stands behind it, up to "
          "its very end, here."}) {
        std::string expected;
        for (std::size_t i = 0; i < 400; ++i) {
            expected += std::string(55 + i % 13, 'a') + (i % 5 == 0 ? "bb" : "b");
        }
        std::string actual = expected;
        const std::uint64_t hits = step_by_step(&expected, search, replacement, 99);
        EXPECT_GT(hits, 20u);
        EXPECT_EQ(OS::detail::replace_all(&actual, search, replacement, 99), hits);
        EXPECT_EQ(actual, expected);
    }
}

}  // namespace
