#include "ostrel/text/string_utils.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <tuple>

#include "support/temp_dir.h"
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
    EXPECT_EQ(OS::x_wstring(SFileExtensionAdapter::GetInvalidCharacters()), u"\\/:#?\\x22<>|,.");
}

TEST(StringUtils, SplitsWords) {
    const auto split = [](const WCHAR *text, const SWordsAdapter &adapter) {
        Words words = {u"old"};
        splitWords(u';', text, words, adapter);
        return words;
    };
    EXPECT_EQ(split(u";a;;b;", SCharAdapter()), (Words{u"old", u"a", u"b"}));
    EXPECT_EQ(split(u" a,b ", SCharAdapter()), (Words{u"old", u" a,b "}));
    EXPECT_EQ(split(u"", SCharAdapter()), Words{u"old"});
    EXPECT_EQ(split(u"txt;2.x;;mp3;", SFileExtensionAdapter()), (Words{u"old", u"tt", u"mp3"}));

    Words words = {u"a;b,;c"};
    words.shrink_to_fit();
    splitWords(u';', words[0], words, SCharAdapter());
    GetStrings(words[0], u";,", words);
    EXPECT_EQ(words, (Words{u"a;b,;c", u"a", u"b,", u"c", u"a", u"b", u"c"}));
}

TEST(StringUtils, JoinsPaths) {
    const auto joined = [](const WCHAR *first, const WCHAR *second) {
        WCHAR output[20] = {};
        std::u16string(first).copy(output, 10);
        concatPath(output, second, output);  // in place
        EXPECT_EQ(concatPath(first, second), output);
        return OS::x_wstring(output);
    };
    EXPECT_EQ(joined(u"c:\\a", u"b"), u"c:\\a\\b");
    EXPECT_EQ(joined(u"c:\\a\\", u"b"), u"c:\\a\\b");
    EXPECT_EQ(joined(u"c:\\a\\", u"\\b"), u"c:\\a\\b");
    EXPECT_EQ(joined(u"c:\\a", u"\\b"), u"c:\\a\\b");
    EXPECT_EQ(joined(u"a", u"") + joined(u"a\\", u""), u"aa\\");
    EXPECT_EQ(joined(u"", u"b") + joined(u"", u"\\b"), u"b\\b");
    EXPECT_EQ(joined(u"a\\\\", u"\\\\b"), u"a\\\\\\b");
    WCHAR output[20];
    concatPathURL(u"a\\", u"/b", output, u'/');
    EXPECT_EQ(OS::x_wstring(output), u"a\\/b");
    EXPECT_TRUE(getLastChar(output) == output + 3 && getLastChar(output + 4) == output + 4);
    EXPECT_EQ(getLastChar(nullptr), nullptr);

    const std::u16string first(129, u'a'), second(130, u'b');
    EXPECT_EQ(concatPath(first.c_str(), second.c_str()).size(), 260u);
    EXPECT_TRUE(concatPath((first + u"a").c_str(), second.c_str()).empty());
    EXPECT_EQ(concatPath((first + u"\\").c_str(), (u"\\" + second).c_str()).size(), 260u);
}

TEST(StringUtils, UndoesEscapes) {
    const auto plain = [](const WCHAR *text) {
        std::u16string output(text);
        convertFromEscape(output.c_str(), output.data());  // in place
        EXPECT_EQ(convertFromEscapeChar(text), output.c_str());
        return output;
    };
    const auto ends = [](const WCHAR *text) { return std::u16string(text) + u'\0'; };
    EXPECT_EQ(plain(u"a%20b").substr(0, 4), ends(u"a b"));
    EXPECT_EQ(plain(u"50%25%4a%4B").substr(0, 6), ends(u"50%JK"));
    EXPECT_EQ(plain(u"ab%").substr(0, 3) + plain(u"a%2").substr(0, 2), ends(u"ab") + ends(u"a"));
    EXPECT_EQ(plain(u"% 5%+5%5g%\u30004").substr(0, 5), ends(u"\5\5\5\4"));
    EXPECT_EQ(plain(u"%-1").substr(0, 2), ends(u"\uFFFF"));
    EXPECT_EQ(plain(u"a%zzb%0xc").substr(0, 6), ends(u"a") + ends(u"b") + ends(u"c"));
}

TEST(StringUtils, ReadsFixedPositions) {
    WCHAR scratch[5];
    EXPECT_EQ(getInteger(u"1234", 1, 2, scratch), 23);
    EXPECT_EQ(getInteger(u"1234", 4, 0, scratch), 0);
    EXPECT_EQ(getInteger(u"x-12", 1, 3, scratch), -12);

    SYSTEMTIME time = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(convertTime(nullptr, time) + convertTime(u"2024022913590", time), 0);
    EXPECT_EQ(time.wYear + time.wSecond, 8);
    EXPECT_EQ(convertTime(u"20240229135907123", time), 1);
    EXPECT_EQ((std::tuple{time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                          time.wSecond, time.wDayOfWeek, time.wMilliseconds}),
              (std::tuple{2024, 2, 29, 13, 59, 7, 3, 8}));
}

TEST(StringUtils, ComparesWithAFormat) {
    const std::tuple<const WCHAR *, const WCHAR *, bool> cases[] = {
        {u"ddd-dd", u"123-45", true},
        {u"ddd-dd", u"123", true},
        {u"ddd-dd", u"123-45678", true},
        {u"ddd-dd", u"12a", false},
        {u"DcXx", u"1\u00E42b", true},
        {u"Ccx", u"ab_", false},
        {u"c", u"1", false},
        {u"d", u"\uFF11", true},
        {u"a", u"A", false},
        {u"", u"a", false},
        {u"d", u"", false},
        {nullptr, u"1", false},
        {u"d", nullptr, false},
    };
    for (const auto &[format, text, expected] : cases) {
        EXPECT_EQ(isFormatCorrect(format, text) != 0, expected);
    }
    EXPECT_EQ(isAllDigitChar(u"0189") + isAllDigitChar(u""), 2);
    EXPECT_EQ(isAllDigitChar(u"1/") + isAllDigitChar(u":1") + isAllDigitChar(u"1\uFF11"), 0);
}

// The host's sscanf is the measure, for every pair of bytes.
TEST(StringUtils, TurnsHexadecimalTextIntoBytes) {
    unsigned char bytes[3] = {9, 9, 9};
    for (const auto &[text, size] :
         {std::pair{"0aFF", 3}, {"0aFF", 1}, {"0aF", 1}, {"0aF", 2}, {"0", 0}, {"", 1}, {"", -1}}) {
        EXPECT_FALSE(StringToBinary(text, bytes, size)) << text;
    }
    EXPECT_TRUE(StringToBinary("", bytes, 0) && bytes[0] == 9);
    EXPECT_TRUE(StringToBinary("0aFF", bytes, 2));
    EXPECT_EQ((std::tuple{bytes[0], bytes[1], bytes[2]}), (std::tuple{0x0A, 0xFF, 9}));
    for (unsigned pair = 0; pair < 0x10000; ++pair) {
        const char text[] = {static_cast<char>(pair >> 8), static_cast<char>(pair), '\0'};
        unsigned expected = 0;
        std::sscanf(text, "%x", &expected);
        ASSERT_TRUE(StringToBinary(std::string(text, 2), bytes, 1));
        ASSERT_EQ(bytes[0], expected & 0xFF) << pair;
    }
}

TEST(StringUtils, ReadsProfiles) {
    const TempDir dir;
    dir.Write("a.ini", "[s]\nk= 42 \nlong=" + std::string(300, 'x'));
    EXPECT_EQ(getPrivateProfileString(u"S", u"K", u"d", u"a.ini"), u"42");
    EXPECT_EQ(getPrivateProfileString(u"s", u"none", u"d", u"a.ini"), u"d");
    EXPECT_EQ(getPrivateProfileString(u"s", u"long", nullptr, u"a.ini").size(), 259u);
    EXPECT_EQ(getPrivateProfileString(u"s", nullptr, u"d", u"a.ini"), u"k");
    EXPECT_EQ(getPrivateProfileInt(u"s", u"k", -1, u"a.ini"), 42);
    EXPECT_EQ(getPrivateProfileInt(u"s", u"none", -1, u"a.ini"), -1);
}

}  // namespace
