#include "ostrel/platform/wildcard.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using platform::Wildcard;

// All texts of up to `most` of these characters.
std::vector<std::u16string> all_texts(std::u16string_view characters, std::size_t most) {
    std::vector<std::u16string> texts = {u""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        for (const WCHAR c : texts[i].size() < most ? characters : std::u16string_view()) {
            texts.push_back(texts[i] + c);
        }
    }
    return texts;
}

bool slow_match(std::u16string_view pattern, std::u16string_view name) {
    if (pattern.empty()) {
        return name.empty();
    }
    const std::u16string_view rest = pattern.substr(1);
    const bool mayBeNone =
        pattern[0] == u'*' || (pattern[0] == u'?' && (name.empty() || name[0] == u'.'));
    if (mayBeNone && slow_match(rest, name)) {
        return true;
    }
    const bool wild = pattern[0] == u'*' || pattern[0] == u'?';
    return !name.empty() && (wild || pattern[0] == name[0]) &&
           slow_match(pattern[0] == u'*' ? pattern : rest, name.substr(1));
}

TEST(Wildcard, AgreesWithASlowMatcherOnAllShortTexts) {
    const auto names = all_texts(u"ab.", 4);
    for (const std::u16string &pattern : all_texts(u"a.*?", 5)) {
        std::u16string_view meant = pattern;
        while (meant.ends_with(u'.')) {
            meant.remove_suffix(1);
        }
        const Wildcard wildcard(pattern);
        for (const std::u16string &name : names) {
            bool expected = slow_match(meant, name);
            if (pattern == u"*.") {
                expected = name == u"." || name == u".." || name.find(u'.') == name.npos;
            } else if (meant.ends_with(u".*")) {
                expected = expected || slow_match(meant.substr(0, meant.size() - 2), name);
            }
            ASSERT_EQ(wildcard.Matches(name), expected)
                << testing::PrintToString(pattern) << " on " << testing::PrintToString(name);
        }
    }
}

TEST(Wildcard, KnowsNoCaseOfAsciiAndNoPatternTakesLong) {
    EXPECT_TRUE(Wildcard(u"*.HTm").Matches(u"x.htM"));
    EXPECT_FALSE(Wildcard(u"*\u00C4").Matches(u"\u00E4"));
    std::u16string pattern;
    for (int i = 0; i < 125; ++i) {
        pattern += u"*a";
    }
    const Wildcard wildcard(pattern + u"?*b");
    EXPECT_FALSE(wildcard.Matches(std::u16string(255, u'a')));
    EXPECT_TRUE(wildcard.Matches(std::u16string(254, u'a') + u'b'));
}

}  // namespace
