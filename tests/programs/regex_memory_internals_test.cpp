// The pattern engine when memory runs out.

#include "ostrel/regex/regex_matcher.h"
#include "ostrel/regex/regex_program.h"
#include "ostrel/regex/validators.h"
#include "support/failing_memory.h"
#include "support/test.h"

namespace {

using namespace OS::regex;

// Runs `call` with each of its allocations failing in turn until one run needs no more; that one
// alone must be complete. Result: how many failed.
template <class Call>
int fail_each_allocation(Call call) {
    for (int failing = 0;; ++failing) {
        failing_memory::fail_after(failing);
        const bool complete = call();
        const bool failed = failing_memory::has_failed();
        failing_memory::fail_after(-1);
        EXPECT_EQ(complete, !failed) << failing;
        if (!failed) {
            return failing;
        }
    }
}

TEST(RegexMemory, CompilingEndsWithItsCode) {
    const auto failures = [](const std::u16string &pattern, int caseSensitive, RegexResult code) {
        return fail_each_allocation([&] {
            CompiledPattern program;
            const int result = program.Compile(pattern.c_str(), caseSensitive);
            EXPECT_TRUE(result == RegexOk || result == code) << result;
            return result == RegexOk;
        });
    };
    const std::u16string deep = std::u16string(3000, u'{') + u'a' + std::u16string(3000, u'}');
    EXPECT_GE(failures(deep, 0, RegexOutOfMemory), 6);
    // A failure within an abbreviation has a code of its own.
    const std::u16string abbreviation = std::u16string(kLocalInstructions - 2, u'a') + u"\\d";
    EXPECT_GE(failures(abbreviation, 1, RegexBadAbbreviation), 1);
}

TEST(RegexMemory, MatchingEndsWithoutAMatch) {
    const std::u16string text = std::u16string(5000, u'A') + u"b";
    CompiledPattern program;
    ASSERT_EQ(program.Compile(TEXT("^{a}*b$"), 0), RegexOk);
    const int failures = fail_each_allocation([&] {
        MatchContext context(0);
        const WCHAR *stopped = text.c_str();
        const bool matched = program.Match(text.c_str(), &context, &stopped) != 0;
        EXPECT_EQ(stopped != nullptr, matched);
        for (const WCHAR *at : {context.matchStart, context.matchEnd}) {  // none in the copy
            EXPECT_TRUE(at == nullptr || (at >= text.c_str() && at <= &text.back() + 2));
        }
        return matched;
    });
    EXPECT_GT(failures, 5);
}

TEST(RegexMemory, LongAddressesGiveFalseAndOrdinaryTextsNeedNone) {
    const std::u16string address = std::u16string(5000, u'a') + u"@b.com";
    const int failures = fail_each_allocation([&] { return VerifyEMailAddress(address.c_str()); });
    EXPECT_GT(failures, 5);

    failing_memory::fail_after(0);
    EXPECT_TRUE(VerifyEMailAddress(TEXT("j.smith@mail.example.com")));
    EXPECT_TRUE(CheckPathFormat(TEXT("C:\\Program Files\\a\\"), 19));
    EXPECT_FALSE(failing_memory::has_failed());
    failing_memory::fail_after(-1);
}

}  // namespace
