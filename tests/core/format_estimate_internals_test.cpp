#include "ostrel/core/format_estimate.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <string>

#include "ostrel/platform/codepage.h"
#include "ostrel/platform/printf.h"

namespace {

using OS::detail::FormatEstimate;

template <class Char>
FormatEstimate estimate(const Char *format, ...) {
    std::va_list args;
    va_start(args, format);
    const FormatEstimate result = OS::detail::estimate_format(format, args);
    va_end(args);
    return result;
}

// The length of "%*.*f".
std::uint64_t trial(const char *format, ...) {
    std::va_list args;
    va_start(args, format);
    const int length = _vscprintf(format, args);
    va_end(args);
    return static_cast<std::uint64_t>(length);
}

#define EXPECT_TOTAL(expected, ...)                                       \
    do {                                                                  \
        const FormatEstimate result = estimate(__VA_ARGS__);              \
        EXPECT_EQ(result.total, std::uint64_t{expected}) << #__VA_ARGS__; \
        EXPECT_TRUE(result.complete) << #__VA_ARGS__;                     \
    } while (false)

TEST(FormatEstimate, AddsUpTheTotals) {
    // Plain text: each character counts with the rest of the format.
    EXPECT_TOTAL(0, "");
    EXPECT_TOTAL(4 + 3 + 32, "x=%d", 5);
    EXPECT_TOTAL(5 + 4 + 3 + 1, "100%%");
    EXPECT_TOTAL(4 + 3 + 32, TEXT("x=%d"), 5);
    EXPECT_TOTAL(3 + 2 + 0, "ab%");
    EXPECT_TOTAL(2, "%#-5.3");
    // Strings: at least 1, at most the precision, at least the width.
    EXPECT_TOTAL(6, "%s", nullptr);
    EXPECT_TOTAL(3, "%.3s", nullptr);
    EXPECT_TOTAL(1, "%s", "");
    EXPECT_TOTAL(5, "%5s", "ab");
    EXPECT_TOTAL(5, "%5.1s", "ab");
    EXPECT_TOTAL(1, "%.1s", "ab");
    EXPECT_TOTAL(2, "%.0s", "ab");
    EXPECT_TOTAL(3 + 3, TEXT("%s%S"), TEXT("abc"), "abc");
    EXPECT_TOTAL(3 + 4 + 3 + 4, TEXT("%hs%ls%hS%lS"), "abc", TEXT("abcd"), "abc", TEXT("abcd"));
    EXPECT_TOTAL(3 + 4 + 3 + 4, "%hs%ls%hS%lS", "abc", TEXT("abcd"), "abc", TEXT("abcd"));
    EXPECT_TOTAL(2 + 2 + 9, "%c%lc%9C", 'a', TEXT('a'), TEXT('a'));
    EXPECT_TOTAL(3 + 3 + 3, TEXT("%Fs%Ls%Ns"), TEXT("abc"), TEXT("abc"), TEXT("abc"));
    // Numbers: 32 or 128, unless width and precision ask for more.
    EXPECT_TOTAL(40, "%040d", 1);
    EXPECT_TOTAL(40, "%30.10d", 1);
    EXPECT_TOTAL(32, "%10.5d", 1);
    EXPECT_TOTAL(2 + 32, "%#x", 1);
    EXPECT_TOTAL(2 + 2 + 32 + 32, "%##o%-+ 0p", 1, nullptr);
    EXPECT_TOTAL(128 + 128 + 130, "%e%g%100.30G", 1.0, 1.0, 1.0);
    EXPECT_TOTAL(50 + 3, "%*d%.*s", 50, 1, 3, "abcdef");
    EXPECT_TOTAL(32, "%*5d", 0, 1);
    EXPECT_TOTAL(0 + 32, "%n%d", nullptr, 1);
    // A double is measured with six digits more than asked for.
    EXPECT_TOTAL(trial("%*.*f", 0, 6, 1.5), "%f", 1.5);
    EXPECT_TOTAL(trial("%*.*f", 10, 8, 1.5), "%*.*f", 10, 2, 1.5);
    EXPECT_TOTAL(309 + 7, "%f", 1e308);
}

TEST(FormatEstimate, MeasuresDoublesAsThePrinterDoes) {
    const double values[] = {0.0,
                             -0.0,
                             0.5,
                             0.4999999999,
                             0.9999999999,
                             9.5,
                             9.9999995,
                             99.99999999999,
                             999999.9999999999,
                             123456789012.75,
                             999999999999999.0,
                             1e15,
                             1e22,
                             DBL_MAX,
                             DBL_MIN,
                             -1.5,
                             -9.99999999999};
    for (const double value : values) {
        for (const int width : {0, 5, 30}) {
            for (const int precision : {0, 2, 9}) {
                EXPECT_TOTAL(trial("%*.*f", width, precision + 6, value), "%*.*f", width, precision,
                             value);
            }
        }
    }
}

TEST(FormatEstimate, StopsAtWhatItDoesNotMeasure) {
    const FormatEstimate unlisted = estimate("ab%E%s", 1.0, "x");
    EXPECT_EQ(unlisted.total, 6u + 5u);
    EXPECT_FALSE(unlisted.complete);
    for (const char *format : {"%lld", "%I64d", "%a", "%y", "%hhd", "%zu", "%Fz"}) {
        EXPECT_FALSE(estimate(format, 1LL).complete) << format;
    }
    EXPECT_FALSE(estimate("%*s", -5, "x").complete);
    EXPECT_FALSE(estimate("%.*s", -1, "x").complete);
}

// A character counts once, with all its bytes, and wide text with the bytes that it becomes.
TEST(FormatEstimate, StepsByCharacterOfTheCodePage) {
    const bool shift_jis = GetACP() == 932;
    const char *const format = shift_jis ? "\x83\x5C!" : "\xE3\x82\xBD!";
    EXPECT_TOTAL((shift_jis ? 3u : 4u) + 1, format);
    EXPECT_TOTAL((shift_jis ? 4u : 6u), "%S", TEXT("\u30BD\u6F22"));
    EXPECT_TOTAL((shift_jis ? 2u : 3u), "%C", TEXT('\u6F22'));
}

}  // namespace
