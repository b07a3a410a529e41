#include "ostrel/core/x_string.h"

#include <sstream>

#include "support/text.h"

using OS::x_astring;
using OS::x_wstring;
using namespace std::literals;

namespace {

static_assert(sizeof(x_wstring) == sizeof(std::u16string) &&
              sizeof(x_astring) == sizeof(std::string));
// Text of the other width does not slip in.
static_assert(!std::is_constructible_v<x_wstring, const char *>);
static_assert(!std::is_convertible_v<x_astring, x_wstring>);

template <class String>
class XString : public testing::Test {
protected:
    using Char = typename String::value_type;
    using Standard = typename String::std_string;
    static String T(std::string_view ascii) { return Standard(ascii.begin(), ascii.end()); }
};

using Twins = testing::Types<x_wstring, x_astring>;
TYPED_TEST_SUITE(XString, Twins);

TYPED_TEST(XString, TakesNullForEmptyText) {
    const typename TestFixture::Char *const null = nullptr;
    TypeParam text = this->T("abc");
    EXPECT_EQ(null + text + null, text);
    EXPECT_EQ(text += null, this->T("abc"));
    text = null;
    EXPECT_TRUE(text.IsEmpty() && TypeParam(null).IsEmpty() && text.c_str()[0] == 0);
    // Null is no text: it equals nothing, the empty string neither.
    EXPECT_TRUE(text != null && null != text && !(text == null || null == text || text == nullptr));
    EXPECT_EQ(text.CompareNoCase(null), -1);
}

TYPED_TEST(XString, ComparesTerminatedTextAsUnsignedValues) {
    const TypeParam text = this->T("ab\0x"sv), other = this->T("ab\0y"sv);
    const typename TestFixture::Standard standard = other;
    const auto *const pointer = other.c_str();
    EXPECT_TRUE(text == other && text == pointer && pointer == text && text == standard &&
                standard == text && text <= other && text >= standard);
    EXPECT_FALSE(text != other || text < other || other < text || text > pointer);
    // 0x80 lies behind 'z', whatever the sign of a character type is.
    const TypeParam high = this->T("") + static_cast<typename TestFixture::Char>(0x80);
    EXPECT_TRUE(this->T("z") < high && this->T("a") < this->T("ab"));
}

TYPED_TEST(XString, JoinsTerminatedText) {
    const typename TestFixture::Char mark = '!';
    const TypeParam cut = this->T("ab\0x"sv);
    TypeParam text = mark + cut;
    text += cut;
    text.append(cut) += mark;
    EXPECT_EQ(whole(text), whole(this->T("!ababab!")));
    // The left side of + keeps its full length, the right side ends at its NUL.
    EXPECT_EQ(whole(typename TestFixture::Standard(cut) + cut), whole(this->T("ab\0xab"sv)));
    EXPECT_EQ(whole(TypeParam(cut) + cut.c_str() + mark), whole(this->T("ab\0xab!"sv)));
}

template <class Result, class... Values>
constexpr bool all_give = (std::is_same_v<Result, Values> && ...);

TYPED_TEST(XString, TakesAnIntegerBesideItForAnOffset) {
    using Unit = typename TestFixture::Char;
    const TypeParam fixed = this->T("abcdef");
    TypeParam text = fixed;
    const Unit mark = '!';
    const int n = 3;
    enum { kFour = 4 };
    static_assert(
        all_give<const Unit *, decltype(text + 3), decltype(text + n), decltype(fixed + n),
                 decltype(fixed + kFour), decltype(4 + fixed), decltype(text + true),
                 decltype(fixed + (fixed.size() - 4)), decltype(text + text + n),
                 decltype((text.size() - 4) + text), decltype(text + NULL)>);
    static_assert(all_give<TypeParam, decltype(text + mark), decltype(mark + fixed),
                           decltype(fixed + text[0]), decltype(TypeParam() + fixed[n]),
                           decltype(text + nullptr), decltype(nullptr + fixed)>);
    const Unit *const start = text.c_str();
    const std::pair<const Unit *, std::ptrdiff_t> offsets[] = {
        {text + n, 3},           {4 + text, 4},     {text + (text.size() - 4), 2},
        {text + (3 + n - 6), 0}, {text + kFour, 4}, {(text.size() - 1) + text, 5},
        {text + 0, 0},           {NULL + text, 0}};
    for (const auto &[pointer, offset] : offsets) {
        EXPECT_EQ(pointer - start, offset);
    }
}

TYPED_TEST(XString, FindsItsOwnKindAtItsEnds) {
    const TypeParam text = this->T("ab\0cd"sv);
    const std::tuple<std::string_view, bool, bool> cases[] = {
        {"", true, true},      {"ab\0"sv, true, false}, {"ab\0c"sv, true, false},
        {"cd", false, true},   {"\0cd"sv, false, true}, {"ab\0cd"sv, true, true},
        {"abc", false, false}, {"bcd", false, false},   {"ab\0cde"sv, false, false}};
    for (const auto &[part, begins, ends] : cases) {
        EXPECT_EQ(text.starts_with(this->T(part)), begins) << part;
        EXPECT_EQ(text.ends_with(this->T(part)), ends) << part;
    }
    const typename TestFixture::Standard standard = this->T("cd");
    EXPECT_TRUE(text.ends_with(standard) && text.ends_with(standard.c_str()) &&
                text.ends_with(standard[1]) && text.starts_with(text.c_str()));
}

TYPED_TEST(XString, TakesArgumentsOutOfItself) {
    TypeParam text = this->T("abcdefghijklmnopqrstuvwxyz");  // beyond the inner buffer
    text = text.c_str() + 20;
    text += text;
    text += text.c_str() + 10;
    EXPECT_EQ(text, this->T("uvwxyzuvwxyzyz"));
    text.replace(1, 12, text);
    EXPECT_EQ(text, this->T("uuvwxyzuvwxyzyzz"));
    text = this->T("ab");
    EXPECT_EQ(text.FindAndReplace(this->T("b"), text), 3u);
    text.FindAndReplaceAll(this->T("b"), text);
    EXPECT_EQ(text, this->T("aaaab"));
    text.FindAndReplaceAll(text, this->T("b"));
    text = std::move(text += this->T("c"));
    EXPECT_EQ(text, this->T("bc"));
}

TYPED_TEST(XString, CutsFindsAndReplacesByPosition) {
    TypeParam text = this->T("abcdef");
    EXPECT_EQ(text.substr(2, 100), this->T("cdef"));
    EXPECT_THROW(text.substr(7, 1), std::out_of_range);
    EXPECT_EQ(text.replace(4, 100, this->T("X\0Y"sv)).GetLength(), 7u);

    text = this->T("abcb");
    const TypeParam search = this->T("b"), replacement = this->T("xx");
    EXPECT_EQ(text.FindAndReplace(search, replacement), 3u);
    EXPECT_EQ(text.FindAndReplace(search, replacement, 3), 6u);
    EXPECT_EQ(text, this->T("axxcxx"));
    EXPECT_EQ(text.FindAndReplace(this->T("x"), replacement, 100), TypeParam::npos);
    EXPECT_EQ(text.FindAndReplace(this->T(""), this->T("e"), 1), 2u);
    // By the full length, NULs too.
    text = this->T("a\0b\0c"sv);
    EXPECT_TRUE(text.FindAndReplaceAll(this->T("\0b"sv), this->T("x\0y"sv)));
    EXPECT_EQ(whole(text), whole(this->T("ax\0y\0c"sv)));
}

template <class String>
void expect_case_and_trims(const String &start, const String &upper, const String &left,
                           const String &right) {
    SCOPED_TRACE(PrintToString(whole(start)));
    String texts[] = {start, start, start};
    texts[0].ToUpper();
    texts[1].TrimLeft();
    texts[2].TrimRight();
    EXPECT_EQ(whole(texts[0]), whole(upper));
    EXPECT_EQ(whole(texts[1]), whole(left));
    EXPECT_EQ(whole(texts[2]), whole(right));
}

TYPED_TEST(XString, IgnoresCaseAndTrimsUpToANul) {
    // What lies behind a NUL stays unless the trim has changed the text; on the right it goes.
    const std::string_view cases[][4] = {{"", "", "", ""},
                                         {" \t\n\v\f\r", " \t\n\v\f\r", "", ""},
                                         {" a\0 "sv, " A\0 "sv, "a", " a"},
                                         {"aZ_\0b"sv, "AZ_\0b"sv, "aZ_\0b"sv, "aZ_"},
                                         {"a \0"sv, "A \0"sv, "a \0"sv, "a "}};
    for (const auto &[start, upper, left, right] : cases) {
        expect_case_and_trims(this->T(start), this->T(upper), this->T(left), this->T(right));
    }
    EXPECT_LT(this->T("John_").CompareNoCase(this->T("johns")), 0);  // '_' lies in front of 's'
}

TEST(XString, TwinsDifferWhereTheyShould) {
    // Beyond ASCII nothing folds, and only wide text knows more white space.
    const x_wstring spaced(TEXT("\u3000\u00A0\u00E4\u200B\u2003\u0085"));
    expect_case_and_trims<x_wstring>(spaced, spaced, spaced.c_str() + 2, spaced.substr(0, 4));
    const x_astring bytes("\xA0\xE4\xA0");
    expect_case_and_trims<x_astring>(bytes, bytes, bytes, bytes);
    std::ostringstream out;
    out << x_astring("ab\0c"s) << x_astring("d");
    EXPECT_EQ(out.str(), "abd");

    // The narrow twin stops after 4999 replacements.
    for (const std::size_t count : {4998u, 4999u, 6000u}) {
        x_astring narrow(std::string(count, 'a'));
        x_wstring wide(std::u16string(count, u'a'));
        EXPECT_EQ(narrow.FindAndReplaceAll("a", "bb"), count < 4999) << count;
        EXPECT_EQ(narrow.GetLength(), count + std::min<std::size_t>(count, 4999));
        EXPECT_TRUE(wide.FindAndReplaceAll(TEXT("a"), TEXT("bb")) && wide.size() == 2 * count);
    }
    // An empty search text: both end, each in its own way.
    x_astring narrow("z");
    x_wstring wide(TEXT("z"));
    EXPECT_FALSE(narrow.FindAndReplaceAll("", "xy"));
    EXPECT_EQ(narrow.substr(4999 * 2 - 2), "xyz");
    EXPECT_TRUE(wide.FindAndReplaceAll(TEXT(""), TEXT("xy")) && wide == TEXT("z"));
}

}  // namespace
