#include <gtest/gtest.h>

#include <random>

#include "ostrel/core/x_string.h"

namespace {

using OS::x_astring;
using OS::x_wstring;

// The order of the replacements is what the members promise.
template <class String>
void replace_markup(String &text) {
    const std::pair<const char *, const char *> steps[] = {
        {"&", "&amp;"},  {"\"", "&quot;"}, {"<", "&lt;"},   {">", "&gt;"},
        {"'", "&#039;"}, {"\r", "&#x0D;"}, {"\n", "&#x0A;"}};
    for (const auto &[from, to] : steps) {
        if (sizeof(text[0]) == 1 && *from == '\'') {
            continue;
        }
        const std::string search(from);
        const std::string replacement(to);
        text.FindAndReplaceAll(String({search.begin(), search.end()}),
                               String({replacement.begin(), replacement.end()}));
    }
}

template <class String>
void agrees_with_the_steps() {
    std::mt19937 random(3);
    const std::string characters = "&\"<>'\r\nab; #xyz\0";
    for (int round = 0; round < 500; ++round) {
        String text;
        for (std::size_t i = random() % 70 + (round == 0 ? 40000 : 0); i > 0; --i) {
            text.push_back(static_cast<typename String::value_type>(
                characters[random() % (round % 2 == 0 ? 8 : characters.size())]));
        }
        String expected = text;
        replace_markup(expected);
        text.EscapeSpecialCharacters();
        ASSERT_TRUE(static_cast<typename String::std_string &>(text) ==
                    static_cast<typename String::std_string &>(expected));
    }
}

TEST(Escape, IsOneReplacementAfterTheOther) {
    agrees_with_the_steps<x_wstring>();
    agrees_with_the_steps<x_astring>();
}

TEST(Escape, PreparesMarkupAndLiterals) {
    EXPECT_EQ(x_wstring(TEXT("a&b it's")).EscapeSpecialCharacters().EscapeSpecialCharacters(),
              TEXT("a&amp;amp;b it&amp;#039;s"));
    EXPECT_EQ(x_astring("it's <\r\n>").EscapeSpecialCharacters(), "it's &lt;&#x0D;&#x0A;&gt;");
    EXPECT_EQ(x_wstring(TEXT(" \t &\u0120")).EscapeSpecialSpaceAndTab(),
              TEXT("&nbsp;&nbsp;&nbsp;&\u0120"));
    EXPECT_EQ(x_wstring(TEXT("\\\"'\n")).EscapeSpecialCharactersForCString(),
              TEXT("\\\\\\\"\\'\n"));
    EXPECT_EQ(x_astring("'\\\"").EscapeSpecialCharactersForCString(), "\\'\\\\\\\"");
    EXPECT_TRUE(x_wstring().EscapeSpecialCharacters().EscapeSpecialSpaceAndTab().empty());
}

TEST(Escape, LeavesWhatTheNarrowBoundLeaves) {
    x_astring text(std::string(6000, '&') + std::string(5000, '<'));
    text.EscapeSpecialCharacters();
    EXPECT_EQ(text.GetLength(), 4999u * 5 + 1001 + 4999 * 4 + 1);
    x_astring slashes(std::string(5001, '\\'));
    EXPECT_EQ(slashes.EscapeSpecialCharactersForCString().GetLength(), 10000u);
    EXPECT_EQ(x_wstring(std::u16string(6000, u'&')).EscapeSpecialCharacters().GetLength(), 30000u);
}

}  // namespace
