#include "ostrel/platform/crt_text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cwctype>
#include <string>

#include "ostrel/platform/codepage.h"

namespace {

int sign(int number) {
    return (number > 0) - (number < 0);
}

TEST(CrtText, ComparesByLowerCase) {
    struct Case {
        const char16_t *left, *right;
        int result;
    };
    const Case cases[] = {
        {u"", u"", 0},
        {u"abc", u"ABC", 0},
        {u"ab", u"abc", -1},
        {u"JOHN_HENRY", u"johnston", -1},  // '_' lies in front of the small letters
        {u"\u00E4", u"\u00C4", 1},
        {u"z", u"\u0100", -1},
        {u"[", u"a", -1},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(sign(_wcsicmp(c.left, c.right)), c.result);
        EXPECT_EQ(sign(_wcsicmp(c.right, c.left)), -c.result);
    }
    EXPECT_EQ(sign(_stricmp("John_Henry", "JOHNSTON")), -1);
    EXPECT_EQ(sign(_stricmp("a\xE4", "A\xC4")), 1);
    EXPECT_EQ(sign(_stricmp("z", "\x80")), -1);
    EXPECT_EQ(_wcsicmp(nullptr, u""), INT_MAX);
    EXPECT_EQ(_stricmp("", nullptr), INT_MAX);
}

TEST(CrtText, MeasuresAtEveryAlignment) {
    const std::u16string text(70, u'x');
    for (std::size_t begin = 0; begin < 40; ++begin) {
        for (std::size_t length = 0; length < 30; ++length) {
            const std::u16string part = text.substr(0, begin + length);
            ASSERT_EQ(wcslen(part.c_str() + begin), length);
        }
    }
    EXPECT_EQ(wcslen(u"\u0100\u0001"), 2u);
    EXPECT_EQ(wcscspn(u"abc", u"xc"), 2u);
    EXPECT_EQ(wcscspn(u"abc", u""), 3u);
    EXPECT_EQ(wcscspn(u"", u"x"), 0u);
    EXPECT_EQ(wcscspn(u"ab\u3000", u"\u3000"), 2u);
}

TEST(CrtText, ReadsNumbers) {
    struct Case {
        const char16_t *text;
        int value, error;
    };
    const Case cases[] = {
        {u"", 0, 0},
        {u"x1", 0, 0},
        {u" \t\u3000 -12x", -12, 0},
        {u"+7", 7, 0},
        {u"- 7", 0, 0},
        {u"0012", 12, 0},
        {u"2147483647", INT_MAX, 0},
        {u"2147483648", INT_MAX, ERANGE},
        {u"-2147483648", INT_MIN, 0},
        {u"-2147483649", INT_MIN, ERANGE},
        {u"99999999999999999999999", INT_MAX, ERANGE},
        {nullptr, 0, EINVAL},
    };
    for (const Case &c : cases) {
        errno = 0;
        EXPECT_EQ(_wtoi(c.text), c.value);
        EXPECT_EQ(errno, c.error);
    }
}

TEST(CrtText, RemembersWhereATokenEnded) {
    std::u16string text = u",,a,b;;c";
    const WCHAR *token = wcstok(text.data(), u",");
    EXPECT_EQ(std::u16string(token), u"a");
    EXPECT_EQ(std::u16string(wcstok(nullptr, u",;")), u"b");
    EXPECT_EQ(std::u16string(wcstok(nullptr, u";")), u"c");
    EXPECT_EQ(wcstok(nullptr, u";"), nullptr);
    EXPECT_EQ(wcstok(nullptr, u";"), nullptr);
    std::u16string none = u",,";
    EXPECT_EQ(wcstok(none.data(), u","), nullptr);
    EXPECT_EQ(none, u",,");
    errno = 0;
    EXPECT_EQ(wcstok(none.data(), nullptr), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST(CrtText, KnowsWhiteSpaceOfUnicodeAndLettersOfAscii) {
    std::u16string spaces;
    for (int c = 0; c < 0x10000; ++c) {
        if (iswspace(static_cast<WCHAR>(c))) {
            spaces.push_back(static_cast<WCHAR>(c));
        }
    }
    EXPECT_EQ(spaces,
              u"\t\n\v\f\r \u0085\u00A0\u1680\u2000\u2001\u2002\u2003\u2004\u2005\u2006\u2007\u2008"
              u"\u2009\u200A\u2028\u2029\u202F\u205F\u3000");
    EXPECT_EQ(towupper(u'z'), u'Z');
    EXPECT_EQ(towupper(u'{'), u'{');
    EXPECT_EQ(towupper(u'\u00E4'), u'\u00E4');
    // The host's functions of these names stay what they are.
    EXPECT_EQ(std::towupper(L'z'), static_cast<wint_t>(L'Z'));
}

TEST(CrtText, SplitsPaths) {
    struct Case {
        const char16_t *path, *drive, *directory, *name, *extension;
    };
    const Case cases[] = {
        {u"C:\\a/b\\c.tar.gz", u"C:", u"\\a/b\\", u"c.tar", u".gz"},
        {u"\\\\srv\\share\\f.txt", u"", u"\\\\srv\\share\\", u"f", u".txt"},
        {u"\\\\srv\\share", u"", u"\\\\srv\\", u"share", u""},
        {u"C:foo", u"C:", u"", u"foo", u""},
        {u"C:\\dir.x\\", u"C:", u"\\dir.x\\", u"", u""},
        {u".profile", u"", u"", u"", u".profile"},
        {u"..", u"", u"", u".", u"."},
        {u"name.", u"", u"", u"name", u"."},
        {u"", u"", u"", u"", u""},
        {u":", u"", u"", u":", u""},
        {u"::", u"::", u"", u"", u""},
    };
    WCHAR drive[_MAX_DRIVE], directory[_MAX_DIR], name[_MAX_FNAME], extension[_MAX_EXT];
    for (const Case &c : cases) {
        _wsplitpath(c.path, drive, directory, name, extension);
        EXPECT_EQ(std::u16string(drive), c.drive);
        EXPECT_EQ(std::u16string(directory), c.directory);
        EXPECT_EQ(std::u16string(name), c.name);
        EXPECT_EQ(std::u16string(extension), c.extension);
        _wsplitpath(c.path, nullptr, nullptr, nullptr, nullptr);
    }
    const std::u16string longest(255, u'n');
    _wsplitpath(longest.c_str(), drive, directory, name, extension);
    EXPECT_EQ(name, longest);
    for (const std::u16string &path : {longest + u"n", u"x." + longest, longest + u"/x"}) {
        errno = 0;
        _wsplitpath(path.c_str(), drive, directory, name, extension);
        EXPECT_EQ(drive[0] | directory[0] | name[0] | extension[0], 0);
        EXPECT_EQ(errno, ERANGE);
    }
    _wsplitpath(nullptr, drive, directory, name, extension);
    EXPECT_EQ(errno, EINVAL);
}

// Runs under UTF-8 and under 932.
TEST(CrtText, StepsByCharacterOfTheCodePage) {
    struct Case {
        const char *text;
        int utf8, shift_jis;
    };
    const Case cases[] = {
        {"a", 1, 1},
        {"\x83\x5C", 1, 2},
        {"\x83", 1, 1},
        {"\xA0\xB1", 1, 1},
        {"\xB1\xB1", 1, 1},
        {"\xC3\xA4", 2, 1},
        {"\xE3\x82\xBD", 3, 2},
        {"\xE3\x82", 1, 2},
        {"\xF0\x9F\x98\x80", 4, 2},
        {"\xF0\x9F\x98", 1, 2},
        {"\xFD\x81", 1, 1},
        {"\x83%d", 1, 1},
    };
    ASSERT_TRUE(GetACP() == 65001 || GetACP() == 932);
    for (const Case &c : cases) {
        const auto *const text = reinterpret_cast<const unsigned char *>(c.text);
        EXPECT_EQ(_mbsinc(text) - text, GetACP() == 932 ? c.shift_jis : c.utf8);
    }
    EXPECT_EQ(_mbsinc(nullptr), nullptr);
}

}  // namespace
