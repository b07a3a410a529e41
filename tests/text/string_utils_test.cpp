#include "ostrel/text/string_utils.h"

#include "support/text.h"

namespace {

using namespace NS_StringUtils;
using Words = std::vector<OS::x_wstring>;

OS::x_wstring collected(const WCHAR *text, const SCharIndentifier &test) {
    std::u16string output(text);
    collect(output.c_str(), test, output.data());  // in place
    return output.c_str();
}

TEST(StringUtils, FiltersCharacters) {
    EXPECT_EQ(collected(u"a-1", SCharIndentifier()), u"a-1");
    EXPECT_EQ(collected(u"a-1_b \u00E4\u0661\u00D7", SAlphaDigitIndentifier()), u"a1b\u00E4\u0661");
    EXPECT_EQ(collected(u"\\a/:#?<>|,.\"x2X*", SFilenameIndentifier()), u"a\"X*");
    EXPECT_FALSE(SFilenameIndentifier::IsValidCharacter(0));
}

TEST(StringUtils, SplitsWords) {
    Words words = {u";a;;b,;", u"txt;2.x;;mp3"};
    words.shrink_to_fit();
    splitWords(u';', words[0], words, SCharAdapter());
    splitWords(u';', words[1], words, SFileExtensionAdapter());
    splitWords(u';', u"", words, SCharAdapter());
    GetStrings(words[0], u";,", words);
    EXPECT_EQ(words, (Words{u";a;;b,;", u"txt;2.x;;mp3", u"a", u"b,", u"tt", u"mp3", u"a", u"b"}));
}

TEST(StringUtils, JoinsPaths) {
    const WCHAR *const cases[][3] = {
        {u"a", u"b", u"a\\b"},   {u"a\\", u"b", u"a\\b"}, {u"a\\\\", u"\\\\b", u"a\\\\\\b"},
        {u"a", u"\\b", u"a\\b"}, {u"a", u"", u"a"},       {u"a\\", u"", u"a\\"},
        {u"", u"b", u"b"},       {u"", u"\\b", u"\\b"}};
    WCHAR output[20] = {};
    for (const auto &[first, second, expected] : cases) {
        SCOPED_TRACE(PrintToString(std::pair(first, second)));
        std::u16string(first).append(1, u'\0').copy(output, 10);
        concatPath(output, second, output);  // in place
        EXPECT_EQ(OS::x_wstring(output), expected);
        EXPECT_EQ(concatPath(first, second), expected);
    }
    concatPathURL(u"a\\", u"/b", output, u'/');
    EXPECT_EQ(OS::x_wstring(output), u"a\\/b");
    EXPECT_TRUE(getLastChar(output) == output + 3 && getLastChar(output + 4) == output + 4);

    const std::u16string first(129, u'a'), second(130, u'b');
    EXPECT_EQ(concatPath(first.c_str(), second.c_str()).size(), 260u);
    EXPECT_TRUE(concatPath((first + u"a").c_str(), second.c_str()).empty());
}

TEST(StringUtils, UndoesEscapes) {
    const std::pair<const WCHAR *, const WCHAR *> cases[] = {
        {u"50%25%4a%4B", u"50%JK"},          {u"ab%", u"ab"},     {u"a%2", u"a"},
        {u"% 5%+5%5g%\u30004", u"\5\5\5\4"}, {u"%-1", u"\uFFFF"}, {u"a%zzb", u"a"}};
    for (const auto &[text, plain] : cases) {
        std::u16string output(text);
        convertFromEscape(output.c_str(), output.data());  // in place
        EXPECT_EQ(OS::x_wstring(output.c_str()), plain) << PrintToString(text);
        EXPECT_EQ(convertFromEscapeChar(text), plain) << PrintToString(text);
    }
}

TEST(StringUtils, ReadsFixedPositions) {
    WCHAR scratch[5];
    EXPECT_EQ(getInteger(u"x-123", 1, 3, scratch), -12);
    SYSTEMTIME time = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(convertTime(nullptr, time) + convertTime(u"2024022913590", time), 0);
    EXPECT_EQ(convertTime(u"20240229135907123", time), 1);
    EXPECT_EQ((std::tuple{time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                          time.wSecond, time.wDayOfWeek, time.wMilliseconds}),
              (std::tuple{2024, 2, 29, 13, 59, 7, 3, 8}));
}

TEST(StringUtils, ComparesWithAFormat) {
    const std::tuple<const WCHAR *, const WCHAR *, bool> cases[] = {
        {u"ddd-dd", u"123", true},  {u"ddd-dd", u"123-45678", true},
        {u"ddd-dd", u"12a", false}, {u"DcXx", u"1\u00E42b", true},
        {u"Ccx", u"ab_", false},    {u"c", u"1", false},
        {u"d", u"\uFF11", true},    {u"a", u"A", false},
        {u"", u"a", false},         {u"d", u"", false}};
    for (const auto &[format, text, expected] : cases) {
        EXPECT_EQ(isFormatCorrect(format, text) != 0, expected)
            << PrintToString(std::pair(format, text));
    }
    EXPECT_EQ(isAllDigitChar(u"0189") + isAllDigitChar(u""), 2);
    EXPECT_EQ(isAllDigitChar(u"1/") + isAllDigitChar(u":1") + isAllDigitChar(u"1\uFF11"), 0);
}

TEST(StringUtils, TurnsHexadecimalTextIntoBytes) {
    unsigned char bytes[5] = {9, 9, 9, 9, 9};
    for (const auto &[text, size] : {std::pair{"0aFF", 3}, {"0aFF", 1}, {"0aF", 1}, {"", -1}}) {
        EXPECT_FALSE(StringToBinary(text, bytes, size)) << text;
    }
    EXPECT_TRUE(StringToBinary("aF+f-1g1", bytes, 4));
    EXPECT_EQ((std::tuple{bytes[0], bytes[1], bytes[2], bytes[3], bytes[4]}),
              (std::tuple{0xAF, 0x0F, 0xFF, 0, 9}));
}

}  // namespace
