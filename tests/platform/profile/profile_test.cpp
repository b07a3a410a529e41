#include "ostrel/platform/profile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "ostrel/platform/codepage.h"
#include "ostrel/platform/error.h"
#include "support/temp_dir.h"
#include "support/test.h"

namespace {

constexpr DWORD kUntouched = 12345;

// What the call stores, with a bar for each NUL; then the result, and the last error when it is
// set. The characters behind the buffer must stay.
std::u16string asked(const WCHAR *section, const WCHAR *key, DWORD size = 100,
                     const WCHAR *fallback = TEXT("dflt"), const WCHAR *file = TEXT("a.ini")) {
    std::u16string buffer(size + 4, u'#');
    SetLastError(kUntouched);
    const DWORD result =
        GetPrivateProfileStringW(section, key, fallback, buffer.data(), size, file);
    EXPECT_EQ(buffer.substr(size), u"####");
    buffer.resize(std::min(buffer.find_last_not_of(u'#') + 1, std::size_t{size}));
    std::replace(buffer.begin(), buffer.end(), u'\0', u'|');
    std::string tail = std::to_string(result);
    tail += GetLastError() == kUntouched ? "" : " e" + std::to_string(GetLastError());
    return buffer + std::u16string(tail.begin(), tail.end());
}

TEST(Profile, FindsValues) {
    const TempDir dir;
    dir.Write("a.ini",
              "outside=1\n [ First ] tail = x\r\n;hidden=1\n  ; hidden=2\r\nno equals\n=nameless\n"
              "Key One \t=  some ; text = more \t\r\nempty=\ndouble=\" in \"\nsingle='a\"'\n"
              "nested=\"'x'\"\nmixed=\"x'\nlone=\"\ntwo=''\nKEY one=second\n\n[]\nlost=1\n"
              "[first]\nlate=1\n[open\nk=v\rw\n[Last]x]\nend=1");
    const auto first = [](const WCHAR *key) { return asked(u" FIRST\t", key); };
    EXPECT_EQ(first(u" key ONE "), u"some ; text = more|18");
    EXPECT_EQ(first(u"empty") + first(u"two"), u"|0|0");
    EXPECT_EQ(first(u"double") + first(u"single"), u" in |4a\"|2");
    EXPECT_EQ(first(u"nested") + first(u"mixed") + first(u"lone"), u"'x'|3\"x'|3\"|1");
    for (const WCHAR *key :
         {u"outside", u";hidden", u"hidden", u"no equals", u"", u"late", u"doubl"}) {
        EXPECT_EQ(first(key), u"dflt|4") << PrintToString(key);
    }
    EXPECT_EQ(asked(u"open", u"k") + asked(u"last", u"end"), u"v\rw|31|1");
    EXPECT_EQ(asked(u"", u"outside") + asked(u"", u"lost"), u"dflt|4dflt|4");
    EXPECT_EQ(asked(nullptr, u"ignored"), u"First|first|open|Last||22");
    EXPECT_EQ(asked(u"FIRST", nullptr),
              u"Key One|empty|double|single|nested|mixed|lone|two|KEY one||58");
    EXPECT_EQ(asked(u"none", nullptr), u"||0");
}

TEST(Profile, CutsWhatIsTooLong) {
    const TempDir dir;
    dir.Write("a.ini", "[s]\nab=value\ncd=2\n[t]\n");
    const WCHAR *const values[] = {u"0 e234", u"|0 e234", u"v|1 e234", u"va|2 e234"};
    const WCHAR *const lists[] = {u"0 e234",     u"|0 e234",     u"||0 e234",     u"a||1 e234",
                                  u"ab||2 e234", u"ab|||3 e234", u"ab|c||4 e234", u"ab|cd||6"};
    for (DWORD size = 0; size < 8; ++size) {
        EXPECT_EQ(asked(u"s", nullptr, size), lists[size]) << size;
        if (size < 4) {
            EXPECT_EQ(asked(u"s", u"ab", size), values[size]) << size;
        }
    }
    EXPECT_EQ(asked(u"s", u"ab", 6), u"value|5");
    EXPECT_EQ(asked(u"s", u"none", 100, u" a \t"), u" a|2");
    EXPECT_EQ(asked(u"s", u"none", 100, nullptr), u"|0");
}

TEST(Profile, ReadsNumbers) {
    const TempDir dir;
    const std::pair<const char *, unsigned> cases[] = {
        {"102abc", 102}, {"-1", ~0u}, {"+7", 7},   {"0x1Fg", 31},     {"-0XfF", 0u - 255},
        {"\" 12\"", 12}, {"", 0},     {"010", 10}, {"4294967298", 2}, {"0x100000003", 3}};
    for (const auto &[text, number] : cases) {
        dir.Write("a.ini", std::string("[s]\nk=") + text);  // a change between two calls
        EXPECT_EQ(GetPrivateProfileIntW(u"s", u"k", 5, u"a.ini"), number) << text;
    }
    EXPECT_EQ(GetPrivateProfileIntW(u"s", u"none", -5, u"a.ini"), 4294967291u);
    EXPECT_EQ(GetPrivateProfileIntW(u"s", u"k", -5, u"none.ini"), 4294967291u);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

// Text that begins and ends on either side of every border between blocks, in lines of any length.
TEST(Profile, ReadsLargeFiles) {
    const TempDir dir;
    const auto bytes_of = [](std::u16string_view text) {
        return std::string(reinterpret_cast<const char *>(text.data()), 2 * text.size());
    };
    for (std::size_t length = 8170; length < 8200; ++length) {
        const std::u16string text = u"\uFEFF[s]\n;" + std::u16string(length, u'x') +
                                    u"\r\nkey=a\u00E4z\n;" + std::u16string(20000, u'y') +
                                    u"\n[t]\nk=v";
        for (const std::string &bytes : {bytes_of(text), fs::path(text).string()}) {
            dir.Write("a.ini", bytes);
            EXPECT_EQ(asked(u"s", u"key") + asked(u"t", u"k"), u"a\u00E4z|3v|1") << length;
        }
    }
    dir.Write("a.ini", bytes_of(u"\uFEFF[s]\nk=v") + "x");  // half a character
    EXPECT_EQ(asked(u"s", u"k"), u"v\uFFFD|2");
}

TEST(Profile, RefusesALineBeyondTheLimit) {
    const TempDir dir;
    const std::string longest(std::size_t{4} << 20, ';');
    for (const char *const more : {"", ";"}) {
        dir.Write("a.ini", "[s]\nfirst=1\n" + longest + more + '\n');
        EXPECT_EQ(asked(u"s", u"none"), *more == 0 ? u"dflt|4" : u"dflt|4 e13");
        EXPECT_EQ(asked(u"s", u"first"), u"1|1");  // nothing behind the answer is read
    }
    ASSERT_EQ(truncate("a.ini", off_t{5} << 30), 0);  // sparse
    EXPECT_EQ(asked(u"s", u"none"), u"dflt|4 e13");
}

// Under 932 the second byte of a character may look like a bracket or a separator.
TEST(Profile, ReadsTheCodePageOfTheSystem) {
    const TempDir dir;
    const bool wide = GetACP() == 932;
    dir.Write("a.ini", wide ? "[\x83\x5Dz]\n\x83\x5B=\x83\x5C\n" : "[\u30BEz]\n\u30BC=\u30BD\n");
    EXPECT_EQ(asked(u"\u30BEZ", u"\u30BC"), u"\u30BD|1");
    dir.Write("a.ini", "\xEF\xBB\xBF[s]\nk=\xE3\x82\xBD\n");  // the mark wins
    EXPECT_EQ(asked(u"s", u"k"), u"\u30BD|1");
}

TEST(Profile, SaysWhyAFileIsNotRead) {
    const TempDir dir;
    mkfifo("fifo", 0600);
    mkdir("dir.ini", 0700);
    const std::pair<const WCHAR *, std::u16string> cases[] = {
        {u"none.ini", u"2"}, {nullptr, u"2"},      {u"", u"2"},
        {u"x\xD800", u"2"},  {u"W:\\a.ini", u"2"}, {u"fifo\\a.ini", u"3"},
        {u"fifo", u"5"},     {u"dir.ini", u"5"},   {u"/dev/zero", u"5"}};
    for (const auto &[file, error] : cases) {
        EXPECT_EQ(asked(u"s", u"k", 100, u"d ", file), u"d|1 e" + error) << PrintToString(file);
    }
}

}  // namespace
