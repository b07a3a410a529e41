// The pattern engine when memory runs out.

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "ostrel/regex/regex_matcher.h"
#include "ostrel/regex/regex_program.h"
#include "ostrel/regex/validators.h"
#include "support/failing_memory.h"

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
    std::u16string deep;
    for (int i = 0; i < 3000; ++i) {
        deep += u"{a";
    }
    deep.append(3000, u'}');
    // A failure within an abbreviation has a code of its own.
    const std::u16string abbreviation = std::u16string(kLocalInstructions - 2, u'a') + u"\\d";
    const std::tuple<std::u16string, int, RegexResult, int> cases[] = {
        {deep, 0, RegexOutOfMemory, 6},
        {deep, 1, RegexOutOfMemory, 5},
        {abbreviation, 1, RegexBadAbbreviation, 1}};
    for (const auto &[pattern, case_sensitive, code, failures] : cases) {
        EXPECT_GE(
            fail_each_allocation([&, &text = pattern, sensitive = case_sensitive, failed = code] {
                CompiledPattern program;
                const int result = program.Compile(text.c_str(), sensitive);
                EXPECT_TRUE(result == RegexOk || result == failed) << result;
                return result == RegexOk;
            }),
            failures);
    }
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
        // No place in the copy is handed out.
        const Capture *const group = context.groupCount != 0 ? &context.groups[0] : nullptr;
        for (const WCHAR *at :
             {context.matchStart, context.matchEnd, group != nullptr ? group->start : nullptr}) {
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

    const std::u16string path = u"C:\\Program Files\\a\\";
    failing_memory::fail_after(0);
    EXPECT_TRUE(VerifyEMailAddress(TEXT("j.smith@mail.example.com")));
    EXPECT_TRUE(CheckPathFormat(path.data(), path.size()));
    EXPECT_FALSE(failing_memory::has_failed());
    failing_memory::fail_after(-1);
}

}  // namespace
