// The sizes of the programs that patterns compile to, and the errors of those that do not compile.

#include <sstream>

#include "ostrel/regex/regex_program.h"
#include "support/test.h"

namespace {

using namespace OS::regex;

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
    } cases[] = {{200, u"{b", u"a", u"}*|c", RegexOk, 200 * 23 + 4},
                 {16, u"(", u"a", u")+", RegexOk, 65536 * 15 - 11},
                 {200, u"(", u"a", u")+", RegexOutOfMemory, 0},
                 // An error is met before what makes the program too long, or behind it.
                 {200, u"(", u"[z-a]", u")+", RegexBadRange, 0},
                 {20, u"(", too_long, u"[z-a])", RegexOutOfMemory, 0},
                 {kMany, u"{b", u"a", u"}*?", RegexOk, kMany * 9 + 4},
                 {kMany, u"!", u"a", u"", RegexOk, kMany * 9 + 4},
                 {kMany, u"a|", u"a", u"", RegexOk, kMany * 6 + 4},
                 {kMany, u"[a-z]", u"", u"", RegexOk, kMany * 3 + 3}};
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
