#include "ostrel/platform/file/wildcard.h"

#include <sstream>

#include "support/test.h"

namespace {

using ostrel_platform::Wildcard;

// The names that match, of a list that has each kind.
std::string matched(const std::u16string &pattern) {
    std::istringstream names(". .. a b aa ab a. .a a.b a.b.a abab");
    std::string matched;
    for (std::string name; names >> name;) {
        const bool matches = Wildcard(pattern).Matches(std::u16string(name.begin(), name.end()));
        matched += matches ? name + ' ' : "";
    }
    return matched;
}

TEST(Wildcard, MatchesNames) {
    EXPECT_EQ(matched(u"*"), ". .. a b aa ab a. .a a.b a.b.a abab ");
    EXPECT_EQ(matched(u"*.*"), matched(u"*"));
    EXPECT_EQ(matched(u"*."), ". .. a b aa ab abab ");  // without an extension
    EXPECT_EQ(matched(u"A.*"), "a a. a.b a.b.a ");
    EXPECT_EQ(matched(u"a.."), "a ");
    EXPECT_EQ(matched(u"a??"), "a aa ab a. a.b ");
    EXPECT_EQ(matched(u"a?.b"), "a.b ");  // nothing before a dot or at the end
    EXPECT_EQ(matched(u""), "");
}

TEST(Wildcard, KnowsNoCaseOfAsciiAndNoPatternTakesLong) {
    EXPECT_TRUE(Wildcard(u"*.HTm").Matches(u"x.htM"));
    EXPECT_FALSE(Wildcard(u"*\u00C4").Matches(u"\u00E4"));
    std::u16string pattern;
    while (pattern.size() < 250) {
        pattern += u"*a";
    }
    EXPECT_FALSE(Wildcard(pattern + u"?*b").Matches(std::u16string(255, u'a')));
    EXPECT_TRUE(Wildcard(pattern + u"?*b").Matches(std::u16string(254, u'a') + u'b'));
}

}  // namespace
