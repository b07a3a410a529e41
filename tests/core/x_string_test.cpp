#include "ostrel/core/x_string.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "support/text.h"

using OS::x_astring;
using OS::x_wstring;

namespace {

static_assert(sizeof(x_wstring) == sizeof(std::u16string) && !std::is_polymorphic_v<x_wstring>);
static_assert(sizeof(x_astring) == sizeof(std::string) && !std::is_polymorphic_v<x_astring>);
static_assert(x_wstring::npos == 0xFFFFFFFFFFFFFFFF && x_astring::npos == 0xFFFFFFFFFFFFFFFF);
static_assert(std::is_nothrow_move_constructible_v<x_wstring>);
static_assert(
    std::is_same_v<decltype(std::declval<x_wstring &>() = x_wstring()), const x_wstring &>);
static_assert(std::is_same_v<decltype(x_wstring() + x_wstring()), x_wstring>);
static_assert(std::is_same_v<decltype("a" + x_astring() + 'c' + std::string()), x_astring>);
// Text of the other width does not slip in.
static_assert(!std::is_constructible_v<x_wstring, const char *>);
static_assert(!std::is_convertible_v<x_astring, x_wstring>);

// The literals of the twins, so that one test serves both.
template <class String>
struct Literals;
template <>
struct Literals<x_wstring> {
    using Char = WCHAR;
    static std::u16string Full(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }
};
template <>
struct Literals<x_astring> {
    using Char = char;
    static std::string Full(std::string_view ascii) { return std::string(ascii); }
};

template <class String>
class XString : public testing::Test {
protected:
    using Char = typename Literals<String>::Char;
    static String T(std::string_view ascii) { return String(Literals<String>::Full(ascii)); }
};

using Twins = testing::Types<x_wstring, x_astring>;
TYPED_TEST_SUITE(XString, Twins);

TYPED_TEST(XString, TakesNullForEmptyText) {
    using CharType = typename TestFixture::Char;
    const CharType *const null = nullptr;
    TypeParam text(null);
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_EQ(text.c_str()[0], CharType());
    text = this->T("abc");
    text = null;
    EXPECT_EQ(text.GetLength(), 0u);

    // Null is no text: it equals nothing, the empty string neither.
    EXPECT_FALSE(text == null);
    EXPECT_FALSE(null == text);
    EXPECT_TRUE(text != null);
    EXPECT_TRUE(null != text);
    EXPECT_FALSE(text == nullptr);
    EXPECT_EQ(text.CompareNoCase(null), -1);

    text = this->T("abc");
    EXPECT_EQ(text + null, text);
    EXPECT_EQ(null + text, text);
    EXPECT_EQ(text += null, this->T("abc"));
}

TYPED_TEST(XString, ComparesTerminatedTextAsUnsignedValues) {
    using CharType = typename TestFixture::Char;
    const TypeParam text = this->T({"ab\0x", 4});
    TypeParam other = this->T({"ab\0y", 4});
    const std::basic_string<CharType> standard = other;
    const CharType *const pointer = other;
    EXPECT_TRUE(text == other && other == text && text == pointer && pointer == text);
    EXPECT_TRUE(text == standard && standard == text);
    EXPECT_FALSE(text != other || text != pointer || pointer != text || text != standard);
    EXPECT_FALSE(text < other || other < text || text > pointer || pointer < text);
    EXPECT_TRUE(text <= other && text >= standard);
    EXPECT_EQ(std::basic_string_view<CharType>(static_cast<std::basic_string_view<CharType>>(
                  text.operator std::basic_string_view<CharType>())),
              this->T("ab").c_str());

    // 0x80 lies behind 'z', whatever the sign of a character type is.
    TypeParam high;
    high += static_cast<CharType>(0x80);
    EXPECT_TRUE(this->T("z") < high && high > this->T("z"));
    EXPECT_TRUE(this->T("a") < this->T("ab") && this->T("B") < this->T("a"));
}

TYPED_TEST(XString, JoinsTerminatedText) {
    using CharType = typename TestFixture::Char;
    const TypeParam cut = this->T({"ab\0x", 4});
    TypeParam text = this->T("1");
    text += cut;
    text.append(cut);
    text += static_cast<CharType>('c');
    EXPECT_EQ(whole(text), whole(this->T("1ababc")));
    // The left side of + keeps its full length, the right side ends at its NUL.
    EXPECT_EQ(whole(cut + cut), whole(this->T({"ab\0xab", 6})));
    EXPECT_EQ(whole(TypeParam(cut) + cut.c_str() + static_cast<CharType>('!')),
              whole(this->T({"ab\0xab!", 7})));
    EXPECT_EQ(whole(static_cast<CharType>('<') + cut), whole(this->T("<ab")));
    EXPECT_EQ(whole(std::basic_string<CharType>(cut) + cut), whole(this->T({"ab\0xab", 6})));
}

TYPED_TEST(XString, TakesArgumentsOutOfItself) {
    const TypeParam start = this->T("abcdefghijklmnopqrstuvwxyz");  // beyond the inner buffer
    TypeParam text = start;
    text = text.c_str() + 20;
    EXPECT_EQ(text, this->T("uvwxyz"));
    text += text;
    text += text.c_str() + 10;
    EXPECT_EQ(text, this->T("uvwxyzuvwxyzyz"));
    text.replace(1, 12, text);
    EXPECT_EQ(text, this->T("uuvwxyzuvwxyzyzz"));
    text = this->T("ab");
    EXPECT_EQ(text.FindAndReplace(text, text + text), 4u);
    text = this->T("aXa");
    EXPECT_TRUE(text.FindAndReplaceAll(this->T("a"), text));
    EXPECT_EQ(text, this->T("aXaXaXa"));
    text.FindAndReplaceAll(text, this->T("b"));
    EXPECT_EQ(text, this->T("b"));
    text = std::move(text += this->T("c"));
    EXPECT_EQ(text, this->T("bc"));
}

TYPED_TEST(XString, CutsByPositionAndCount) {
    TypeParam text = this->T("abcdef");
    EXPECT_EQ(text.substr(2, 100), this->T("cdef"));
    EXPECT_EQ(text.substr(6, 1), this->T(""));
    EXPECT_THROW(text.substr(7, 1), std::out_of_range);
    EXPECT_EQ(text.replace(4, 100, this->T("X")), this->T("abcdX"));
    EXPECT_THROW(text.replace(6, 0, this->T("X")), std::out_of_range);
    EXPECT_EQ(text[-1 + 1L], text[0u]);
}

TYPED_TEST(XString, FindsAndReplacesFromAPosition) {
    TypeParam text = this->T("abcb");
    EXPECT_EQ(text.FindAndReplace(this->T("b"), this->T("xx"), 0), 3u);
    EXPECT_EQ(text, this->T("axxcb"));
    EXPECT_EQ(text.FindAndReplace(this->T("b"), this->T("xx"), 3), 6u);
    EXPECT_EQ(text, this->T("axxcxx"));
    EXPECT_EQ(text.FindAndReplace(this->T("b"), this->T("xx"), 6), TypeParam::npos);
    EXPECT_EQ(text.FindAndReplace(this->T("x"), this->T(""), 100), TypeParam::npos);
    EXPECT_EQ(text, this->T("axxcxx"));
}

TYPED_TEST(XString, UpperCaseAndTrimEndAtANul) {
    struct Case {
        std::string_view text, upper, left, right;
    };
    const Case cases[] = {
        {"", "", "", ""},
        {" \t\n\v\f\r", " \t\n\v\f\r", "", ""},
        {"  a b  ", "  A B  ", "a b  ", "  a b"},
        {"aZ_\x80z", "AZ_\x80Z", "aZ_\x80z", "aZ_\x80z"},
        // What lies behind a NUL stays unless the trim has changed the text; on the right it goes.
        {{"a\0b", 3}, {"A\0b", 3}, {"a\0b", 3}, "a"},
        {{" a\0b ", 5}, {" A\0b ", 5}, "a", " a"},
        {{"a \0", 3}, {"A \0", 3}, {"a \0", 3}, "a "},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.text));
        TypeParam text = this->T(c.text);
        if (std::is_same_v<TypeParam, x_astring> || c.text.find('\x80') == c.text.npos) {
            text.ToUpper();
            EXPECT_EQ(whole(text), whole(this->T(c.upper)));
            text = this->T(c.text);
            text.TrimLeft();
            EXPECT_EQ(whole(text), whole(this->T(c.left)));
            text = this->T(c.text);
            text.TrimRight();
            EXPECT_EQ(whole(text), whole(this->T(c.right)));
        }
    }
}

TYPED_TEST(XString, ComparesWithoutCaseByLowerCase) {
    const TypeParam text = this->T("John_Henry");
    EXPECT_EQ(text.CompareNoCase(this->T("JOHN_HENRY")), 0);
    EXPECT_LT(text.CompareNoCase(this->T("johnston")), 0);  // '_' lies in front of 's'
    EXPECT_GT(this->T("b").CompareNoCase(this->T("A")), 0);
}

TEST(XStringTwins, DifferWhereTheyShould) {
    // Beyond ASCII nothing folds, and only wide text knows more white space.
    x_wstring wide_text(TEXT("\u3000\u00A0\u00E4\u2003\u0085"));
    wide_text.ToUpper();
    wide_text.TrimLeft();
    wide_text.TrimRight();
    EXPECT_EQ(wide_text, TEXT("\u00E4"));
    x_wstring joiner(TEXT("\uFEFFa\u200B"));  // neither is white space
    joiner.TrimLeft();
    joiner.TrimRight();
    EXPECT_EQ(joiner.GetLength(), 3u);
    x_astring narrow_text("\xA0 a \xA0");
    narrow_text.TrimLeft();
    narrow_text.TrimRight();
    EXPECT_EQ(narrow_text, "\xA0 a \xA0");
    EXPECT_NE(x_wstring(TEXT("\u00E4")).CompareNoCase(TEXT("\u00C4")), 0);

    // The narrow twin stops after 4999 replacements.
    for (const int count : {4998, 4999, 5000, 6000}) {
        for (const char *replacement : {"b", "", "aab"}) {
            x_astring narrow_many(std::string(static_cast<std::size_t>(count), 'a'));
            x_wstring wide_many(std::u16string(static_cast<std::size_t>(count), u'a'));
            EXPECT_EQ(narrow_many.FindAndReplaceAll("a", replacement), count < 4999);
            EXPECT_TRUE(wide_many.FindAndReplaceAll(TEXT("a"), wide(TEXT("%S"), replacement)));
            std::string expected;
            for (int i = 0; i < count; ++i) {
                expected += i < 4999 ? replacement : "a";
            }
            EXPECT_EQ(whole(narrow_many), expected);
            EXPECT_EQ(wide_many.GetLength(),
                      std::string(replacement).size() * static_cast<std::size_t>(count));
        }
    }
    // An empty search text: both end, each in its own way.
    x_astring narrow_empty("z");
    EXPECT_FALSE(narrow_empty.FindAndReplaceAll("", "xy"));
    EXPECT_EQ(narrow_empty.GetLength(), 4999u * 2 + 1);
    EXPECT_EQ(narrow_empty.substr(4999 * 2 - 2), "xyz");
    x_wstring wide_empty(TEXT("z"));
    EXPECT_TRUE(wide_empty.FindAndReplaceAll(TEXT(""), TEXT("xy")));
    EXPECT_EQ(wide_empty, TEXT("z"));
}

TEST(XStringTwins, OrderSetsFromZToA) {
    std::set<x_wstring, OS::XWSTRICMP> wide_set;
    std::set<x_astring, OS::XASTRICMP> narrow_set;
    for (const char *text : {"b", "A", "c", "a"}) {
        narrow_set.insert(text);
        wide_set.insert(wide(TEXT("%S"), text));
    }
    EXPECT_EQ((std::vector<x_astring>{"c", "b", "A"}),
              std::vector<x_astring>(narrow_set.begin(), narrow_set.end()));
    EXPECT_EQ((std::vector<x_wstring>{TEXT("c"), TEXT("b"), TEXT("A")}),
              std::vector<x_wstring>(wide_set.begin(), wide_set.end()));
}

TEST(XStringTwins, PrintTerminatedTextToStreams) {
    std::ostringstream out;
    out << x_astring(std::string("ab\0c", 4)) << x_astring("d");
    EXPECT_EQ(out.str(), "abd");
}

}  // namespace
