// Reading by a format: against the host's, and what 16-bit text adds.

#include "ostrel/platform/scanf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <random>
#include <string>

namespace {

std::u16string wide(std::string_view text) {
    return {text.begin(), text.end()};
}

// The result and what three conversions leave behind, either numbers or words, as one text.
template <class Scan, class Char>
std::u16string outcome(Scan scan, const std::basic_string<Char> &text,
                       const std::basic_string<Char> &format) {
    int numbers[3] = {-7, -7, -7};
    Char words[3][64] = {{'#'}, {'#'}, {'#'}};
    const bool reads_words = format.find(Char('s')) != format.npos;
    const int result =
        reads_words ? scan(text.c_str(), format.c_str(), words[0], words[1], words[2])
                    : scan(text.c_str(), format.c_str(), &numbers[0], &numbers[1], &numbers[2]);
    std::u16string told = wide(std::to_string(result));
    for (int i = 0; i < 3; ++i) {
        const std::basic_string<Char> word = words[i];
        told += u'|';
        told += reads_words ? std::u16string(word.begin(), word.end())
                            : wide(std::to_string(numbers[i]));
    }
    return told;
}

constexpr auto kScan = [](auto... arguments) { return swscanf(arguments...); };
constexpr auto kHostScan = [](auto... arguments) { return std::sscanf(arguments...); };

TEST(Scanf, AgreesWithTheHost) {
    std::mt19937 random(11);
    const auto pick = [&random](const auto &list) { return list[random() % std::size(list)]; };
    const char *const format_parts[] = {"%d", "%1d", "%2d", "%4d", " ", "-", "/", "%%", "\t"};
    const char *const text_parts[] = {"1", "20", "123", "07", "-",  "+",  "/",  "%", " ",
                                      "x", "a",  "",    "\t", "  ", "-1", "+2", "\n"};
    for (int round = 0; round < 100000; ++round) {
        std::string format;
        for (int conversions = 0; conversions < 3 && random() % 12 != 0;) {
            format += pick(format_parts);
            conversions += format.back() == 'd';
        }
        if (random() % 2 == 0) {
            std::replace(format.begin(), format.end(), 'd', 's');
        }
        std::string text;
        for (std::size_t parts = random() % 14; parts > 0; --parts) {
            text += pick(text_parts);
            if (text.size() - (text.find_last_not_of("0123456789") + 1) > 6) {
                text += ' ';  // the host leaves open what a number out of range gives
            }
        }
        ASSERT_EQ(outcome(kScan, wide(text), wide(format)), outcome(kHostScan, text, format))
            << '"' << text << "\" by \"" << format << '"';
    }
}

TEST(Scanf, HasItsOwnEnds) {
    const struct {
        const WCHAR *text, *format, *outcome;
    } cases[] = {
        {u"2147483647 -2147483648 2147483648", u"%d%d%d", u"3|2147483647|-2147483648|2147483647"},
        {u"-2147483649 99999999999999999999 -99999999999999999999", u"%d%d%d",
         u"3|-2147483648|2147483647|-2147483648"},
        {u"\u30001\u00A0\u2028-2\u00853", u"%d%d%d", u"3|1|-2|3"},  // white space beyond ASCII
        {u"1\u3000/\u30002", u"%d /\u2003%d", u"2|1|2|-7"},
        {u"\uFF11", u"%d", u"0|-7|-7|-7"},  // a digit, but not of ASCII
        {u"1 2", u"%d%u", u"1|1|-7|-7"},
        {u"1 2", u"%d%0d", u"1|1|-7|-7"},
        {u"1 2", u"%d%", u"1|1|-7|-7"},
        {u"123", u"%02d%18446744073709551617d", u"2|12|3|-7"},
        // Half a character is one of those that are counted.
        {u"\xD83D\xDE00\xDE00\xD83Dz", u"%1s%2s%4s", u"3|\xD83D|\xDE00\xDE00|\xD83Dz"},
        {u"a\u3000\uFEFFb\u00A0c", u"%s%s%s", u"3|a|\uFEFFb|c"},
        {u"\u2003", u"%2s", u"-1|#|#|#"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(outcome(kScan, std::u16string(c.text), std::u16string(c.format)), c.outcome);
    }
    errno = 0;
    EXPECT_EQ(swscanf(nullptr, u"%d"), -1);
    EXPECT_EQ(swscanf(u"1", nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
