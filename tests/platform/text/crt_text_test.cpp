#include "ostrel/platform/crt_text.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <thread>

#include "ostrel/platform/codepage.h"
#include "support/test.h"

namespace {

using namespace std::string_literals;

TEST(CrtText, ComparesByLowerCase) {
    const std::tuple<const WCHAR *, const WCHAR *, int> cases[] = {
        {u"abc", u"ABC", 0}, {u"JOHN_HENRY", u"johnston", -1}, {u"[", u"a", -1},
        {u"ab", u"abc", -1}, {u"\u00E4", u"\u00C4", 1},        {u"z", u"\u0100", -1}};
    for (const auto &[left, right, result] : cases) {
        SCOPED_TRACE(PrintToString(std::pair(left, right)));
        EXPECT_EQ(std::clamp(_wcsicmp(left, right), -1, 1), result);
        EXPECT_EQ(std::clamp(_wcsicmp(right, left), -1, 1), -result);
    }
    EXPECT_EQ(std::clamp(_stricmp("John_Henry", "JOHNSTON"), -1, 1), -1);
    EXPECT_EQ(std::clamp(_stricmp("z", "\x80"), -1, 1), -1);
    WCHAR text[] = u"AZ[\u00C4";
    EXPECT_EQ(_wcslwr_s(text, 5), 0);
    EXPECT_EQ(std::u16string(text), u"az[\u00C4");
    EXPECT_EQ(_wcslwr_s(text, 4), EINVAL);  // no NUL in that room
    EXPECT_EQ(text[0], 0);
}

TEST(CrtText, Measures) {
    // Nothing behind the text is touched, wherever a page ends.
    constexpr std::size_t kPage = 4096;
    void *const pages =
        mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_EQ(mprotect(static_cast<char *>(pages) + kPage, kPage, PROT_NONE), 0);
    WCHAR *const end = static_cast<WCHAR *>(pages) + kPage / sizeof(WCHAR);
    std::fill(end - 100, end, u'x');
    end[-1] = 0;
    for (std::size_t length = 0; length < 100; ++length) {
        const WCHAR *const at = end - 1 - length;
        EXPECT_EQ(wcslen(at), length);
        EXPECT_EQ(wcsnlen(at, 7), std::min<std::size_t>(7, length));
    }
    munmap(pages, 2 * kPage);
    EXPECT_EQ(wcscspn(u"abc", u"xc"), 2u);
    EXPECT_EQ(wcscspn(u"ab\u3000", u"\u3000"), 2u);
}

// The host's strtol is the measure, cut to 32 bits.
TEST(CrtText, ReadsNumbersInAnyBase) {
    for (const std::string text :
         {"", "z1", " \t-0x12x", "+0X7f", "- 7", "0012", "0x", "0xg", "-", "1z", "2147483647",
          "2147483648", "-2147483648", "-2147483649", "ffffffffffffffffffff", "10189"}) {
        const std::u16string wide(text.begin(), text.end());
        for (const int base : {0, 2, 8, 10, 16, 36}) {
            char *expected_end = nullptr;
            WCHAR *end = nullptr;
            const long long value = std::strtoll(text.c_str(), &expected_end, base);
            const long long nearest = std::clamp<long long>(value, INT_MIN, INT_MAX);
            errno = 0;
            EXPECT_EQ(wcstol(wide.c_str(), &end, base), nearest) << text << ' ' << base;
            EXPECT_EQ(errno, value == nearest ? 0 : ERANGE) << text << ' ' << base;
            EXPECT_EQ(end - wide.c_str(), expected_end - text.c_str()) << text << ' ' << base;
        }
    }
    EXPECT_EQ(wcstol(u"\u30007", nullptr, 10) + _wtoi(u"\u3000\u00A07"), 14);
    EXPECT_EQ(_wtoi(nullptr) + _wtoi(u" -12x"), -12);
    errno = 0;
    EXPECT_TRUE(_wtoi(u"2147483647") == INT_MAX && _wtoi(u"-2147483648") == INT_MIN && errno == 0);
    EXPECT_TRUE(_wtoi(u"2147483648") == INT_MAX && errno == ERANGE);
    EXPECT_TRUE(_wtoi(u"-99999999999999999999") == INT_MIN && errno == ERANGE);
}

TEST(CrtText, RemembersWhereATokenEnded) {
    std::u16string text = u",,a,b;;c";
    EXPECT_EQ(std::u16string(wcstok(text.data(), u",")), u"a");
    std::thread([] { EXPECT_EQ(wcstok(nullptr, u","), nullptr); }).join();  // has its own place
    EXPECT_EQ(std::u16string(wcstok(nullptr, u",;")), u"b");
    EXPECT_EQ(std::u16string(wcstok(nullptr, u";")), u"c");
    EXPECT_EQ(wcstok(nullptr, u";"), nullptr);
}

TEST(CrtText, KnowsTheClassesOfUnicode) {
    std::u16string spaces, letters, digits, both;
    for (
        const WCHAR c :
        u"\b\t\r\x0E /09:@AZ[`az{\u0085\u00AA\u00B2\u00D7\u0416\u0660\u1680\u200B\u3000\uFF0F\xD800"s) {
        spaces.append(iswspace(c) != 0, c);
        letters.append(iswalpha(c) != 0, c);
        digits.append(iswdigit(c) != 0, c);
        both.append(iswalnum(c) != 0, c);
    }
    EXPECT_EQ(spaces, u"\t\r \u0085\u1680\u3000");
    EXPECT_EQ(letters + u'|' + digits, u"AZaz\u00AA\u0416|09\u0660");
    EXPECT_EQ(both, u"09AZaz\u00AA\u0416\u0660");
    EXPECT_EQ(std::u16string({towupper(u'z'), towupper(u'{'), towupper(u'\u00E4')}), u"Z{\u00E4");
}

TEST(CrtText, SplitsPaths) {
    WCHAR drive[_MAX_DRIVE], directory[_MAX_DIR], name[_MAX_FNAME], extension[_MAX_EXT];
    const auto split = [&](const std::u16string &path) {
        _wsplitpath(path.c_str(), drive, directory, name, extension);
        return std::u16string(drive) + u'|' + directory + u'|' + name + u'|' + extension;
    };
    for (const std::u16string parts :
         {u"C:|\\a/b\\|c.tar|.gz", u"|\\\\srv\\|share|", u"C:||foo|", u"C:|\\dir.x\\||",
          u"|||.profile", u"||.|.", u"||name|.", u"|||", u"||:|", u"::|||"}) {
        std::u16string path = parts;
        path.erase(std::remove(path.begin(), path.end(), u'|'), path.end());
        EXPECT_EQ(split(path), parts);
    }
    const std::u16string longest(255, u'n');
    EXPECT_EQ(split(longest), u"||" + longest + u'|');
    for (const std::u16string &path : {longest + u"n", u"x." + longest, longest + u"/x"}) {
        EXPECT_EQ(split(path), u"|||");
    }
    EXPECT_EQ(errno, ERANGE);
}

// Runs under UTF-8 and under 932, for which each case begins with a length.
TEST(CrtText, StepsByCharacterOfTheCodePage) {
    ASSERT_TRUE(GetACP() == 65001 || GetACP() == 932);
    for (const char *c :
         {"11a", "12\x83\x5C", "11\x83%d", "11\x83", "11\xA0\xB1", "11\xB1\xB1", "21\xC3\xA4",
          "32\xE3\x82\xBD", "12\xE3\x82", "42\xF0\x9F\x98\x80", "12\xF0\x9F\x98", "11\xFD\x81"}) {
        const auto *const text = reinterpret_cast<const unsigned char *>(c) + 2;
        EXPECT_EQ(_mbsinc(text) - text, c[GetACP() == 932] - '0') << c;
    }
}

}  // namespace
