#include <gtest/gtest.h>

#include <cfloat>
#include <thread>

#include "ostrel/core/x_string.h"
#include "ostrel/platform/codepage.h"
#include "support/text.h"

using OS::x_astring;
using OS::x_wstring;

namespace {

TEST(Format, FollowsThePlatformsWidths) {
    EXPECT_EQ(wide(TEXT("%s|%S|%hs|%hS|%ls|%lS"), TEXT("a"), "b", "c", "d", TEXT("e"), TEXT("f")),
              TEXT("a|b|c|d|e|f"));
    EXPECT_EQ(narrow("%s|%S|%hs|%hS|%ls|%lS", "a", TEXT("b"), "c", "d", TEXT("e"), TEXT("f")),
              "a|b|c|d|e|f");
    EXPECT_EQ(wide(TEXT("%c%C%hc%hC%lc%lC"), TEXT('a'), 'b', 'c', 'd', TEXT('e'), TEXT('f')),
              TEXT("abcdef"));
    EXPECT_EQ(narrow("%c%C%hc%hC%lc%lC", 'a', TEXT('b'), 'c', 'd', TEXT('e'), TEXT('f')), "abcdef");
    EXPECT_EQ(wide(TEXT("%04i-%02i|%-5s|%5.1s|%Fs|%Ns|%Ld"), 7, 3, TEXT("ab"), TEXT("xy"),
                   TEXT("far"), TEXT("near"), 5),
              TEXT("0007-03|ab   |    x|far|near|5"));
    EXPECT_EQ(wide(TEXT("%s %.3s %S"), nullptr, nullptr, nullptr), TEXT("(null) (nu (null)"));
}

TEST(Format, ReplacesTheContentAndReadsItFirst) {
    x_wstring text(TEXT("old"));
    text.Format(TEXT("<%s%s>"), text.c_str(), text.c_str() + 1);
    EXPECT_EQ(text, TEXT("<oldld>"));
    text.Format(TEXT(""));
    EXPECT_TRUE(text.IsEmpty());
    x_astring bytes("old");
    bytes.Format("%s%s", bytes.c_str(), bytes.c_str());
    EXPECT_EQ(bytes, "oldold");
    EXPECT_EQ(wide(TEXT("ab%ccd"), 0), TEXT("ab"));  // behind a NUL nothing is kept
}

TEST(Format, FitsTheLargestValues) {
    EXPECT_EQ(wide(TEXT("%f"), DBL_MAX).GetLength(), 309u + 7);
    EXPECT_EQ(narrow("%f", -DBL_MAX).GetLength(), 310u + 7);
    EXPECT_EQ(narrow("%.2f", 9.996), "10.00");
    EXPECT_EQ(narrow("%*.*f|", 10, 2, 1.5), "      1.50|");
    EXPECT_EQ(narrow("%3000d", 7).GetLength(), 3000u);
    EXPECT_EQ(wide(TEXT("%.3000f"), 0.5).GetLength(), 3002u);
    const std::u16string long_text(100000, u'x');
    EXPECT_EQ(wide(TEXT("%s%s"), long_text.c_str(), long_text.c_str()).GetLength(), 200000u);
}

TEST(Format, TakesAMillionPlainCharacters) {
    std::u16string format(1000000, u'x');
    format += TEXT("%d%%");
    const x_wstring text = wide(format.c_str(), 42);
    EXPECT_EQ(text.GetLength(), 1000003u);
    EXPECT_EQ(text.substr(999999), TEXT("x42%"));
    EXPECT_EQ(narrow(std::string(1000000, 'x').c_str()).GetLength(), 1000000u);
}

// The pass that measures does not know these. It must not take a value for the wrong one: a %s that
// follows would be read from a number.
TEST(Format, PrintsConversionsThatItDoesNotMeasure) {
    const long long big = 1LL << 40;
    EXPECT_EQ(wide(TEXT("%lld %s"), big, TEXT("t")), TEXT("1099511627776 t"));
    EXPECT_EQ(wide(TEXT("%I64d %I64x %s"), big, big, TEXT("t")),
              TEXT("1099511627776 10000000000 t"));
    EXPECT_EQ(narrow("%.1E %a %zu %s", 12345.0, 1.0, std::size_t{9}, "t"),
              "1.2E+04 0x1.0000000000000p+0 9 t");
    EXPECT_EQ(narrow("%hhd %ws %s", 257, TEXT("w"), "t"), "1 w t");
    EXPECT_EQ(narrow("%*d|%.*d|%s", -5, 42, -1, 7, "t"), "42   |7|t");
}

TEST(Format, EndsAtAConversionThatThePlatformRefuses) {
    EXPECT_EQ(narrow("abc%"), "abc");
    EXPECT_EQ(narrow("abc%-5.2"), "abc");
    EXPECT_EQ(wide(TEXT("abc %y %s"), nullptr), TEXT("abc "));
    EXPECT_EQ(narrow((std::string(5000, 'x') + "%y").c_str()), std::string(5000, 'x'));
}

TEST(Format, StoresNothingForN) {
    int untouched = 77;
    EXPECT_EQ(wide(TEXT("a%nb%d"), &untouched, 5), TEXT("ab5"));
    EXPECT_EQ(untouched, 77);
}

// Runs under UTF-8 and under 932. Text of the other width is converted in the system code page, and
// a wide text that takes more bytes than it has units fits.
TEST(Format, ConvertsInTheCodePage) {
    const bool shift_jis = GetACP() == 932;
    const char *const bytes = shift_jis ? "\x83\x5C\x8A\xBF" : "\xE3\x82\xBD\xE6\xBC\xA2";
    const WCHAR *const units = TEXT("\u30BD\u6F22");
    EXPECT_EQ(narrow("%S", units), bytes);
    EXPECT_EQ(wide(TEXT("%S"), bytes), units);
    EXPECT_EQ(narrow("[%C%.1S]", units[0], units + 1), std::string("[") + bytes + "]");
    // In 932 the second byte of the first character is a backslash, of "\x8A%" none: a format goes
    // by characters.
    EXPECT_EQ(narrow((std::string(bytes) + "%d%%").c_str(), 5), std::string(bytes) + "5%");
    std::u16string many;
    std::string expected;
    for (int i = 0; i < 3000; ++i) {
        many += units;
        expected += bytes;
        if (i % 100 == 0) {
            ASSERT_EQ(narrow("%S", many.c_str()), expected);
            ASSERT_EQ(wide(TEXT("%S"), expected.c_str()), many);
        }
    }
}

TEST(Format, RunsOnManyThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 2000; ++i) {
                ASSERT_EQ(narrow("%d %S %.2f", t, TEXT("\u00E4"), i / 4.0),
                          narrow("%i %s %#.2f", t, narrow("%S", TEXT("\u00E4")).c_str(), i / 4.0));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

}  // namespace
