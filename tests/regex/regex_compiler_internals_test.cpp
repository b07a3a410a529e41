// The programs that patterns compile to, and the errors of those that do not compile.

#include <gtest/gtest.h>

#include <ctime>
#include <iterator>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "ostrel/regex/folded_text.h"
#include "ostrel/regex/regex_program.h"
#include "support/regex_model.h"

namespace {

using namespace OS::regex;

// "Call 2; Fail; Symbol a; Match; 0 groups, 0 slots": operands are decimal, those of Symbol that
// are printable ASCII are the character itself.
std::string disassemble(const CompiledPattern &program) {
    // The kinds in their order; a colon tells that an operand follows, else it has to be 0.
    std::istringstream kinds(
        "Nop: GroupStart: GroupEnd: Symbol: Any Range: NotRange: Jump: PushPos PopPos Call: Return "
        "PushMemory: PopMemory: StorePos: StoreStack: LoadPos: LoadStack: ReturnIfNoProgress: "
        "BackReference: Fail Advance Match PushGroup: PopGroup:");
    const std::vector<std::string> names(std::istream_iterator<std::string>(kinds), {});
    std::string text;
    for (std::size_t i = 0; i < program.instructions.Count(); ++i) {
        const auto &[kind, operand] = program.instructions[i];
        std::string name = names.at(static_cast<std::size_t>(kind));
        const bool printable = kind == OpSymbol && operand > 0x20 && operand < 0x7F;
        if (name.back() == ':' || operand != 0) {
            name.back() = name.back() == ':' ? ' ' : '!';
            name +=
                printable ? std::string(1, static_cast<char>(operand)) : std::to_string(operand);
        }
        text += name + "; ";
    }
    return text + std::to_string(program.groupCount) + " groups, " +
           std::to_string(program.memoryCount) + " slots";
}

TEST(RegexCompiler, WritesTheseProgramsInstructionForInstruction) {
    const std::pair<const WCHAR *, const char *> cases[] = {
        {TEXT(""), "Call 2; Advance; Match; 0 groups, 0 slots"},
        {TEXT("^[a-c]"), "Call 2; Fail; Range 5; Nop 97; Nop 99; Match; 0 groups, 0 slots"},
        {TEXT("^{a}"),
         "Call 2; Fail; PushGroup 0; GroupStart 0; Call 7; PopGroup 0; Return; Symbol a; "
         "GroupEnd 0; Match; 1 groups, 0 slots"},
        {TEXT("^a|b"),
         "Call 2; Fail; PushPos; Call 6; PopPos; Jump 8; Symbol a; Jump 9; Symbol b; "
         "Match; 0 groups, 0 slots"},
        {TEXT("^a?.+"),
         "Call 2; Fail; PushMemory 0; StorePos 0; PushPos; Call 9; PopPos; PopMemory 0; Jump 12; "
         "Symbol a; ReturnIfNoProgress 0; StorePos 0; Any; PushMemory 1; StorePos 1; PushPos; "
         "Call 20; PopPos; PopMemory 1; Jump 24; Any; ReturnIfNoProgress 1; StorePos 1; Jump 13; "
         "Match; 0 groups, 2 slots"},
        {TEXT("^a*?b+?c?\?"),
         "Call 2; Fail; Call 5; Symbol a; Jump 2; Symbol b; Call 9; Symbol b; Jump 6; Call 11; "
         "Symbol c; Match; 0 groups, 0 slots"},
        // The slot of a loop comes before those of its body, and both bodies of a + have their own.
        {TEXT("^!a+"),
         "Call 2; Fail; StorePos 0; StoreStack 1; Call 8; LoadPos 0; LoadStack 1; Jump 12; "
         "Symbol a; LoadPos 0; LoadStack 1; Return; PushMemory 2; StorePos 2; PushPos; Call 19; "
         "PopPos; PopMemory 2; Jump 32; StorePos 3; StoreStack 4; Call 25; LoadPos 3; LoadStack 4; "
         "Jump 29; Symbol a; LoadPos 3; LoadStack 4; Return; ReturnIfNoProgress 2; StorePos 2; "
         "Jump 12; Match; 0 groups, 5 slots"},
        {TEXT("[^\\t\\]a-c-][Z-\\]"),
         "Call 2; Advance; NotRange 11; Nop 9; Nop 9; Nop 93; Nop 93; Nop 97; Nop 99; Nop 45; "
         "Nop 45; Range 14; Nop 90; Nop 92; Match; 0 groups, 0 slots"},
        {TEXT("a^.$$"),
         "Call 2; Advance; Symbol a; Symbol ^; Any; Symbol $; Symbol 0; Match; 0 groups, 0 slots"},
        {TEXT("a)b"), "Call 2; Advance; Symbol a; Match; 0 groups, 0 slots"},
        {TEXT("a(b*|)c|!"),
         "Call 2; Advance; Symbol a; Call 5; Return; Nop 0; Match; 0 groups, 0 slots"},
    };
    CompiledPattern program;  // a compilation begins anew
    for (const auto &[pattern, expected] : cases) {
        ASSERT_EQ(program.Compile(pattern, 1), RegexOk);
        EXPECT_EQ(disassemble(program), expected) << ::testing::PrintToString(pattern);
    }
}

TEST(RegexCompiler, GivesTheCodeOfTheFirstError) {
    const std::pair<RegexResult, const WCHAR *> cases[] = {
        {RegexOk, TEXT("[^-] {a\\0} {a?}? (a+)* ()* (\\.)* a**")},
        {RegexBraceExpected, TEXT("{a {a)}")},
        {RegexParenExpected, TEXT("(a (a}")},
        {RegexBracketExpected, TEXT("[ [a [a- [a-] [a\\ ([")},
        {RegexBadAbbreviation, TEXT("a\\")},
        {RegexEmptySet, TEXT("[] [^]")},
        {RegexBadGroup, TEXT("\\1 {a}\\1 {a}\\4294967296 {a}\\18446744073709551616")},
        {RegexBadRange, TEXT("[z-a] [z-a")},
        {RegexEmptyRepeat,
         TEXT("{a*}* {a?}+ (a*b*)+? (a|b?)*? (a?|b)* (a?|b|c)* (a+?)* (a*\\.)* {a*}*[")}};
    CompiledPattern program;
    for (const auto &[code, patterns] : cases) {
        for (const std::u16string &pattern : test::split(patterns)) {
            EXPECT_EQ(program.Compile(pattern.c_str(), 1), code)
                << ::testing::PrintToString(pattern);
            EXPECT_EQ(program.lastError, code);
        }
    }
    EXPECT_EQ(program.Compile(nullptr, 1), RegexNullPattern);
}

TEST(RegexCompiler, FoldsTheWholePatternWhenCasePlaysNoPart) {
    CompiledPattern folded;
    CompiledPattern lower;
    EXPECT_EQ(folded.Compile(TEXT("[a-Z]"), 1), RegexBadRange);
    ASSERT_EQ(folded.Compile(TEXT("\\D[a-Z]X\\A"), 0), RegexOk);
    ASSERT_EQ(lower.Compile(TEXT("\\d[a-z]x\\a"), 1), RegexOk);
    EXPECT_EQ(disassemble(folded), disassemble(lower));
    EXPECT_EQ(folded.caseSensitive, 0);
}

std::u16string repeat(std::size_t count, const std::u16string &part) {
    std::u16string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += part;
    }
    return text;
}

// A compiler that reads a bracket again for each quantifier and `|` around it, or moves what stands
// within for each of them, would not end, and one that calls itself has no stack for that.
TEST(RegexCompiler, DeepAndLongPatternsGiveAResult) {
    constexpr std::size_t kMany = 100000;
    struct Case {
        std::size_t depth;
        const WCHAR *open, *middle, *close;
        RegexResult code;
        std::size_t size;  // of the program
    };
    const Case cases[] = {
        {200, TEXT("{b"), TEXT("a"), TEXT("}*|c"), RegexOk, 200 * 23 + 4},
        {16, TEXT("("), TEXT("a"), TEXT(")+"), RegexOk, 65536 * 15 - 11},
        {200, TEXT("("), TEXT("a"), TEXT(")+"), RegexOutOfMemory, 0},
        {kMany, TEXT("{b"), TEXT("a"), TEXT("}*?"), RegexOk, kMany * 9 + 4},
        {kMany, TEXT("("), TEXT("a"), TEXT(")?\?"), RegexOk, kMany * 3 + 4},
        {kMany, TEXT("!"), TEXT("a"), TEXT(""), RegexOk, kMany * 9 + 4},
        {kMany, TEXT("a|"), TEXT("a"), TEXT(""), RegexOk, kMany * 6 + 4},
        {kMany, TEXT("a|"), TEXT(""), TEXT(""), RegexOk, 3},
        {kMany, TEXT("[a-z]"), TEXT(""), TEXT(""), RegexOk, kMany * 3 + 3},
    };
    const std::clock_t start = std::clock();
    for (const auto &[depth, open, middle, close, code, size] : cases) {
        CompiledPattern program;
        EXPECT_EQ(program.Compile((repeat(depth, open) + middle + repeat(depth, close)).c_str(), 1),
                  code);
        EXPECT_EQ(program.instructions.Count(), size) << ::testing::PrintToString(open);
    }
    // Of the processor, which other programs do not add to; it takes a few seconds.
    EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 120);
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
