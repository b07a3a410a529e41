#include "ostrel/platform/printf.h"

#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <memory>

#include "support/bytes.h"
#include "support/test.h"

namespace {

// Gives the length that is printed and the one that is measured.
template <typename Char>
std::pair<int, int> print(Char *buffer, std::size_t count, const Char *format, ...) {
    std::va_list printed, measured;
    va_start(printed, format);
    va_copy(measured, printed);
    std::pair<int, int> lengths;
    if constexpr (sizeof(Char) == 1) {
        lengths = {_vsnprintf(buffer, count, format, printed), _vscprintf(format, measured)};
    } else {
        lengths = {_vsnwprintf(buffer, count, format, printed), _vscwprintf(format, measured)};
    }
    va_end(measured);
    va_end(printed);
    return lengths;
}

// The text that a format gives; in a buffer that is too short by a number that changes with every
// call, its start. When the format is refused: the first two characters stored, and errno.
template <typename Char, typename... Values>
std::basic_string<Char> printed(const Char *format, Values... values) {
    static std::size_t calls = 0;
    std::basic_string<Char> text(4000, '#');
    errno = 0;
    const auto [length, measured] = print(text.data(), text.size(), format, values...);
    EXPECT_EQ(measured, length);
    if (length < 0) {
        return text.substr(0, 2) + static_cast<Char>(errno);
    }
    const auto size = static_cast<std::size_t>(length);
    const std::size_t room = size - calls++ % (size + 1);
    EXPECT_EQ(text[size], 0);
    text.resize(size);
    std::basic_string<Char> part(size + 1, '#');
    EXPECT_EQ(print(part.data(), room, format, values...),
              std::pair(room < size ? -1 : length, length));
    EXPECT_EQ(part, text.substr(0, room) + std::basic_string<Char>(size + 1 - room, '#'));
    EXPECT_EQ(errno, 0);
    return text;
}

// What both functions give for arguments that do not depend on the width.
template <typename... Values>
void expect_both(const std::string &expected, const std::string &format, Values... values) {
    EXPECT_EQ(printed(format.c_str(), values...), expected) << format;
    EXPECT_EQ(printed(wide(format).c_str(), values...), wide(expected)) << format;
}

TEST(Printf, NumbersOfC) {
    expect_both("0 017 0017 0x1f 0X1F 0", "%#o %#o %#.4o %#x %#X %#x", 0, 15, 15, 31, 31, 0);
    expect_both("-32768 65535 -1 255", "%hd %hu %hhi %hhu", 32768, -1, 255, -1);
    expect_both("0x1.0p+0 0x1.2p+0 -0X2.00P+3", "%.1a %.1a %.2A", 0x1.08p0, 0x1.18p0, -0x1.fffp3);
    expect_both("  inf|-INF|-0001.5|1.5 |", "%05f|%F|%07.1f|%-4g|", HUGE_VAL, -HUGE_VAL, -1.5, 1.5);
}

TEST(Printf, ConversionsInThePlatformsOwnWay) {
    constexpr std::int64_t kBig = 0x1'2345'6789;
    const auto nan = [](std::uint64_t bits) { return std::bit_cast<double>(bits << 48); };
    const std::string zeros(1498, '0');
    expect_both("4886718345 123456789 4886718345 -1", "%I64d %Ix %ti %I32d", kBig, kBig, kBig, -1);
    expect_both("17 00000000000000AB|", "%Lu%#17p|", 17, reinterpret_cast<void *>(0xAB));
    expect_both("0x1.8000000000000p+0 -0X0.0000000000000P+0", "%a %LA", 1.5, -0.0);
    expect_both("1.0e+02 1.e+02 10.0", "%#.2g %#.g %#.3g", 99.5, 99.5, 9.999);
    expect_both("1.00000E-05 0.000100 100. 0.", "%#G %#.3g %#.3g %#.1g", 1e-5, 1e-4, 100.0, 0.0);
    expect_both("1.5" + zeros + " 1.5" + zeros + "e+00", "%#.1500g %.1499e", 1.5, 1.5);
    expect_both("nan nan(snan) -NAN(IND)", "%f %a %E", nan(0x7FF8), nan(0x7FF1), nan(0xFFF8));
    expect_both("  -nan  +inf|nan  |", "%06g%+06f|%-05.1f|", nan(0xFFFC), HUGE_VAL, nan(0x7FF8));
    expect_both("12 1.50 x ff 7", "%Fd %.2Ff %hFs %Fx %Nu", 12, 1.5, "x", 255, 7);  // far and near
    expect_both("1.500000 1.500000b", "%F %Fb", 1.5, 1.5);                          // no modifier
    EXPECT_EQ(printed(u"%F\u0164", 1.5), u"1.500000\u0164");                        // low byte: d
    expect_both("5   |  007|3.142|3.1", "%*d|%5.*d|%.*f|%.*g", -4, 5, 3, 7, 3, 3.14159, 2, 3.14159);
    expect_both("3.141590|7|abc", "%.*f|%.*d|%.*hs", -1, 3.14159, -5, 7, -1, "abc");
    int stored = 99;
    expect_both("100% 0000a 000ab7", "100%% %05hc %05hs%n%d", 'a', "ab", &stored, 7);
    EXPECT_EQ(stored, 99);
}

TEST(Printf, TextOfBothWidths) {
    const char *const n = "n\xC3\xA9";
    const WCHAR *const w = u"w\u20AC";
    EXPECT_EQ(printed("%s %hS %S %ws", n, n, w, w),
              "n\xC3\xA9 n\xC3\xA9 w\xE2\x82\xAC w\xE2\x82\xAC");
    EXPECT_EQ(printed(u"%s %lS %S %hs", w, w, n, n), u"w\u20AC w\u20AC n\u00E9 n\u00E9");
    EXPECT_EQ(printed("%hC%C%wc", 'c', 0x20AC, 0xD800), "c\xE2\x82\xAC\xEF\xBF\xBD");
    EXPECT_EQ(printed(u"%c%wC%C%hc", 0x20AC, 'c', 'd', 0xE9), u"\u20ACcd\uFFFD");
    expect_both(std::string("a\0b\0c (null) (nu", 16), "a%cb%Cc %s %.3S", 0, 0, nullptr, nullptr);
    // The width counts what is printed, the precision what is read, where half a character is cut.
    EXPECT_EQ(printed("%5S|%-5.1S|%.2S|%S", w, w, u"a\xD83D", u"a\xD83D"),
              " w\xE2\x82\xAC|w    |a|a\xEF\xBF\xBD");
    EXPECT_EQ(printed(u"%5S|%-5.3S|%.2S|%S", n, n, n, "a\xC3"), u"   n\u00E9|n\u00E9   |n|a\uFFFD");
    // The sanitizer sees a step behind these.
    const std::unique_ptr<char[]> narrow(new char[3]{'a', 'b', 'c'});
    const std::unique_ptr<WCHAR[]> units(new WCHAR[3]{'d', 'e', 0xD83D});
    EXPECT_EQ(printed("%.3s %.*S", narrow.get(), 3, units.get()), "abc de");
    EXPECT_EQ(printed(u"%.*S %.2s", 3, narrow.get(), units.get()), u"abc de");
}

TEST(Printf, BuffersAndFaults) {
    for (const char *end :
         {"", "-5", "5.", "ll", "I64", "y", "5%", "*", "\x80", "I6d", "..d", "Z"}) {
        expect_both({'a', 'b', EINVAL}, std::string("ab%") + end, 1, 2);
    }
    EXPECT_EQ(printed(u"ab%\u0164"), (std::u16string{'a', 'b', EINVAL}));  // low byte: d
    for (const char *end :
         {"2147483646d", "99999999999999999999d", ".2147483646d", "1500000000d%1500000000d"}) {
        expect_both({'a', 'b', EOVERFLOW}, std::string("ab%") + end, 1, 2);
    }
    char buffer[8];
    EXPECT_EQ(print(buffer, std::size_t(-1), "%d", 42).first, 2);  // as good as no bound
    EXPECT_EQ(print<char>(nullptr, 1, ""), std::pair(-1, 0));
    const std::string run(300, 'x');
    expect_both(run + run, run + "%hs", run.c_str());
    EXPECT_EQ(print<char>(nullptr, 0, "ab%2147483645d", 1), std::pair(-1, 2147483647));
}

}  // namespace
