// What programs match, and what a match hands out.

#include "ostrel/regex/regex_matcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "ostrel/regex/regex_interpreter.h"
#include "ostrel/regex/regex_program.h"
#include "support/regex_model.h"

namespace {

using namespace OS::regex;

std::string describe(const MatchContext &context, const WCHAR *text) {
    const auto place = [text](const WCHAR *at) {
        return at == nullptr ? test::kNowhere : static_cast<std::size_t>(at - text);
    };
    std::vector<test::Span> spans{{place(context.matchStart), place(context.matchEnd)}};
    for (unsigned group = 0; group < context.groupCount; ++group) {
        const WCHAR *start = nullptr;
        const WCHAR *end = nullptr;
        context.GetGroup(group, &start, &end);
        spans.emplace_back(place(start), place(end));
    }
    return test::describe(spans);
}

// In the form of model_match, or "error 9".
std::string match(const std::u16string &pattern, const std::u16string &text, int most_steps,
                  int case_sensitive = 1) {
    CompiledPattern program;
    if (const int result = program.Compile(pattern.c_str(), case_sensitive); result != RegexOk) {
        return "error " + std::to_string(result);
    }
    MatchContext context(2);
    int steps = 0;
    const auto go_on = [&] { return ++steps < most_steps; };
    const bool found = match_while(program, text.c_str(), &context, nullptr, go_on) != 0;
    return found ? describe(context, text.c_str()) : steps < most_steps ? "no" : "";
}

DWORD code_of(const std::function<void()> &call) {
    try {
        call();
    } catch (const OS::RegexFailure &failure) {
        return failure.code;
    }
    return 0;
}

TEST(RegexMatcher, FindsTheFirstMatchInBacktrackingOrder) {
    struct Case {
        const WCHAR *pattern;
        const WCHAR *text;
        const char *result;
    };
    const Case cases[] = {
        {TEXT("ab|cd"), TEXT("abd acd"), "0-3"},
        {TEXT("a**b"), TEXT("aa*b"), "0-4"},
        {TEXT("{a}|{ab}c"), TEXT("abc"), "0-3 - 0-2"},
        {TEXT("{.*?}{b*}"), TEXT("abb"), "0-0 0-0 0-0"},
        {TEXT("^{a+?}{a*}$"), TEXT("aaa"), "0-4 0-1 1-3"},  // past the NUL
        {TEXT("{a|b}\\0"), TEXT("abba"), "1-3 1-2"},
        {TEXT("^{a}?\\0b"), TEXT("b"), "0-1 -"},
        {TEXT("^{aa}\\0$"), TEXT("aaa"), "no"},         // not beyond the end
        {TEXT("^(!{ab}.)*"), TEXT("xaab"), "0-2 2-4"},  // what a look-ahead captures stays
        // A lazy quantifier does not go back before it tries its body.
        {TEXT("^{a}?\?.b"), TEXT("aab"), "no"},
        {TEXT("."), TEXT("\n"), "0-1"},
        {TEXT("[^a]"), TEXT(""), "no"},
        {TEXT("a$b"), TEXT("a$b"), "0-3"},
        {TEXT("\\q"), TEXT("'a' \"b\""), "4-7"},
        {TEXT("^{\\w|\\z}*\\n*\\d$"), TEXT("aB12\r\n\n\r\r\n3"), "0-12 2-4"},
        {TEXT("^\\c!\\h"), TEXT("zG"), "0-1"},
        {TEXT("\\a\\b\\c\\h\\w\\z"), TEXT("!g9\tzFZz09!"), "2-10"},
        {TEXT("[\x7F-\xFFFF]"), TEXT("a\xD800"), "1-2"},
        // The last character is the last place where a match can begin, but for an empty text.
        {TEXT("b*$"), TEXT("a"), "no"},
        {TEXT("b*$"), TEXT(""), "0-1"},
        {TEXT(""), TEXT("a"), "0-0"},
    };
    for (const Case &expected : cases) {
        EXPECT_EQ(match(expected.pattern, expected.text, 1000), expected.result)
            << ::testing::PrintToString(expected.pattern);
    }
}

TEST(RegexMatcher, WithoutCaseGivesPlacesInTheCallersText) {
    // The copy is a local one, or on the heap: both sides of where that changes.
    for (const std::size_t at : {1U, 258U, 259U, 260U, 261U, 500U}) {
        const std::u16string text = std::u16string(at, u'X') + u"AbAB";
        CompiledPattern program;
        ASSERT_EQ(program.Compile(TEXT("{aB}\\0{z}?"), 0), RegexOk);
        MatchContext context(1);
        const WCHAR *stopped = nullptr;
        ASSERT_EQ(program.Match(text.c_str(), &context, &stopped), 1);
        const test::Span spans[] = {{at, at + 4}, {at, at + 2}, {test::kNowhere, test::kNowhere}};
        EXPECT_EQ(describe(context, text.c_str()), test::describe({spans, std::end(spans)}));
        EXPECT_EQ(stopped, text.c_str() + at + 4);
        EXPECT_EQ(text.substr(at), u"AbAB");
    }
    EXPECT_EQ(match(TEXT("{a}\\0"), TEXT("aA"), 1000), "no");
}

TEST(RegexMatcher, ContextsAreUsedAgainAndFailuresAreTold) {
    CompiledPattern two;
    CompiledPattern none;
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

    ASSERT_EQ(two.Compile(TEXT("{a}{b}"), 1), RegexOk);
    EXPECT_EQ(two.Match(text, &context, nullptr), 1);
    EXPECT_EQ(context.stackTop, 7U);

    const WCHAR *start = text;
    const WCHAR *end = text;
    EXPECT_EQ(code_of([&] { context.GetGroup(2, &start, &end); }), 0x80004005U);
    EXPECT_EQ(code_of([&] { context.GetGroup(1, nullptr, &end); }), 0x80004005U);
    EXPECT_EQ(code_of([&] { context.GetGroup(1, &start, nullptr); }), 0x80004005U);

    const WCHAR *stopped = text;
    EXPECT_EQ(two.Match(nullptr, &context, &stopped), 0);
    EXPECT_EQ(stopped, nullptr);
    EXPECT_EQ(two.Match(text, nullptr, nullptr), 0);
    EXPECT_EQ(none.Match(text + 1, &context, &stopped), 0);
    EXPECT_EQ(stopped, text + 1);
}

// Programs that no pattern compiles to must not reach beyond an array.
TEST(RegexMatcher, RefusesIndexesOutOfRange) {
    const auto run = [](const std::vector<Instruction> &code) {
        CompiledPattern program;
        program.groupCount = 1;
        program.memoryCount = 1;
        EXPECT_TRUE(program.instructions.Resize(code.size()));
        std::copy(code.begin(), code.end(), program.instructions.Data());
        MatchContext context(8);
        return program.Match(TEXT("a"), &context, nullptr);
    };
    const std::vector<Instruction> programs[] = {
        {},
        {{OpJump, 7}},
        {{OpCall, static_cast<Word>(-1)}},
        {{OpGroupStart, 1}, {OpMatch, 0}},
        {{OpPushGroup, 9}, {OpMatch, 0}},
        {{OpStorePos, 1}, {OpMatch, 0}},
        {{OpBackReference, 1}, {OpMatch, 0}},
        {{OpRange, 9}, {OpNop, 0}, {OpNop, 1}, {OpMatch, 0}},
        {{OpStorePos, 0}, {OpLoadStack, 0}, {OpReturn, 0}},
    };
    for (const std::vector<Instruction> &code : programs) {
        EXPECT_EQ(code_of([&] { run(code); }), 0x80070057U) << code.size();
    }
    // Half a range at the end.
    EXPECT_EQ(run({{OpCall, 2}, {OpFail, 0}, {OpRange, 4}, {OpNop, 0}}), 0);
}

// Compares a match with the model's, unless the pattern is none or one of them gives up: it can try
// ways without end. Result: whether there is a match.
bool agree(const std::u16string &pattern, const std::u16string &text, bool case_sensitive) {
    const auto fold = [=](std::u16string folded) {
        std::replace(folded.begin(), folded.end(), case_sensitive ? u'b' : u'B', u'b');
        return folded;
    };
    const std::string result = match(pattern, text, 30000, case_sensitive ? 1 : 0);
    if (result.empty() || result[0] == 'e') {
        return false;
    }
    const std::string expected = test::model_match(fold(pattern), fold(text), 1000);
    if (expected.empty()) {
        return false;
    }
    EXPECT_EQ(result, expected) << ::testing::PrintToString(pattern) << " on "
                                << ::testing::PrintToString(text);
    return result[0] != 'n';
}

// Each kind of part is frequent in one of the rows. Every third pattern lies deep in brackets.
TEST(RegexMatcher, AgreesWithTheModel) {
    const std::vector<std::u16string> rows[] = {
        test::split(u"a { } ( ) * + ? | ! \\. $ \\0 "),
        test::split(u"a b { } ( ) * + ? *? +? ?? | ! . {b|a}"),
        test::split(u"( ) ( ) * + | ! (a+) (b|(b?B)) [ab] b ^ $"),
        test::split(u"{ } ( )* \\. \\0 \\1 [a-c] [^-] [- ] [\\t\\]b] [a-\\] [B-\\] {a} |")};
    std::mt19937 random(11);
    int matched = 0;
    for (int i = 0; i < 40000 && !HasFailure(); ++i) {
        const auto &parts = rows[random() % std::size(rows)];
        const std::size_t depth = i % 3 == 0 ? 17 : 0;
        std::u16string pattern = (random() % 2 == 0 ? u"^" : u"") + std::u16string(depth, u'(');
        for (std::size_t left = 1 + random() % 12; left != 0; --left) {
            pattern += parts[random() % parts.size()];
        }
        pattern.append(depth, u')');
        const bool case_sensitive = random() % 4 != 0;
        for (int j = 0; j < 3; ++j) {
            std::u16string text;
            for (std::size_t left = random() % 7; left != 0; --left) {
                text += u"aabbB+"[random() % 6];
            }
            matched += agree(pattern, text, case_sensitive) ? 1 : 0;
        }
    }
    EXPECT_GT(matched, 10000);
}

}  // namespace
