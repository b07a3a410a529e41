#include "ostrel/core/replace_all.h"

#include <gtest/gtest.h>

#include <random>

namespace {

// The rule itself: search from the end of the last replacement, one at a time.
template <class Char>
std::uint64_t step_by_step(std::basic_string<Char> *text, std::basic_string_view<Char> search,
                           std::basic_string_view<Char> replacement, std::uint64_t limit) {
    std::uint64_t count = 0;
    for (std::size_t at = 0; count < limit; ++count) {
        at = text->find(search, at);
        if (at == text->npos) {
            break;
        }
        text->replace(at, search.size(), replacement);
        at += replacement.size();
    }
    return count;
}

template <class Char>
void compare_on_random_text(unsigned seed) {
    std::mt19937 random(seed);
    const auto number = [&random](std::size_t below) { return random() % below; };
    const auto text_of = [&](std::size_t length, std::size_t letters) {
        std::basic_string<Char> text;
        for (std::size_t i = 0; i < length; ++i) {
            text.push_back(static_cast<Char>('a' + number(letters)));
        }
        return text;
    };
    for (int round = 0; round < 3000; ++round) {
        const std::size_t letters = 1 + number(3);
        const std::basic_string<Char> text = text_of(number(200), letters);
        const std::basic_string<Char> search =
            text_of(1 + number(number(4) == 0 ? 40 : 4), letters);
        const std::basic_string<Char> replacement = text_of(number(30), 4);
        const std::uint64_t limit = number(4) == 0 ? 1 + number(5) : ~std::uint64_t{0};
        std::basic_string<Char> expected = text;
        std::basic_string<Char> actual = text;
        const std::uint64_t hits = step_by_step<Char>(&expected, search, replacement, limit);
        ASSERT_EQ(OS::detail::replace_all(&actual, search, replacement, limit), hits);
        ASSERT_EQ(actual, expected);
    }
}

TEST(ReplaceAll, DoesWhatTheStepByStepRuleDoes) {
    compare_on_random_text<char>(1);
    compare_on_random_text<WCHAR>(2);
}

TEST(ReplaceAll, TellsUnitsApartThatShareAByte) {
    std::u16string text = u"\u0161a\u6100\u0061\u6161\u0061a";
    EXPECT_EQ(OS::detail::replace_all(&text, u"aa", u"-", 9), 1u);
    EXPECT_EQ(text, u"\u0161a\u6100\u0061\u6161-");
}

}  // namespace
