// What programs match, and what a match hands out.

#include "ostrel/regex/regex_matcher.h"

#include "ostrel/regex/regex_interpreter.h"
#include "ostrel/regex/regex_program.h"
#include "ostrel/regex/validators.h"
#include "support/test.h"

namespace {

using namespace OS::regex;

// The places of a match and of its groups: "2-5 2-3 -".
std::string describe(const MatchContext &context, const WCHAR *text) {
    const auto place = [text](const WCHAR *at) {
        return at == nullptr ? "" : std::to_string(at - text);
    };
    std::string places = place(context.matchStart) + '-' + place(context.matchEnd);
    for (unsigned group = 0; group < context.groupCount; ++group) {
        const WCHAR *start = nullptr, *end = nullptr;
        context.GetGroup(group, &start, &end);
        places += ' ' + place(start) + '-' + place(end);
    }
    return places;
}

// In few steps: a program that does not work may never end.
std::string match(const WCHAR *pattern, const WCHAR *text, int case_sensitive = 1) {
    CompiledPattern program;
    EXPECT_EQ(program.Compile(pattern, case_sensitive), RegexOk);
    MatchContext context(2);
    int steps = 0;
    const auto go_on = [&steps] { return ++steps < 1000; };
    const bool found = match_while(program, text, &context, nullptr, go_on) != 0;
    return found ? describe(context, text) : steps < 1000 ? "no" : "no end";
}

TEST(RegexMatcher, FindsTheFirstMatchInBacktrackingOrder) {
    const struct {
        const WCHAR *pattern, *text;
        const char *result;
    } cases[] = {
        {TEXT("a**b"), TEXT("aa*b"), "0-4"},
        {TEXT("{a}|{ab}c"), TEXT("abc"), "0-3 - 0-2"},
        {TEXT("{.*?}{b*}"), TEXT("abb"), "0-0 0-0 0-0"},
        {TEXT("^{a+?}{a*}$"), TEXT("aaa"), "0-4 0-1 1-3"},  // past the NUL
        {TEXT("^{a}?\\0b"), TEXT("b"), "0-1 -"},
        {TEXT("^{\\0aa}\\0$"), TEXT("aaa"), "no"},      // not beyond the end
        {TEXT("^(!{ab}.)*"), TEXT("xaab"), "0-2 2-4"},  // what a look-ahead captures stays
        // A lazy quantifier does not go back before it tries its body.
        {TEXT("^(a?\?b)|({a}?\?.b)"), TEXT("aab"), "no"},
        // Deep in brackets the quantifier of one is looked for beforehand.
        {TEXT("((((((((((((((((\\n[^-]()[B-\\]\\((a)*)))))))))))))))))"), TEXT("\nqC(a"), "0-5"},
        {TEXT("[^a]|."), TEXT(""), "no"},
        {TEXT("a^.$b"), TEXT("a^x$b"), "0-5"},
        {TEXT("\\q"), TEXT("'a' \"b\""), "4-7"},
        {TEXT("^{\\w|\\z}*\\n*\\d$"), TEXT("aB12\r\n\n\r\r\n3"), "0-12 2-4"},
        {TEXT("^\\c!!G!\\h"), TEXT("zG"), "0-1"},
        {TEXT("\\a\\b\\c\\h\\w\\z"), TEXT("!g9\tzFZz09!"), "2-10"},
        {TEXT("[\x7F-\xFFFF]"), TEXT("a\xD800"), "1-2"},
        // The last character is the last place where a match can begin, but for an empty text.
        {TEXT("b*$"), TEXT("a"), "no"},
        {TEXT("b*$"), TEXT(""), "0-1"},
        {TEXT(""), TEXT("a"), "0-0"}};
    for (const auto &c : cases) {
        EXPECT_EQ(match(c.pattern, c.text), c.result)
            << PrintToString(std::pair(c.pattern, c.text));
    }
}

TEST(RegexMatcher, WithoutCaseGivesPlacesInTheCallersText) {
    // The copy is a local one, or on the heap: both sides of where that changes.
    for (const std::size_t at : {1U, 259U, 260U, 500U}) {
        SCOPED_TRACE(at);
        const std::u16string text = std::u16string(at, u'X') + u"AbAB";
        CompiledPattern program;
        ASSERT_EQ(program.Compile(TEXT("{z}?{aB}\\1"), 0), RegexOk);
        MatchContext context(1);
        const WCHAR *stopped = nullptr;
        ASSERT_EQ(program.Match(text.c_str(), &context, &stopped), 1);
        EXPECT_EQ(describe(context, text.c_str() + at), "0-4 - 0-2");
        EXPECT_EQ(stopped, text.c_str() + at + 4);
    }
    EXPECT_EQ(match(TEXT("{a}\\0"), TEXT("aA")), "no");
    EXPECT_EQ(match(TEXT("\\D[a-Z]X\\A"), TEXT("#5bXq"), 0), "1-5");
}

TEST(RegexMatcher, ContextsAreUsedAgainAndFailuresAreTold) {
    CompiledPattern two, none;
    ASSERT_EQ(two.Compile(TEXT("{a}|b{b}"), 1), RegexOk);
    ASSERT_EQ(none.Compile(TEXT("^a"), 1), RegexOk);
    MatchContext context(256);
    const WCHAR *const text = TEXT("abb");
    EXPECT_EQ(two.Match(text, &context, nullptr), 1);
    EXPECT_EQ(describe(context, text), "0-2 0-1 1-2");
    EXPECT_EQ(none.Match(text, &context, nullptr), 1);
    EXPECT_EQ(context.groupCount, 0U);
    EXPECT_EQ(two.Match(text + 1, &context, nullptr), 1);
    EXPECT_EQ(describe(context, text), "1-3 - 2-3");

    const WCHAR *start = text, *end = text;
    EXPECT_THROW(context.GetGroup(2, &start, &end), OS::RegexFailure);
}

}  // namespace
