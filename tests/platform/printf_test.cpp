// The conversions of the formatted output: against the host's where the two agree, against tables
// where the platform has its own, and what a buffer of any size holds.

#include "ostrel/platform/printf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

int print(char *buffer, std::size_t count, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int result = _vsnprintf(buffer, count, format, arguments);
    va_end(arguments);
    return result;
}

int print(WCHAR *buffer, std::size_t count, const WCHAR *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int result = _vsnwprintf(buffer, count, format, arguments);
    va_end(arguments);
    return result;
}

int measure(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int result = _vscprintf(format, arguments);
    va_end(arguments);
    return result;
}

int measure(const WCHAR *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int result = _vscwprintf(format, arguments);
    va_end(arguments);
    return result;
}

std::u16string widened(std::string_view text) {
    return {text.begin(), text.end()};
}

constexpr int kUntouched = 4711;

// The text that a format gives, with its length, its NUL and errno checked.
template <typename Char, typename... Values>
std::basic_string<Char> printed(const Char *format, Values... values) {
    std::basic_string<Char> text(4000, '#');
    errno = kUntouched;
    const int length = print(text.data(), text.size(), format, values...);
    EXPECT_EQ(measure(format, values...), length);
    EXPECT_EQ(errno, kUntouched);
    if (length < 0) {
        return {};
    }
    EXPECT_EQ(text[static_cast<std::size_t>(length)], 0);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// What both functions give for arguments that do not depend on the width.
template <typename... Values>
void expect_both(const std::string &expected, const std::string &format, Values... values) {
    EXPECT_EQ(printed(format.c_str(), values...), expected) << format;
    EXPECT_TRUE(printed(widened(format).c_str(), values...) == widened(expected)) << format;
}

template <typename Value>
void expect_as_host(const std::string &options, const char *conversion, Value value) {
    const std::string format = options + conversion;
    char expected[4000];
    std::snprintf(expected, sizeof expected, format.c_str(), value);
    expect_both(expected, format, value);
}

// Every set of flags that does something, with each width and precision.
std::vector<std::string> all_options(const std::vector<const char *> &precisions) {
    std::vector<std::string> all;
    for (const char *flags :
         {"", "-", "+", " ", "0", "#", "-0", "+ ", "+0", "-#", "#0", " 0", "-+#0"}) {
        for (const char *width : {"", "1", "14", "40"}) {
            for (const char *precision : precisions) {
                all.push_back(std::string("<%") + flags + width + precision);
            }
        }
    }
    return all;
}

TEST(Printf, IntegersAreThoseOfTheHost) {
    std::mt19937_64 random(1);
    std::vector<std::uint64_t> values = {0, 1, 7, 8, 9, 10, 99, 100, 255, 0x7FFF'FFFF, 0x8000'0000};
    values.insert(values.end(), {0xFFFF'FFFF, 0x8000, 0x80, ~0ULL, 1ULL << 63, (1ULL << 63) - 1});
    for (int bits = 1; bits <= 64; bits += 5) {
        values.push_back(random() >> (64 - bits));
    }
    for (const std::string &options : all_options({"", ".", ".0", ".1", ".6", ".30"})) {
        for (const std::uint64_t value : values) {
            for (const char *conversion :
                 {"d>", "i>", "u>", "o>", "x>", "X>", "hd>", "hx>", "hhi>"}) {
                expect_as_host(options, conversion, static_cast<int>(value));
            }
            for (const char *conversion : {"lld>", "llu>", "jo>", "zx>", "tX>"}) {
                expect_as_host(options, conversion, value);
            }
        }
        if (HasFailure()) {
            break;
        }
    }
}

// The host's %a has no fixed number of digits by default, and its %#g loses a zero where rounding
// makes the number longer (99.5 with two digits).
bool host_agrees(int conversion, const std::string &options) {
    return conversion == 'a'   ? options.find('.') != std::string::npos
           : conversion == 'g' ? options.find('#') == std::string::npos
                               : true;
}

TEST(Printf, DoublesAreThoseOfTheHost) {
    using Limits = std::numeric_limits<double>;
    std::mt19937_64 random(2);
    std::vector<double> values = {0,     1,   0.5,  1.5,      2.5,      0.125,
                                  0.375, 9.5, 99.5, 0.999999, 0.9999995};
    values.insert(values.end(), {1e15, 1e16, 1e21, 1e22, 123456, 1234567, 1e-4, 1e-5, 9.9999e-5});
    values.insert(values.end(),
                  {0x1p-12, 0x1.cp-13, 0x1.fffffffffffffp-1022, 0x1p52, 0x1p53 - 1, 0x1p51 + 0.5});
    values.insert(values.end(), {Limits::max(), 1e308, Limits::min(), Limits::denorm_min()});
    values.insert(values.end(), {0x1.fffffffffffffp-1023, 0x1.8p0, 0x1.08p0, 0x1.fffp3, 5e-7});
    values.insert(values.end(), {Limits::infinity(), 4503599627370495.5});
    for (int i = 0; i < 60; ++i) {
        values.push_back(std::bit_cast<double>(random() >> 1 & ~(1ULL << 62)));
        values.push_back(static_cast<double>(random() >> (i % 63)) / 1024);  // many ties
    }
    const std::vector<std::string> options =
        all_options({"", ".0", ".1", ".2", ".5", ".17", ".18", ".40", ".767", ".1100"});
    for (double value : values) {
        for (const char *conversion : {"f>", "e>", "g>", "F>", "E>", "G>", "a>", "A>"}) {
            for (int i = 0; i < 60; ++i) {
                const std::string &some = options[random() % options.size()];
                if (host_agrees(conversion[0] | 0x20, some)) {
                    expect_as_host(some, conversion, random() % 2 == 0 ? value : -value);
                }
            }
            ASSERT_FALSE(HasFailure()) << value;
        }
    }
}

double double_of(std::uint64_t bits) {
    return std::bit_cast<double>(bits);
}

TEST(Printf, NumbersInThePlatformsOwnWay) {
    constexpr std::int64_t kBig = 0x1'2345'6789;
    expect_both("4886718345 123456789 4886718345 -1", "%I64d %Ix %ti %I32d", kBig, kBig, kBig, -1);
    expect_both("591751049 591751049 7", "%ld %Ld %lu", 591751049, 591751049, 7);
    expect_both("00000000000012FF", "%p", reinterpret_cast<void *>(0x12FF));
    expect_both("    00000000000000AB|", "%#20p|", reinterpret_cast<void *>(0xAB));
    expect_both("0x1.8000000000000p+0 -0X1.FFFFFFFFFFFFFP+1023", "%a %A", 1.5,
                std::numeric_limits<double>::lowest());
    expect_both("0x0.0000000000000p+0 0x0.0000000000001p-1022", "%a %La", 0.0, double_of(1));
    expect_both("1.0e+02 1.e+02 10.0 1.00000E-05 0.000100 100. 0.",
                "%#.2g %#.g %#.3g %#G %#.3g %#.3g %#.1g", 99.5, 99.5, 9.999, 1e-5, 1e-4, 100.0,
                0.0);
    const std::string zeros(1498, '0');
    expect_both("1.5" + zeros + " 1.5" + zeros + "e+00", "%#.1500g %.1499e", 1.5, 1.5);
    expect_both("nan -nan(ind) -nan nan(snan) -NAN(IND) NAN", "%f %e %g %a %E %F",
                double_of(0x7FF8'0000'0000'0000), double_of(0xFFF8'0000'0000'0000),
                double_of(0xFFF8'0000'0000'0001), double_of(0x7FF0'0000'0000'0001),
                double_of(0xFFF8'0000'0000'0000), double_of(0x7FF8'0000'0000'0000));
    expect_both("       +inf|nan  |", "%+011f|%-05.1f|", std::numeric_limits<double>::infinity(),
                double_of(0x7FF8'0000'0000'0000));
}

TEST(Printf, ModifiersFlagsAndStars) {
    expect_both("12 1.50 x ff 7", "%Fd %.2Ff %hFs %Fx %Nu", 12, 1.5, "x", 255, 7);  // far and near
    expect_both("1.500000 1.500000b", "%F %Fb", 1.5, 1.5);                          // no modifier
    EXPECT_TRUE(printed(u"%F\u0164", 1.5) == u"1.500000\u0164");                    // low byte: d
    int stored = 99;
    expect_both("ab7", "a%nb%d", &stored, 7);
    EXPECT_EQ(stored, 99);
    expect_both("5   |  007|3.142|3.1", "%*d|%5.*d|%.*f|%.*g", -4, 5, 3, 7, 3, 3.14159, 2, 3.14159);
    expect_both("3.141590|7|abc", "%.*f|%.*d|%.*hs", -1, 3.14159, -5, 7, -1, "abc");
    expect_both("100% 0000a 000ab", "100%% %05hc %05hs", 'a', "ab");
}

TEST(Printf, TextOfBothWidths) {
    const char *const narrow = "n\xC3\xA9";  // n, e with acute
    const WCHAR *const wide = u"w\u20AC";    // w, the euro sign
    EXPECT_EQ(
        printed("%s %hs %hS %S %ls %lS %ws", narrow, narrow, narrow, wide, wide, wide, wide),
        "n\xC3\xA9 n\xC3\xA9 n\xC3\xA9 w\xE2\x82\xAC w\xE2\x82\xAC w\xE2\x82\xAC w\xE2\x82\xAC");
    EXPECT_TRUE(printed(u"%s %ls %lS %ws %S %hs %hS", wide, wide, wide, wide, narrow, narrow,
                        narrow) == u"w\u20AC w\u20AC w\u20AC w\u20AC n\u00E9 n\u00E9 n\u00E9");
    EXPECT_EQ(printed("%c%hc%hC%C%lc%wc", 'a', 'b', 'c', 0x20AC, 0xE9, 0xD800),
              "abc\xE2\x82\xAC\xC3\xA9\xEF\xBF\xBD");
    EXPECT_TRUE(printed(u"%c%lc%wC%C%hc", 0x20AC, 'b', 'c', 'd', 0xE9) ==
                u"\u20AC"
                u"bcd\uFFFD");
    expect_both(std::string("a\0b\0c", 5), "a%cb%Cc", 0, 0);
    // The width counts what is printed, the precision what is read.
    EXPECT_EQ(printed("%5S|%-5.1S|", wide, wide), " w\xE2\x82\xAC|w    |");
    EXPECT_TRUE(printed(u"%5S|%-5.3S|%.2S|", narrow, narrow, narrow) ==
                u"   n\u00E9|n\u00E9   |n|");
    expect_both("(null) (nu| (null)|", "%s %.3S|%7hs|", nullptr, nullptr, nullptr);
    EXPECT_EQ(printed("%.3S|%.2S|%S", u"ab\U0001F600", u"a\xD83D", u"a\xD83D"),
              "ab|a|a\xEF\xBF\xBD");
    EXPECT_TRUE(printed(u"%S|%.2S", "a\xC3", "a\xC3") == u"a\uFFFD|a");
}

// The sanitizer sees a step behind these arrays.
TEST(Printf, PrecisionBoundsWhatIsRead) {
    const std::unique_ptr<char[]> narrow(new char[3]{'a', 'b', 'c'});
    const std::unique_ptr<WCHAR[]> wide(new WCHAR[3]{'d', 'e', 0xD83D});
    EXPECT_EQ(printed("%.3s %.*S", narrow.get(), 3, wide.get()), "abc de");
    EXPECT_TRUE(printed(u"%.*S %.2s %.0s", 3, narrow.get(), wide.get(), wide.get()) == u"abc de ");
}

template <typename Char>
void expect_bounded(const Char *format, const Char *whole) {
    const std::size_t length = 7;
    for (std::size_t count = 0; count <= length + 2; ++count) {
        Char buffer[length + 4];
        std::fill(std::begin(buffer), std::end(buffer), Char('#'));
        std::basic_string<Char> expected(buffer, std::size(buffer));
        expected.replace(0, std::min(count, length), whole, std::min(count, length));
        if (count > length) {
            expected[length] = 0;
        }
        errno = kUntouched;
        EXPECT_EQ(print(buffer, count, format, 42), count < length ? -1 : 7) << count;
        EXPECT_EQ(errno, kUntouched);
        EXPECT_TRUE(expected == std::basic_string_view<Char>(buffer, std::size(buffer))) << count;
    }
    Char large[8];
    EXPECT_EQ(print(large, std::size_t(-1), format, 42), 7);  // as good as no bound
}

TEST(Printf, BufferOfAnySize) {
    expect_bounded("a%5db", "a   42b");
    expect_bounded("a%-5db", "a42   b");
    expect_bounded("a%.5db", "a00042b");
    expect_bounded(u"a%5db", u"a   42b");
    expect_bounded(u"%5dab", u"   42ab");
    EXPECT_EQ(print(static_cast<char *>(nullptr), 0, ""), 0);
    EXPECT_EQ(print(static_cast<WCHAR *>(nullptr), 0, u"%d", 1), -1);
    char prefix[3];
    EXPECT_EQ(print(prefix, 3, "%.1100f", 1.5), -1);
    EXPECT_EQ(std::string(prefix, 3), "1.5");
    std::string long_run(300, 'x');
    EXPECT_EQ(printed((long_run + "%s").c_str(), long_run.c_str()), long_run + long_run);
}

template <typename Char>
void expect_fault(int code, std::basic_string_view<Char> format) {
    Char buffer[8] = {};
    errno = kUntouched;
    EXPECT_EQ(print(buffer, 8, format.data(), 1, 2), -1);
    EXPECT_EQ(errno, code) << std::string(format.begin(), format.end());
    EXPECT_TRUE(buffer[0] == 'a' && buffer[1] == 'b');
    EXPECT_EQ(measure(format.data(), 1, 2), -1);
}

TEST(Printf, Faults) {
    for (const char *format : {"ab%", "ab%-5", "ab%5.", "ab%ll", "ab%I64", "ab%y", "ab%5%", "ab%*",
                               "ab%\x80", "ab%I6d", "ab%..d", "ab%Z"}) {
        expect_fault<char>(EINVAL, format);
        expect_fault<WCHAR>(EINVAL, widened(format));
    }
    expect_fault<WCHAR>(EINVAL, u"ab%\u0164");  // its low byte is a letter that converts
    for (const char *format : {"ab%2147483646d", "ab%99999999999999999999d", "ab%.2147483647d",
                               "ab%.2147483646e", "ab%1500000000d%1500000000d"}) {
        expect_fault<char>(EOVERFLOW, format);
        expect_fault<WCHAR>(EOVERFLOW, widened(format));
    }
    EXPECT_EQ(measure("ab%2147483645d", 1), 2147483647);
    char buffer[4];
    const char *const no_text = nullptr;
    for (const int result : {print(buffer, 4, no_text), measure(no_text),
                             print(static_cast<char *>(nullptr), 1, "")}) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(errno, EINVAL);
    }
}

}  // namespace
