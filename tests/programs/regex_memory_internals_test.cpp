// The pattern engine when memory runs out.

#include <gtest/gtest.h>

#include <string>

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
    std::u16string pattern;
    for (int i = 0; i < 3000; ++i) {
        pattern += u"{a";
    }
    pattern += std::u16string(3000, u'}');
    for (const int case_sensitive : {0, 1}) {
        const int failures = fail_each_allocation([&] {
            CompiledPattern program;
            const int result = program.Compile(pattern.c_str(), case_sensitive);
            EXPECT_TRUE(result == RegexOk || result == RegexOutOfMemory) << result;
            return result == RegexOk;
        });
        EXPECT_GT(failures, 5);
    }
}

// Wherever the program's memory ends: a failure within an abbreviation has a code of its own.
TEST(RegexMemory, AbbreviationsHaveTheirOwnCode) {
    int within = 0;
    for (std::size_t length = 0; length < 600; ++length) {
        const std::u16string pattern = std::u16string(length, u'a') + u"\\d";
        fail_each_allocation([&] {
            CompiledPattern program;
            const int result = program.Compile(pattern.c_str(), 1);
            within += result == RegexBadAbbreviation ? 1 : 0;
            return result == RegexOk;
        });
    }
    EXPECT_GT(within, 0);
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
        const WCHAR *const end = text.c_str() + text.size() + 2;
        const auto within = [&](const WCHAR *at) {
            return at == nullptr || (at >= text.c_str() && at <= end);
        };
        EXPECT_TRUE(within(context.matchStart) && within(context.matchEnd));
        if (context.groupCount != 0) {
            EXPECT_TRUE(within(context.groups[0].start) && within(context.groups[0].end));
        }
        return matched;
    });
    EXPECT_GT(failures, 5);
}

TEST(RegexMemory, AddressesThatNeedMemoryGiveFalse) {
    const std::u16string address = std::u16string(5000, u'a') + u"@b.com";
    const int failures = fail_each_allocation([&] { return VerifyEMailAddress(address.c_str()); });
    EXPECT_GT(failures, 5);
}

// An ordinary text needs none.
TEST(RegexMemory, TheValidatorsNeedNoneForAnOrdinaryText) {
    const std::u16string path = u"C:\\Program Files\\a\\";
    failing_memory::fail_after(0);
    EXPECT_TRUE(VerifyEMailAddress(TEXT("j.smith@mail.example.com")));
    EXPECT_TRUE(CheckPathFormat(path.data(), path.size()));
    EXPECT_FALSE(failing_memory::has_failed());
    failing_memory::fail_after(-1);
}

}  // namespace
