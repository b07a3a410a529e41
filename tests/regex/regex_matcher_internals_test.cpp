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

std::string narrow(const std::u16string &text) {
    return {text.begin(), text.end()};
}

// A match as text: "2-5 {2-3} {-}" for its range and that of each group, "no" for none.
std::string describe(const MatchContext &context, const WCHAR *text, bool matched) {
    if (!matched) {
        return "no";
    }
    const auto range = [text](const WCHAR *start, const WCHAR *end) {
        return (start == nullptr ? "" : std::to_string(start - text)) + "-" +
               (end == nullptr ? "" : std::to_string(end - text));
    };
    std::string result = range(context.matchStart, context.matchEnd);
    for (unsigned group = 0; group < context.groupCount; ++group) {
        const WCHAR *start = nullptr;
        const WCHAR *end = nullptr;
        context.GetGroup(group, &start, &end);
        result += " {" + range(start, end) + "}";
    }
    return result;
}

std::string match(const WCHAR *pattern, const WCHAR *text, bool case_sensitive = true) {
    CompiledPattern program;
    if (program.Compile(pattern, case_sensitive ? 1 : 0) != RegexOk) {
        return "error";
    }
    MatchContext context(4);
    const bool matched = program.Match(text, &context, nullptr) != 0;
    return describe(context, text, matched);
}

TEST(RegexMatcher, FindsTheFirstMatchInBacktrackingOrder) {
    struct Case {
        const WCHAR *pattern;
        const WCHAR *text;
        const char *result;
    };
    const Case cases[] = {
        {TEXT("b+"), TEXT("abbbc"), "1-4"},
        {TEXT("ab|cd"), TEXT("abd acd"), "0-3"},
        {TEXT("ab|cd"), TEXT("ab cd"), "no"},
        {TEXT("{a}|{ab}c"), TEXT("abc"), "0-3 {-} {0-2}"},
        {TEXT("{.*}{b*}"), TEXT("abb"), "0-3 {0-3} {3-3}"},
        {TEXT("{.*?}{b*}"), TEXT("abb"), "0-0 {0-0} {0-0}"},
        {TEXT("^{a+?}{a*}$"), TEXT("aaa"), "0-4 {0-1} {1-3}"},  // past the NUL
        {TEXT("^{a?\?}b"), TEXT("ab"), "0-2 {0-1}"},
        {TEXT("^{[a-z]}+$"), TEXT("abc"), "0-4 {2-3}"},  // the last iteration
        {TEXT("^{{a}|b}*c"), TEXT("abc"), "0-3 {1-2} {0-1}"},
        {TEXT("^{a}|{b}$"), TEXT("b"), "0-2 {-} {0-1}"},
        {TEXT("{a|b}\\0"), TEXT("abba"), "1-3 {1-2}"},
        {TEXT("^{a}?\\0b"), TEXT("b"), "0-1 {-}"},
        {TEXT("^{aa}\\0$"), TEXT("aaa"), "no"},  // not beyond the end
        {TEXT("^!a."), TEXT("b"), "0-1"},
        {TEXT("^!a."), TEXT("a"), "no"},
        {TEXT("^!{a}{.}"), TEXT("b"), "0-1 {-} {0-1}"},
        {TEXT("^(!{ab}.)*"), TEXT("xaab"), "0-2 {2-4}"},  // what a look-ahead captures stays
        {TEXT("^{}*x"), TEXT("x"), "0-1 {-}"},
        {TEXT("^({a*}b)*$"), TEXT("aabb"), "0-5 {3-3}"},
        // A lazy quantifier does not go back before it tries its body.
        {TEXT("^{a}?\?.b"), TEXT("aab"), "no"},
        {TEXT("^a{.}*?c"), TEXT("abbc"), "0-4 {2-3}"},
        {TEXT("."), TEXT("\n"), "0-1"},
        {TEXT("[^a]"), TEXT(""), "no"},
        {TEXT("a$b"), TEXT("a$b"), "0-3"},
        {TEXT("\\q"), TEXT("'a' \"b\""), "4-7"},
        {TEXT("[\x7F-\xFFFF]"), TEXT("a\xD800"), "1-2"},
        // The last character is the last place where a match can begin, but for an empty text.
        {TEXT("b*$"), TEXT("a"), "no"},
        {TEXT("b*$"), TEXT(""), "0-1"},
        {TEXT(""), TEXT("a"), "0-0"},
        {TEXT("a"), TEXT(""), "no"},
    };
    for (const Case &expected : cases) {
        EXPECT_EQ(match(expected.pattern, expected.text), expected.result)
            << narrow(expected.pattern) << " on " << narrow(expected.text);
    }
}

TEST(RegexMatcher, WithoutCaseGivesPlacesInTheCallersText) {
    const std::u16string lengths[] = {u"",
                                      std::u16string(500, u'-')};  // in the object, on the heap
    for (const std::u16string &prefix : lengths) {
        const std::u16string text = prefix + u"xAbAB";
        CompiledPattern program;
        ASSERT_EQ(program.Compile(TEXT("{aB}\\0{z}?"), 0), RegexOk);
        MatchContext context(1);
        const WCHAR *stopped = nullptr;
        ASSERT_EQ(program.Match(text.c_str(), &context, &stopped), 1);
        const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(prefix.size()) + 1;
        EXPECT_EQ(context.matchStart - text.c_str(), at);
        EXPECT_EQ(context.matchEnd - text.c_str(), at + 4);
        EXPECT_EQ(stopped, context.matchEnd);
        EXPECT_EQ(context.groups[0].start - text.c_str(), at);
        EXPECT_EQ(context.groups[1].start, nullptr);
        EXPECT_EQ(text.substr(prefix.size()), u"xAbAB");
        EXPECT_EQ(match(TEXT("{a}\\0"), TEXT("aA")), "no");
    }
}

TEST(RegexMatcher, ContextsAreUsedAgainAndFailuresAreTold) {
    CompiledPattern two;
    CompiledPattern none;
    ASSERT_EQ(two.Compile(TEXT("{a}{b}"), 1), RegexOk);
    ASSERT_EQ(none.Compile(TEXT("^a"), 1), RegexOk);
    MatchContext context(256);
    const WCHAR *const text = TEXT("ab");
    EXPECT_EQ(two.Match(text, &context, nullptr), 1);
    EXPECT_EQ(describe(context, text, true), "0-2 {0-1} {1-2}");
    EXPECT_EQ(none.Match(text, &context, nullptr), 1);
    EXPECT_EQ(context.groupCount, 0U);
    EXPECT_EQ(two.Match(text, &context, nullptr), 1);

    const WCHAR *start = text;
    const WCHAR *end = text;
    const auto code_of = [&](unsigned index, const WCHAR **from, const WCHAR **to) -> DWORD {
        try {
            context.GetGroup(index, from, to);
        } catch (const OS::RegexFailure &failure) {
            return failure.code;
        }
        return 0;
    };
    EXPECT_EQ(code_of(1, &start, &end), 0U);
    EXPECT_EQ(code_of(2, &start, &end), 0x80004005U);
    EXPECT_EQ(code_of(1, nullptr, &end), 0x80004005U);
    EXPECT_EQ(code_of(1, &start, nullptr), 0x80004005U);

    const WCHAR *stopped = text;
    EXPECT_EQ(two.Match(nullptr, &context, &stopped), 0);
    EXPECT_EQ(stopped, nullptr);
    EXPECT_EQ(two.Match(text, nullptr, nullptr), 0);
    EXPECT_EQ(none.Match(TEXT("b"), &context, &stopped), 0);
    EXPECT_NE(stopped, nullptr);
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
        {{OpNop, 0}},
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
        try {
            run(code);
            ADD_FAILURE() << code.size();
        } catch (const OS::RegexFailure &failure) {
            EXPECT_EQ(failure.code, 0x80070057U);
        }
    }
    // Half a range at the end.
    EXPECT_EQ(run({{OpCall, 2}, {OpFail, 0}, {OpRange, 4}, {OpNop, 0}}), 0);
}

// Also of patterns that would not end: a step bound for each side leaves them out.
TEST(RegexMatcher, AgreesWithTheModelOnGeneratedPatterns) {
    constexpr const char16_t *kParts[] = {
        TEXT("a"),   TEXT("b"), TEXT("."), TEXT("{"),     TEXT("}"),    TEXT("{a}"),  TEXT("("),
        TEXT(")"),   TEXT("*"), TEXT("*"), TEXT("+"),     TEXT("?"),    TEXT("*?"),   TEXT("+?"),
        TEXT("?\?"), TEXT("|"), TEXT("|"), TEXT("!"),     TEXT("[ab]"), TEXT("[^b]"), TEXT("\\0"),
        TEXT("\\w"), TEXT("^"), TEXT("$"), TEXT("{b|a}"), TEXT("\\n")};
    std::mt19937 random(11);
    int compared = 0;
    int matched = 0;
    for (int i = 0; i < 30000; ++i) {
        const bool case_sensitive = random() % 4 != 0;
        std::u16string pattern = random() % 2 == 0 ? u"^" : u"";
        for (std::size_t left = 1 + random() % 9; left != 0; --left) {
            pattern += kParts[random() % std::size(kParts)];
        }
        CompiledPattern program;
        test::RegexModel model(pattern, case_sensitive);
        if (program.Compile(pattern.c_str(), case_sensitive ? 1 : 0) != RegexOk) {
            continue;
        }
        for (int j = 0; j < 4; ++j) {
            std::u16string text;
            for (std::size_t left = random() % 7; left != 0; --left) {
                text += u"aabbB\r\n"[random() % 7];
            }
            const test::RegexModel::Match expected = model.Run(text, 1000);
            MatchContext context(2);
            int steps = 0;
            const bool found = match_while(program, text.c_str(), &context, nullptr,
                                           [&steps] { return ++steps < 30000; }) != 0;
            if (!expected.known || steps >= 30000) {
                continue;
            }
            std::string result = "no";
            if (expected.matched) {
                const auto range = [](std::ptrdiff_t start, std::ptrdiff_t end) {
                    return (start < 0 ? "" : std::to_string(start)) + "-" +
                           (end < 0 ? "" : std::to_string(end));
                };
                result = range(static_cast<std::ptrdiff_t>(expected.start),
                               static_cast<std::ptrdiff_t>(expected.end));
                for (const auto &[start, end] : expected.groups) {
                    result += " {" + range(start, end) + "}";
                }
                ++matched;
            }
            ASSERT_EQ(describe(context, text.c_str(), found), result)
                << narrow(pattern) << " on " << ::testing::PrintToString(narrow(text));
            ++compared;
        }
    }
    EXPECT_GT(compared, 20000);
    EXPECT_GT(matched, 5000);
}

}  // namespace
