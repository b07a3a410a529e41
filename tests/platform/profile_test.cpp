#include "ostrel/platform/profile.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "ostrel/platform/codepage.h"
#include "ostrel/platform/error.h"
#include "support/temp_dir.h"

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
        EXPECT_EQ(first(key), u"dflt|4");
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
    const WCHAR *const values[] = {u"0 e234",     u"|0 e234",     u"v|1 e234", u"va|2 e234",
                                   u"val|3 e234", u"valu|4 e234", u"value|5"};
    const WCHAR *const lists[] = {u"0 e234",     u"|0 e234",     u"||0 e234",     u"a||1 e234",
                                  u"ab||2 e234", u"ab|||3 e234", u"ab|c||4 e234", u"ab|cd||6"};
    for (DWORD size = 0; size < 8; ++size) {
        EXPECT_EQ(asked(u"s", u"ab", size), values[std::min(size, 6u)]);
        EXPECT_EQ(asked(u"s", nullptr, size), lists[size]);
    }
    EXPECT_EQ(asked(u"t", nullptr, 1), u"|0");
    EXPECT_EQ(asked(u"s", u"none", 100, u" a \t"), u" a|2");
    EXPECT_EQ(asked(u"s", u"none", 100, nullptr), u"|0");
    EXPECT_EQ(asked(u"s", u"none", 3, u"abc"), u"ab|2 e234");
    EXPECT_EQ(GetPrivateProfileStringW(u"s", u"ab", nullptr, nullptr, 9, u"a.ini"), 0u);
    WCHAR buffer[] = u"  own ";
    EXPECT_EQ(GetPrivateProfileStringW(u"s", u"none", buffer + 1, buffer, 7, u"a.ini"), 4u);
    EXPECT_EQ(std::u16string(buffer), u" own");
}

TEST(Profile, ReadsNumbers) {
    const TempDir dir;
    const char *const texts[] = {"102abc",      "-1",  "+7",  "0x1Fg", "-0XfF",
                                 "\" 12\"",     "x1",  "",    "010",   "4294967298",
                                 "0x100000003", "- 1", "1 2", "0x"};
    const unsigned numbers[] = {102, ~0u, 7, 31, 4294967041, 12, 0, 0, 10, 2, 3, 0, 1, 0};
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        dir.Write("a.ini", std::string("[s]\nk=") + texts[i]);  // a change between two calls
        EXPECT_EQ(GetPrivateProfileIntW(u"s", u"k", 5, u"a.ini"), numbers[i]) << texts[i];
    }
    SetLastError(kUntouched);
    EXPECT_EQ(GetPrivateProfileIntW(u"s", u"none", -5, u"a.ini"), 4294967291u);
    EXPECT_EQ(GetPrivateProfileIntW(nullptr, u"k", -5, u"a.ini"), 4294967291u);
    EXPECT_EQ(GetLastError(), kUntouched);
    EXPECT_EQ(GetPrivateProfileIntW(u"s", u"k", -5, u"none.ini"), 4294967291u);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

// Text that begins and ends on either side of every border between blocks, in lines of any length.
TEST(Profile, ReadsLargeFiles) {
    const TempDir dir;
    const auto utf16 = [](const std::string &text) {
        std::string bytes = "\xFF\xFE";
        for (const char c : text) {
            bytes.append({c, '\0'});
        }
        return bytes;
    };
    for (std::size_t length = 8170; length < 8200; ++length) {
        const std::string text = "[s]\n;" + std::string(length, 'x') + "\r\nkey=a\xC3\xA4z\n;" +
                                 std::string(20000, 'y') + "\n[t]\nk=v";
        dir.Write("a.ini", "\xEF\xBB\xBF" + text);
        EXPECT_EQ(asked(u"s", u"key"), u"a\u00E4z|3") << length;
        EXPECT_EQ(asked(u"t", u"k"), u"v|1") << length;
        dir.Write("a.ini", utf16(text));
        EXPECT_EQ(asked(u"s", u"key"), u"a\u00C3\u00A4z|4") << length;
        EXPECT_EQ(asked(u"t", u"k"), u"v|1") << length;
    }
    dir.Write("a.ini", utf16("[s]\nk=v") + "x");  // half a character
    EXPECT_EQ(asked(u"s", u"k"), u"v\uFFFD|2");
    dir.Write("a.ini", std::string("[s]\0x]\nk=v\0w\n", 13));
    EXPECT_EQ(asked(u"s", u"k"), u"v|1");
}

// Under 932 the second byte of a character may look like a bracket or a separator.
TEST(Profile, ReadsTheCodePageOfTheSystem) {
    const TempDir dir;
    const bool wide = GetACP() == 932;
    dir.Write("a.ini", wide ? "[\x83\x5Dz]\n\x83\x5B=\x83\x5C\n" : "[\u30BEz]\n\u30BC=\u30BD\n");
    EXPECT_EQ(asked(u"\u30BEZ", u"\u30BC"), u"\u30BD|1");
    EXPECT_EQ(asked(nullptr, nullptr), u"\u30BEz||3");
    dir.Write("a.ini", "\xEF\xBB\xBF[s]\nk=\xE3\x82\xBD\n");  // the mark wins
    EXPECT_EQ(asked(u"s", u"k"), u"\u30BD|1");
}

TEST(Profile, SaysWhyAFileIsNotRead) {
    const TempDir dir;
    mkfifo("fifo", 0600);
    mkdir("dir.ini", 0700);
    const int socket_file = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {AF_UNIX, "socket"};
    ASSERT_EQ(bind(socket_file, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    const auto check = [](const WCHAR *file, const std::u16string &error) {
        EXPECT_EQ(asked(u"s", u"k", 100, u"d ", file), u"d|1 e" + error);
        EXPECT_EQ(asked(nullptr, nullptr, 3, u"dd", file), u"d||1 e" + error);
    };
    for (const WCHAR *file :
         {u"none.ini", static_cast<const WCHAR *>(nullptr), u"", u"x\xD800", u"W:\\a.ini"}) {
        check(file, u"2");
    }
    check(u"fifo\\a.ini", u"3");
    for (const WCHAR *file : {u"fifo", u"dir.ini", u"socket", u"/dev/zero"}) {
        check(file, u"5");
    }
    close(socket_file);
    const int before = dup(0);
    asked(u"s", u"k", 100, u"", u"fifo");
    const int after = dup(0);
    EXPECT_EQ(after, before + 1);  // no descriptor stays open
    close(before);
    close(after);
}

}  // namespace
