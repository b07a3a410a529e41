// The programs that patterns compile to, and the errors of those that do not compile.

#include "ostrel/regex/regex_program.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "ostrel/regex/folded_text.h"
#include "support/regex_disassembler.h"
#include "support/regex_model.h"

namespace {

using namespace OS::regex;

std::string narrow(const std::u16string &text) {
    return {text.begin(), text.end()};
}

struct ProgramCase {
    const char16_t *pattern;
    const char *program;
    unsigned groups = 0;
    unsigned slots = 0;
};

constexpr ProgramCase kPrograms[] = {
    {TEXT(""), "Call 2; Advance; Match"},
    {TEXT("^[a-c]"), "Call 2; Fail; Range 5; Nop 97; Nop 99; Match"},
    {TEXT("^{a}"),
     "Call 2; Fail; PushGroup 0; GroupStart 0; Call 7; PopGroup 0; Return; Symbol a; GroupEnd 0; "
     "Match",
     1},
    {TEXT("^a|b"),
     "Call 2; Fail; PushPos; Call 6; PopPos; Jump 8; Symbol a; Jump 9; Symbol b; Match"},
    {TEXT("^a*"),
     "Call 2; Fail; PushMemory 0; StorePos 0; PushPos; Call 9; PopPos; PopMemory 0; Jump 13; "
     "Symbol a; ReturnIfNoProgress 0; StorePos 0; Jump 2; Match",
     0, 1},
    {TEXT("^a?"),
     "Call 2; Fail; PushMemory 0; StorePos 0; PushPos; Call 9; PopPos; PopMemory 0; Jump 12; "
     "Symbol a; ReturnIfNoProgress 0; StorePos 0; Match",
     0, 1},
    {TEXT("^a+"),
     "Call 2; Fail; Symbol a; PushMemory 0; StorePos 0; PushPos; Call 10; PopPos; PopMemory 0; "
     "Jump 14; Symbol a; ReturnIfNoProgress 0; StorePos 0; Jump 3; Match",
     0, 1},
    {TEXT("^a*?b"), "Call 2; Fail; Call 5; Symbol a; Jump 2; Symbol b; Match"},
    {TEXT("^a+?b"), "Call 2; Fail; Symbol a; Call 6; Symbol a; Jump 3; Symbol b; Match"},
    {TEXT("^a?\?b"), "Call 2; Fail; Call 4; Symbol a; Symbol b; Match"},
    // The slot of a loop comes before those of its body, and both bodies of a + have their own.
    {TEXT("^!a+"),
     "Call 2; Fail; StorePos 0; StoreStack 1; Call 8; LoadPos 0; LoadStack 1; Jump 12; Symbol a; "
     "LoadPos 0; LoadStack 1; Return; PushMemory 2; StorePos 2; PushPos; Call 19; PopPos; "
     "PopMemory 2; Jump 32; StorePos 3; StoreStack 4; Call 25; LoadPos 3; LoadStack 4; Jump 29; "
     "Symbol a; LoadPos 3; LoadStack 4; Return; ReturnIfNoProgress 2; StorePos 2; Jump 12; Match",
     0, 5},
    {TEXT("^!!a"),
     "Call 2; Fail; StorePos 0; StoreStack 1; Call 8; LoadPos 0; LoadStack 1; Jump 21; StorePos 2; "
     "StoreStack 3; Call 14; LoadPos 2; LoadStack 3; Jump 18; Symbol a; LoadPos 2; LoadStack 3; "
     "Return; LoadPos 0; LoadStack 1; Return; Match",
     0, 4},
    {TEXT("^(a)|{b}|c"),
     "Call 2; Fail; PushPos; Call 6; PopPos; Jump 10; Call 8; Return; Symbol a; Jump 23; PushPos; "
     "Call 14; PopPos; Jump 22; PushGroup 0; GroupStart 0; Call 19; PopGroup 0; Return; Symbol b; "
     "GroupEnd 0; Jump 23; Symbol c; Match",
     1},
    {TEXT("^()"), "Call 2; Fail; Call 4; Return; Nop 0; Match"},
    {TEXT("{a}+?{b}"),
     "Call 2; Advance; PushGroup 0; GroupStart 0; Call 7; PopGroup 0; Return; Symbol a; "
     "GroupEnd 0; Call 18; PushGroup 0; GroupStart 0; Call 15; PopGroup 0; Return; Symbol a; "
     "GroupEnd 0; Jump 9; PushGroup 1; GroupStart 1; Call 23; PopGroup 1; Return; Symbol b; "
     "GroupEnd 1; Match",
     2},
    {TEXT("{a}\\0"),
     "Call 2; Advance; PushGroup 0; GroupStart 0; Call 7; PopGroup 0; Return; Symbol a; "
     "GroupEnd 0; BackReference 0; Match",
     1},
    {TEXT("[^\\t\\]a-c-]"),
     "Call 2; Advance; NotRange 11; Nop 9; Nop 9; Nop 93; Nop 93; Nop 97; Nop 99; Nop 45; Nop 45; "
     "Match"},
    {TEXT("[Z-\\]"), "Call 2; Advance; Range 5; Nop 90; Nop 92; Match"},
    {TEXT("\\d\\d"),
     "Call 2; Advance; Call 4; Return; Range 7; Nop 48; Nop 57; Call 9; Return; Range 12; Nop 48; "
     "Nop 57; Match"},
    {TEXT("\\q"),
     "Call 2; Advance; Call 4; Return; Symbol \"; PushMemory 0; StorePos 0; PushPos; Call 12; "
     "PopPos; PopMemory 0; Jump 18; NotRange 15; Nop 34; Nop 34; ReturnIfNoProgress 0; "
     "StorePos 0; Jump 5; Symbol \"; Match",
     0, 1},
    {TEXT("a^.$$"), "Call 2; Advance; Symbol a; Symbol ^; Any; Symbol $; Symbol 0; Match"},
    {TEXT("a**?*"),  // a quantifier is literal where an atom can stand, and so is a |
     "Call 2; Advance; PushMemory 0; StorePos 0; PushPos; Call 9; PopPos; PopMemory 0; Jump 13; "
     "Symbol a; ReturnIfNoProgress 0; StorePos 0; Jump 2; PushMemory 1; StorePos 1; PushPos; "
     "Call 20; PopPos; PopMemory 1; Jump 23; Symbol *; ReturnIfNoProgress 1; StorePos 1; Symbol *; "
     "Match",
     0, 2},
    {TEXT("a|||b"),
     "Call 2; Advance; PushPos; Call 6; PopPos; Jump 8; Symbol a; Jump 15; PushPos; Call 12; "
     "PopPos; Jump 14; Symbol |; Jump 15; Symbol b; Match"},
    {TEXT("\\t\\n"),
     "Call 2; Advance; Symbol t; Call 5; Return; PushPos; Call 9; PopPos; Jump 11; Symbol 13; "
     "Jump 24; Call 13; Return; PushMemory 0; StorePos 0; PushPos; Call 20; PopPos; PopMemory 0; "
     "Jump 23; Symbol 13; ReturnIfNoProgress 0; StorePos 0; Symbol 10; Match",
     0, 1},
    {TEXT("a)b"), "Call 2; Advance; Symbol a; Match"},
    {TEXT("a{b}|"), "Call 2; Advance; Symbol a; Match", 1},
    {TEXT("a(b*|)"), "Call 2; Advance; Symbol a; Call 5; Return; Nop 0; Match"},
    {TEXT("ab|c|!"), "Call 2; Advance; Symbol a; Match"},
};

TEST(RegexCompiler, WritesTheseProgramsInstructionForInstruction) {
    for (const ProgramCase &expected : kPrograms) {
        SCOPED_TRACE(narrow(expected.pattern));
        CompiledPattern program;
        ASSERT_EQ(program.Compile(expected.pattern, 1), RegexOk);
        EXPECT_EQ(test::disassemble(program), expected.program);
        EXPECT_EQ(program.groupCount, expected.groups);
        EXPECT_EQ(program.memoryCount, expected.slots);
    }
}

TEST(RegexCompiler, GivesTheCodeOfTheFirstError) {
    const std::pair<const char16_t *, RegexResult> cases[] = {
        {TEXT("{a"), RegexBraceExpected},
        {TEXT("{a)}"), RegexBraceExpected},
        {TEXT("(a"), RegexParenExpected},
        {TEXT("(a}"), RegexParenExpected},
        {TEXT("[a"), RegexBracketExpected},
        {TEXT("[a-"), RegexBracketExpected},
        {TEXT("[a-]"), RegexBracketExpected},
        {TEXT("["), RegexBracketExpected},
        {TEXT("[^-]"), RegexOk},
        {TEXT("[a\\"), RegexBracketExpected},
        {TEXT("a\\"), RegexBadAbbreviation},
        {TEXT("[]"), RegexEmptySet},
        {TEXT("[^]"), RegexEmptySet},
        {TEXT("\\1"), RegexBadGroup},
        {TEXT("{a}\\1"), RegexBadGroup},
        {TEXT("{a\\0}"), RegexOk},
        {TEXT("{a}\\99999999999"), RegexBadGroup},
        {TEXT("{a}\\4294967296"), RegexBadGroup},
        {TEXT("[z-a]"), RegexBadRange},
        {TEXT("[z-a"), RegexBadRange},
        {TEXT("{a*}*"), RegexEmptyRepeat},
        {TEXT("{a?}+"), RegexEmptyRepeat},
        {TEXT("(a*b*)+?"), RegexEmptyRepeat},
        {TEXT("(a|b?)*?"), RegexEmptyRepeat},
        {TEXT("(a?|b)*"), RegexEmptyRepeat},
        {TEXT("{a?}?"), RegexOk},
        {TEXT("(a+)*"), RegexOk},
        {TEXT("(a+?)*"), RegexEmptyRepeat},
        {TEXT("()*"), RegexOk},
        {TEXT("(\\.)*"), RegexOk},
        {TEXT("(a*\\.)*"), RegexEmptyRepeat},
        {TEXT("{a*}*["), RegexEmptyRepeat},
        {TEXT("["), RegexBracketExpected},
        {TEXT("a**"), RegexOk},
        {nullptr, RegexNullPattern},
    };
    for (const auto &[pattern, code] : cases) {
        SCOPED_TRACE(pattern == nullptr ? "null" : narrow(pattern));
        CompiledPattern program;
        EXPECT_EQ(program.Compile(pattern, 1), code);
        EXPECT_EQ(program.lastError, pattern == nullptr ? RegexOk : code);
    }
}

TEST(RegexCompiler, FoldsTheWholePatternWhenCasePlaysNoPart) {
    CompiledPattern folded;
    CompiledPattern lower;
    ASSERT_EQ(folded.Compile(TEXT("\\D[A-Z]X\\A"), 0), RegexOk);
    ASSERT_EQ(lower.Compile(TEXT("\\d[a-z]x\\a"), 1), RegexOk);
    EXPECT_EQ(test::disassemble(folded), test::disassemble(lower));
    EXPECT_EQ(folded.caseSensitive, 0);
    EXPECT_EQ(folded.Compile(TEXT("[a-Z]"), 0), RegexOk);
    EXPECT_EQ(folded.Compile(TEXT("[a-Z]"), 1), RegexBadRange);
    EXPECT_EQ(folded.groupCount, 0U);
}

void expect_as_model(const std::u16string &pattern) {
    test::RegexModel model(pattern, true);
    CompiledPattern program;
    ASSERT_EQ(program.Compile(pattern.c_str(), 1), model.error) << narrow(pattern);
    if (model.error == RegexOk) {
        ASSERT_EQ(test::disassemble(program),
                  test::disassemble(model.code.data(), model.code.size()))
            << narrow(pattern);
        ASSERT_EQ(program.groupCount, model.group_count) << narrow(pattern);
        ASSERT_EQ(program.memoryCount, model.slot_count) << narrow(pattern);
    }
}

TEST(RegexCompiler, AgreesWithTheModelOnShortPatterns) {
    constexpr const char16_t *kParts[] = {
        TEXT("a"), TEXT("{"), TEXT("}"), TEXT("("),   TEXT(")"), TEXT("*"),   TEXT("+"),
        TEXT("?"), TEXT("|"), TEXT("!"), TEXT("\\."), TEXT("$"), TEXT("\\w"), TEXT("\\0")};
    std::size_t total = 1;
    for (int length = 1; length <= 4; ++length) {
        total *= std::size(kParts);
        for (std::size_t number = 0; number < total; ++number) {
            std::u16string pattern;
            for (std::size_t rest = number, i = 0; i < static_cast<std::size_t>(length); ++i) {
                pattern += kParts[rest % std::size(kParts)];
                rest /= std::size(kParts);
            }
            expect_as_model(pattern);
        }
    }
}

// Each kind of part is frequent in one of the rows. Every third pattern lies deep in brackets.
TEST(RegexCompiler, AgreesWithTheModelOnLongerPatterns) {
    constexpr const char16_t *kParts[][14] = {
        {TEXT("a"), TEXT("b"), TEXT("{"), TEXT("}"), TEXT("("), TEXT(")"), TEXT("*"), TEXT("+"),
         TEXT("?"), TEXT("*?"), TEXT("+?"), TEXT("?\?"), TEXT("|"), TEXT("!")},
        {TEXT("("), TEXT(")"), TEXT("("), TEXT(")"), TEXT("*"), TEXT("+"), TEXT("|"), TEXT("!"),
         TEXT("\\w"), TEXT("\\w"), TEXT("\\q"), TEXT("\\n"), TEXT("\\d"), TEXT("b")},
        {TEXT("{"), TEXT("}"), TEXT("("), TEXT(")*"), TEXT("\\."), TEXT("\\0"), TEXT("\\1"),
         TEXT("[a-c]"), TEXT("[^-]"), TEXT("[-"), TEXT("]"), TEXT("[\\t\\]]"), TEXT("[a-\\]"),
         TEXT("[A-\\]")}};
    std::mt19937 random(7);
    for (int i = 0; i < 60000; ++i) {
        const auto &parts = kParts[random() % std::size(kParts)];
        const std::size_t depth = i % 3 == 0 ? 17 : 0;
        std::u16string pattern(depth, u'(');
        for (std::size_t left = 3 + random() % 12; left != 0; --left) {
            pattern += parts[random() % std::size(parts)];
        }
        pattern.append(depth, u')');
        expect_as_model(pattern);
    }
}

std::u16string nest(std::size_t depth, const std::u16string &open, const std::u16string &middle,
                    const std::u16string &close) {
    std::u16string pattern;
    for (std::size_t i = 0; i < depth; ++i) {
        pattern += open;
    }
    pattern += middle;
    for (std::size_t i = 0; i < depth; ++i) {
        pattern += close;
    }
    return pattern;
}

// With a compiler that reads a bracket again for each quantifier and `|` around it, or that calls
// itself, the first of these would not end and the others would leave no stack.
TEST(RegexCompiler, DeepAndLongPatternsGiveAResult) {
    CompiledPattern program;
    EXPECT_EQ(program.Compile(nest(200, u"{b", u"a", u"}*|c").c_str(), 1), RegexOk);
    EXPECT_EQ(program.groupCount, 200U);
    EXPECT_EQ(program.memoryCount, 200U);
    EXPECT_EQ(program.Compile(nest(200, u"(", u"a", u")+").c_str(), 1), RegexOutOfMemory);
    EXPECT_EQ(program.Compile(nest(16, u"(", u"a", u")+").c_str(), 1), RegexOk);
    EXPECT_GT(program.instructions.Count(), 1U << 17);

    constexpr std::size_t kDepth = 100000;
    EXPECT_EQ(program.Compile(nest(kDepth, u"{b", u"a", u"}*?").c_str(), 1), RegexOk);
    EXPECT_EQ(program.Compile(nest(kDepth, u"(", u"a", u")??").c_str(), 1), RegexOk);
    EXPECT_EQ(program.Compile(nest(kDepth, u"!", u"a", u"").c_str(), 1), RegexOk);
    EXPECT_EQ(program.Compile(nest(kDepth, u"a|", u"", u"").c_str(), 1), RegexOk);
    EXPECT_EQ(program.instructions.Count(), 3U);
    EXPECT_EQ(program.Compile(nest(kDepth, u"a|", u"a", u"").c_str(), 1), RegexOk);
    EXPECT_EQ(program.Compile(nest(kDepth, u"{", u"", u"").c_str(), 1), RegexBraceExpected);
    EXPECT_EQ(program.Compile(nest(kDepth, u"[a-z]", u"", u"").c_str(), 1), RegexOk);
    EXPECT_EQ(program.instructions.Count(), 3 * kDepth + 3);
}

TEST(RegexCompiler, ChecksIndexesAndResultsOfTheRuntime) {
    const auto code_of = [](auto call) -> DWORD {
        try {
            call();
        } catch (const OS::RegexFailure &failure) {
            return failure.code;
        }
        return 0;
    };
    CompiledPattern program;
    ASSERT_EQ(program.Compile(TEXT("a"), 1), RegexOk);
    EXPECT_EQ(code_of([&] { (void)program.instructions[3]; }), 0U);
    EXPECT_EQ(code_of([&] { (void)program.instructions[4]; }), 0x80070057U);
    const std::pair<int, DWORD> results[] = {{0, 0},           {80, 0},          {12, 0x8007000E},
                                             {22, 0x80070057}, {34, 0x80070057}, {5, 0x80004005}};
    for (const auto &[result, code] : results) {
        EXPECT_EQ(code_of([result = result] { check_runtime(result); }), code) << result;
    }
}

}  // namespace
