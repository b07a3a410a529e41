#include "ostrel/text/token_list.h"

#include <algorithm>
#include <iterator>

#include "support/bytes.h"
#include "support/text.h"

namespace {

using Narrow = std::vector<OS::x_astring>;
using Wide = std::vector<OS::x_wstring>;
using NarrowSet = std::set<OS::x_astring, OS::XASTRICMP>;
using WideSet = std::set<OS::x_wstring, OS::XWSTRICMP>;

// What both widths give, after it has been found the same.
Narrow split(const OS::x_astring &text, const OS::x_astring &delimiters) {
    Narrow tokens = {"old"};
    Wide wide_tokens = {u"old"}, expected;
    EXPECT_TRUE(SplitStringToTokensA(&tokens, text, delimiters));
    EXPECT_TRUE(SplitStringToTokensW(&wide_tokens, OS::x_wstring(wide(text)),
                                     OS::x_wstring(wide(delimiters))));
    std::transform(tokens.begin(), tokens.end(), std::back_inserter(expected), wide);
    EXPECT_EQ(wide_tokens, expected);
    EXPECT_LE(tokens.capacity(), std::max<std::size_t>(tokens.size(), 1));  // counted before
    return tokens;
}

TEST(TokenList, SplitsByASetOfCharacters) {
    EXPECT_EQ(split(",;,", ",;"), Narrow{});
    EXPECT_EQ(split("a,b;;c", ",;"), (Narrow{"a", "b", "c"}));
    EXPECT_EQ(split("a,b;;c", ""), Narrow{"a,b;;c"});
    EXPECT_EQ(split(std::string("B,a\0c,d", 7), "\xFF,"), (Narrow{"B", "a"}));
    Wide wide;
    SplitStringToTokensW(&wide, u"a\u3000b\u2603c\u0120d \uFFFFe", u"\u3000\u2603\uFFFF");
    EXPECT_EQ(wide, (Wide{u"a", u"b", u"c\u0120d ", u"e"}));
}

// Tokens that end on either side of a block of 64, with as many delimiters as the finder takes, and
// one more.
TEST(TokenList, SplitsLongTexts) {
    Narrow expected;
    std::string text;
    for (std::size_t length = 1; length < 140; ++length) {
        expected.push_back(std::string(length, 'x'));
        text += expected.back() + std::string(1 + length % 3, ',');
    }
    for (const char *delimiters : {",", "\xE4-,", "1234567,", "12345678,"}) {
        EXPECT_EQ(split(text, delimiters), expected) << delimiters;
    }
}

TEST(TokenList, CombinesBehindWhatIsThereWithTheFirstOfAKeyInASet) {
    NarrowSet tokens = {"old"};
    WideSet wide = {u"old"};
    const std::string whole("x\0y", 3);
    OS::x_astring text(whole);
    OS::x_wstring wide_text;
    EXPECT_TRUE(SplitStringToTokensA(&tokens, "B,a,A", ","));
    EXPECT_TRUE(SplitStringToTokensW(&wide, u"B,a,A", u","));
    EXPECT_TRUE(CombineTokensToStringA(tokens, &text, "; "));
    EXPECT_TRUE(CombineTokensToStringA(Narrow{"c", whole}, &text, ";"));
    EXPECT_EQ(std::string(text.data(), text.size()), whole + "B; a; c;x;");
    EXPECT_TRUE(CombineTokensToStringW(wide, &wide_text, u";"));
    EXPECT_TRUE(CombineTokensToStringW(Wide{u"c"}, &wide_text, u", "));
    EXPECT_EQ(wide_text, u"B;a;c, ");
}

TEST(TokenList, TakesArgumentsFromItsTarget) {
    Narrow tokens = {",;", "a long text that owns memory,b;c"};
    EXPECT_TRUE(SplitStringToTokensA(&tokens, tokens[1], tokens[0]));
    EXPECT_EQ(tokens, (Narrow{"a long text that owns memory", "b", "c"}));
    WideSet wide = {u"a,b", u"x"};
    EXPECT_TRUE(SplitStringToTokensW(&wide, *wide.find(u"A,B"), u","));
    EXPECT_EQ(Wide(wide.begin(), wide.end()), (Wide{u"b", u"a"}));
    tokens = {"a", "b"};
    EXPECT_TRUE(CombineTokensToStringA(tokens, &tokens[1], tokens[1]));
    EXPECT_EQ(tokens, (Narrow{"a", "babbb"}));
}

}  // namespace
