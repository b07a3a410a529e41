#include "ostrel/platform/scanf.h"

#include "support/bytes.h"
#include "support/test.h"

namespace {

// The result and what three conversions leave behind, either numbers or words, as one text.
std::u16string outcome(const WCHAR *text, const std::u16string &format) {
    int numbers[3] = {-7, -7, -7};
    WCHAR words[3][64] = {u"#", u"#", u"#"};
    const bool reads_words = format.find(u's') != format.npos;
    const int result = reads_words
                           ? swscanf(text, format.c_str(), words[0], words[1], words[2])
                           : swscanf(text, format.c_str(), &numbers[0], &numbers[1], &numbers[2]);
    std::u16string told = wide(std::to_string(result));
    for (int i = 0; i < 3; ++i) {
        told += u'|' + (reads_words ? words[i] : wide(std::to_string(numbers[i])));
    }
    return told;
}

TEST(Scanf, ReadsByAFormat) {
    const std::tuple<const WCHAR *, const WCHAR *, const WCHAR *> cases[] = {
        {u"-12 +345", u"%2d%d%2d", u"3|-1|2|3"},  // a sign is one of the characters
        {u"1 % 2%3", u"%d%%%d %%%d", u"3|1|2|3"},
        {u"1", u"%d/%d", u"1|1|-7|-7"},
        {u"", u"%d", u"-1|-7|-7|-7"},
        {u"2147483647 -2147483648 2147483648", u"%d%d%d", u"3|2147483647|-2147483648|2147483647"},
        {u"-2147483649 99999999999999999999 -99999999999999999999", u"%d%d%d",
         u"3|-2147483648|2147483647|-2147483648"},
        {u"\u30001\u00A0\u2028-2\u00853", u"%d%d%d", u"3|1|-2|3"},  // white space beyond ASCII
        {u"1 2", u"%d%u", u"1|1|-7|-7"},
        {u"123", u"%02d%18446744073709551617d", u"2|12|3|-7"},
        // Half a character is one of those that are counted.
        {u"\xD83D\xDE00\xDE00\xD83Dz", u"%1s%2s%4s", u"3|\xD83D|\xDE00\xDE00|\xD83Dz"},
        {u"a\u3000\uFEFFb\u00A0c", u"%s%s%s", u"3|a|\uFEFFb|c"},
        {u"\u2003", u"%2s", u"-1|#|#|#"}};
    for (const auto &[text, format, expected] : cases) {
        EXPECT_EQ(outcome(text, format), expected) << PrintToString(text);
    }
}

}  // namespace
