// The programs that patterns compile to, and the errors of those that do not compile.

#include <sstream>

#include "ostrel/regex/regex_program.h"
#include "support/test.h"

namespace {

using namespace OS::regex;

// "Call 2; Fail; Symbol a; Match; 0 groups, 0 slots": an operand of 0 is left out, that of a Symbol
// is the character.
std::string disassemble(const CompiledPattern &program) {
    constexpr const char *kNames[] = {
        "Nop",      "GroupStart", "GroupEnd",  "Symbol",    "Any",        "Range",      "NotRange",
        "Jump",     "PushPos",    "PopPos",    "Call",      "Return",     "PushMemory", "PopMemory",
        "StorePos", "StoreStack", "LoadPos",   "LoadStack", "NoProgress", "Again",      "Fail",
        "Advance",  "Match",      "PushGroup", "PopGroup"};
    std::ostringstream text;
    for (std::size_t i = 0; i < program.instructions.Count(); ++i) {
        const auto &[kind, operand] = program.instructions[i];
        text << kNames[kind];
        if (kind == OpSymbol && operand != 0) {
            text << ' ' << static_cast<char>(operand);
        } else if (operand != 0) {
            text << ' ' << operand;
        }
        text << "; ";
    }
    text << program.groupCount << " groups, " << program.memoryCount << " slots";
    return text.str();
}

TEST(RegexCompiler, WritesTheseProgramsInstructionForInstruction) {
    const std::pair<const WCHAR *, const char *> cases[] = {
        {TEXT("^a?.+"),
         "Call 2; Fail; PushMemory; StorePos; PushPos; Call 9; PopPos; PopMemory; Jump 12; "
         "Symbol a; NoProgress; StorePos; Any; PushMemory 1; StorePos 1; PushPos; Call 20; PopPos; "
         "PopMemory 1; Jump 24; Any; NoProgress 1; StorePos 1; Jump 13; Match; 0 groups, 2 slots"},
        // The slot of a loop comes before those of its body, and both bodies of a + have their own.
        {TEXT("^!a+"),
         "Call 2; Fail; StorePos; StoreStack 1; Call 8; LoadPos; LoadStack 1; Jump 12; Symbol a; "
         "LoadPos; LoadStack 1; Return; PushMemory 2; StorePos 2; PushPos; Call 19; PopPos; "
         "PopMemory 2; Jump 32; StorePos 3; StoreStack 4; Call 25; LoadPos 3; LoadStack 4; "
         "Jump 29; Symbol a; LoadPos 3; LoadStack 4; Return; NoProgress 2; StorePos 2; Jump 12; "
         "Match; 0 groups, 5 slots"},
        {TEXT("[^\\t\\]a-c-][Z-\\]"),
         "Call 2; Advance; NotRange 11; Nop 9; Nop 9; Nop 93; Nop 93; Nop 97; Nop 99; Nop 45; "
         "Nop 45; Range 14; Nop 90; Nop 92; Match; 0 groups, 0 slots"},
        {TEXT("a(b*|)c|!"),
         "Call 2; Advance; Symbol a; Call 5; Return; Nop; Match; 0 groups, 0 slots"},
    };
    CompiledPattern program;  // a compilation begins anew
    for (const auto &[pattern, expected] : cases) {
        ASSERT_EQ(program.Compile(pattern, 1), RegexOk);
        EXPECT_EQ(disassemble(program), expected) << PrintToString(pattern);
    }
}

TEST(RegexCompiler, GivesTheCodeOfTheFirstError) {
    const std::pair<RegexResult, const char *> cases[] = {
        {RegexOk, "[^-] [a-a] {a\\0} {a?}? (a+)* ()* (\\.)* a**"},
        {RegexBraceExpected, "{a {a)}"},
        {RegexParenExpected, "(a (a}"},
        {RegexBracketExpected, "[ [a [a- [a-] [a\\ (["},
        {RegexBadAbbreviation, "a\\"},
        {RegexEmptySet, "[] [^]"},
        {RegexBadGroup, "\\1 {a}\\1 {a}\\4294967296 {a}\\18446744073709551616"},
        {RegexBadRange, "[z-a] [z-a [a-Z]"},
        {RegexEmptyRepeat,
         "{a*}* {a?}+ (a*b*)+? (a|b?)*? (a?|b)* (a?|b|c)* (a+?)* (a*\\.)* {a*}*["}};
    CompiledPattern program;
    for (const auto &[code, patterns] : cases) {
        std::istringstream words(patterns);
        for (std::string pattern; words >> pattern;) {
            const std::u16string wide(pattern.begin(), pattern.end());
            EXPECT_EQ(program.Compile(wide.c_str(), 1), code) << pattern;
            EXPECT_EQ(program.lastError, code);
        }
    }
    EXPECT_EQ(program.Compile(nullptr, 1), RegexNullPattern);
}

// A compiler that reads a bracket again for each quantifier and `|` around it, or moves what stands
// within for each of them, would not end, and one that calls itself has no stack for that.
TEST(RegexCompiler, DeepAndLongPatternsGiveAResult) {
    constexpr std::size_t kMany = 100000;
    std::u16string too_long = u"a";
    for (int i = 0; i < 40; ++i) {
        too_long = u'(' + too_long + u")+";
    }
    const struct {
        std::size_t depth;
        std::u16string open, middle, close;
        RegexResult code;
        std::size_t size;  // of the program
    } cases[] = {
        {200, u"{b", u"a", u"}*|c", RegexOk, 200 * 23 + 4},
        {16, u"(", u"a", u")+", RegexOk, 65536 * 15 - 11},
        {200, u"(", u"a", u")+", RegexOutOfMemory, 0},
        // An error is met before what makes the program too long, or behind it.
        {200, u"(", u"[z-a]", u")+", RegexBadRange, 0},
        {200, u"{", u"\\200", u"}+?", RegexBadGroup, 0},
        {200, u"(", u"a?", u")+", RegexEmptyRepeat, 0},
        {20, u"(", too_long, u"[z-a])", RegexOutOfMemory, 0},
        {kMany, u"{b", u"a", u"}*?", RegexOk, kMany * 9 + 4},
        {kMany, u"!", u"a", u"", RegexOk, kMany * 9 + 4},
        {kMany, u"a|", u"a", u"", RegexOk, kMany * 6 + 4},
        {kMany, u"a|", u"", u"", RegexOk, 3},
        {kMany, u"[a-z]", u"", u"", RegexOk, kMany * 3 + 3},
    };
    CompiledPattern program;
    for (const auto &c : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(c.depth, c.open, c.middle, c.close)));
        std::u16string open, close;
        for (std::size_t i = 0; i < c.depth; ++i) {
            open += c.open;
            close += c.close;
        }
        EXPECT_EQ(program.Compile((open + c.middle + close).c_str(), 1), c.code);
        EXPECT_EQ(program.instructions.Count(), c.size);
    }
}

}  // namespace
