#include "ostrel/core/format_estimate.h"

#include <cfloat>

#include "ostrel/platform/codepage.h"
#include "support/test.h"

namespace {

using OS::detail::FormatEstimate;

template <class Char>
FormatEstimate estimate(const Char *format, ...) {
    std::va_list args;
    va_start(args, format);
    const FormatEstimate result = OS::detail::estimate_format(format, &args);
    va_end(args);
    return result;
}

#define EXPECT_TOTAL(expected, ...)                                                  \
    EXPECT_EQ(estimate(__VA_ARGS__).total, std::uint64_t{expected}) << #__VA_ARGS__; \
    EXPECT_TRUE(estimate(__VA_ARGS__).complete) << #__VA_ARGS__

TEST(FormatEstimate, AddsUpTheTotals) {
    // Plain text: each character counts with the rest of the format.
    EXPECT_TOTAL(4 + 3 + 32, "x=%d", 5);
    EXPECT_TOTAL(5 + 4 + 3 + 1, TEXT("100%%"));
    EXPECT_TOTAL(8 + 7 + 2, "ab%#-5.3");
    // Strings: at least 1, at most the precision, at least the width.
    EXPECT_TOTAL(6 + 3, "%s%.3s", nullptr, nullptr);
    EXPECT_TOTAL(1 + 5 + 5 + 1 + 1, "%s%5s%5.1s%.1s%.0s", "", "ab", "ab", "ab", "ab");
    EXPECT_TOTAL(3 + 1 + 3 + 1 + 3 + 1, TEXT("%s%S%ls%hs%lS%hS"), TEXT("abc"), "a", TEXT("abc"),
                 "a", TEXT("abc"), "a");
    EXPECT_TOTAL(3 + 1 + 3 + 1 + 3 + 1, "%S%s%ls%hs%lS%hS", TEXT("abc"), "a", TEXT("abc"), "a",
                 TEXT("abc"), "a");
    EXPECT_TOTAL(2 + 2 + 9 + 3, "%c%lc%9C%Fs", 'a', TEXT('a'), TEXT('a'), "abc");
    // Numbers: 32 or 128, unless width and precision ask for more.
    EXPECT_TOTAL(40 + 40 + 32, "%040d%30.10d%10.5d", 1, 1, 1);
    EXPECT_TOTAL(2 + 32 + 2 + 2 + 32 + 32, "%#x%##o%-+ 0p", 1, 1, nullptr);
    EXPECT_TOTAL(128 + 128 + 130, "%e%g%100.30G", 1.0, 1.0, 1.0);
    EXPECT_TOTAL(50 + 3 + 32, "%*d%.*s%*5d", 50, 1, 3, "abcdef", 0, 1);
    EXPECT_TOTAL(0 + 3, "%n%s", nullptr, "abc");
}

// A double is measured with six digits more than asked for, and as it is rounded.
TEST(FormatEstimate, MeasuresDoublesAsThePrinterDoes) {
    EXPECT_TOTAL(8 + 9 + 9 + 9, "%f%f%f%f", 9.5, -9.5, -0.0, 9.9999999);
    EXPECT_TOTAL(7 + 16 + 309 + 7, "%f%f", 1e15, DBL_MAX);
    EXPECT_TOTAL(10 + 17 + 30, "%.2f%.9f%30f", 0.999999999, 0.999999999, 1.5);
}

TEST(FormatEstimate, StopsAtWhatItDoesNotMeasure) {
    EXPECT_EQ(estimate("ab%E%s", 1.0, "x").total, 6u + 5u);
    for (const char *format : {"%E", "%lld", "%I64d", "%a", "%y", "%hhd", "%zu", "%Fz"}) {
        EXPECT_FALSE(estimate(format, 1LL).complete) << format;
    }
    EXPECT_FALSE(estimate("%*s", -5, "x").complete || estimate("%.*s", -1, "x").complete);
}

// A character counts once, with all its bytes, and wide text with the bytes that it becomes.
TEST(FormatEstimate, StepsByCharacterOfTheCodePage) {
    const bool shift_jis = GetACP() == 932;
    EXPECT_TOTAL((shift_jis ? 3u : 4u) + 1, shift_jis ? "\x83\x5C!" : "\xE3\x82\xBD!");
    EXPECT_TOTAL((shift_jis ? 6u : 9u), "%S%C", TEXT("\u30BD\u6F22"), TEXT('\u6F22'));
}

}  // namespace
