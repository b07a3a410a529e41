#include "ostrel/platform/codepage.h"
#include "support/text.h"

namespace {

TEST(Format, FollowsThePlatformsWidths) {
    EXPECT_EQ(formatted(TEXT("%s%S%c%C %-5s|"), u"wi", "na", u'w', 'n', u"x"), u"winawn x    |");
    EXPECT_EQ(formatted("%s%S%c%C %hs%ls", "na", u"wi", 'n', u'w', "n", u"w"), "nawinw nw");
    EXPECT_EQ(formatted(TEXT("%s %.3s %S"), nullptr, nullptr, nullptr), TEXT("(null) (nu (null)"));
}

TEST(Format, ReplacesTheContentAndReadsItFirst) {
    OS::x_wstring text(TEXT("old"));
    text.Format(TEXT("<%s%s>"), text.c_str(), text.c_str() + 1);
    EXPECT_EQ(text, TEXT("<oldld>"));
    text.Format(TEXT(""));
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_EQ(formatted(TEXT("ab%ccd"), 0), TEXT("ab"));  // behind a NUL nothing is kept
}

TEST(Format, FitsLongTexts) {
    const std::vector<char> unterminated(3, 'u');  // read no further than the precision
    EXPECT_EQ(formatted("%.3s|%.*s", unterminated.data(), 0, unterminated.data()), "uuu|");
    // A byte that begins a character in no code page, or has no second one, hides no conversion.
    EXPECT_EQ(formatted("\x83%d%s", 5, "x"), "\x83\x35x");
    // Longer than the estimate says: the precision alone makes it.
    EXPECT_EQ(formatted("%+.40d", 7), "+" + std::string(39, '0') + "7");
    const std::u16string million(1000000, u'x');
    EXPECT_EQ(formatted(TEXT("%s%s%d%%"), million.c_str(), million.c_str(), 42).substr(1999999),
              TEXT("x42%"));
}

// The pass that measures does not know these. It must not take a value for the wrong one: a %s that
// follows would be read from a number.
TEST(Format, PrintsConversionsThatItDoesNotMeasure) {
    const long long big = 1LL << 40;
    EXPECT_EQ(formatted(TEXT("%lld %I64x %s"), big, big, TEXT("t")),
              TEXT("1099511627776 10000000000 t"));
    EXPECT_EQ(formatted("%.1E %hhd %zu %s", 12345.0, 257, std::size_t{9}, "t"), "1.2E+04 1 9 t");
    EXPECT_EQ(formatted("%*d|%s", -5, 42, "t"), "42   |t");
    // A conversion that the platform refuses ends the text.
    EXPECT_EQ(formatted("abc%") + formatted("abc%-5.2"), "abcabc");
    EXPECT_EQ(formatted(TEXT("abc %y %s"), nullptr), TEXT("abc "));
    for (const std::size_t length : {2047u, 2048u, 8192u, 50000u}) {
        EXPECT_EQ(formatted((std::string(length, 'x') + "%y").c_str()), std::string(length, 'x'))
            << length;
    }
}

// Runs under UTF-8 and under 932. Text of the other width is converted in the system code page, and
// a wide text that takes more bytes than it has units fits.
TEST(Format, ConvertsInTheCodePage) {
    const std::string bytes = GetACP() == 932 ? "\x83\x5C\x8A\xBF" : "\xE3\x82\xBD\xE6\xBC\xA2";
    const std::u16string units = u"\u30BD\u6F22";
    EXPECT_EQ(formatted("[%C%.1S]", units[0], &units[1]), "[" + bytes + "]");
    // In 932 the first character ends in a backslash: a format goes by characters.
    EXPECT_EQ(formatted((bytes + "%d%%").c_str(), 5), bytes + "5%");
    std::u16string many = units;
    std::string expected = bytes;
    for (; many.size() < 5000; many += many, expected += expected) {
        EXPECT_EQ(formatted("%S", many.c_str()), expected);
        EXPECT_EQ(formatted(TEXT("%S"), expected.c_str()), many);
    }
}

}  // namespace
