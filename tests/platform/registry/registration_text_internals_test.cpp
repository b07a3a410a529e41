#include "ostrel/platform/registry/registration_text.h"

#include <algorithm>

#include "ostrel/platform/registry/utf16_bytes.h"
#include "ostrel/platform/text/charset.h"
#include "support/bytes.h"
#include "support/test.h"

namespace {

using ostrel_platform::append_registration;
using ostrel_platform::append_utf16_bytes;
using ostrel_platform::read_registration_text;
using ostrel_platform::RegistrationOperation;
using ostrel_platform::to_narrow;
using ostrel_platform::to_wide;
using Kind = RegistrationOperation::Kind;

const std::string kHeader = "Windows Registry Editor Version 5.00\r\n";

std::string utf16(std::u16string_view text) {
    std::string bytes;
    append_utf16_bytes(text, &bytes);
    return bytes;
}

// The text of an operation, which is read as the same operation again.
std::string written(const RegistrationOperation &operation) {
    std::string text;
    ostrel_platform::append_registration_begin(&text);
    const bool is_key = operation.kind == Kind::kKey || operation.kind == Kind::kDeleteKey;
    EXPECT_TRUE(is_key || append_registration({Kind::kKey, 0x80000003, u"", 0, {}}, &text));
    EXPECT_TRUE(append_registration(operation, &text));
    ostrel_platform::append_registration_end(&text);
    RegistrationOperation last;
    EXPECT_FALSE(read_registration_text(text, [&last](const RegistrationOperation &again) {
        last = again;
        return true;
    }));
    EXPECT_TRUE(last == operation);
    return text;
}

std::string hex_of(char c) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    return {kDigits[static_cast<unsigned char>(c) >> 4], kDigits[c & 15]};
}

// The operations in short, such as "1 Software\A|name=3:0102", or the line and reason of a fault.
std::string read(const std::string &text) {
    std::string result;
    const auto block = block_of(text);  // an overrun is seen
    const auto fault = read_registration_text({block.get(), text.size()}, [&](const auto &read) {
        const std::string name = to_narrow(read.name, ostrel_platform::kCodePageUtf8);
        result += result.empty() ? "" : "|";
        if (read.kind == Kind::kKey || read.kind == Kind::kDeleteKey) {
            result += read.kind == Kind::kKey ? "" : "-";
            result += std::to_string(read.root - 0x80000000) + ' ' + name;
            return true;
        }
        result += name + '=' + (read.kind == Kind::kValue ? std::to_string(read.type) + ':' : "-");
        for (const char c : read.bytes) {
            result += hex_of(c);
        }
        return true;
    });
    return fault ? result + std::to_string(fault->line) + ": " + fault->reason : result;
}

TEST(RegistrationText, ReadsOperations) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"\r\n ; comment\r\n\t[hkey_Current_User\\A] ; x\r\n\r\n", "1 A"},
        {"[HKEY_USERS]\n[HKEY_CURRENT_CONFIG\\A\\]\n[HKEY_CLASSES_ROOT\\.x]", "3 |5 A|0 .x"},
        {"[HKEY_USERS\\a]b] ; c]\n[-HKEY_USERS\\-]", "3 a]b] ; c|-3 -"},
        {"@=-\r\n \"a\" = - ;c\r\n\"\"=\"\"", "=-|a=-|=1:0000"},
        {R"("a\\\"b"="\"\\" ; c)", "a\\\"b=1:22005C000000"},
        {"\"a\nb]\"=\"c\r\n[d\"\n@=-", "a\nb]=1:63000D000A005B0064000000|=-"},
        {"@=dword:1\n@=DWORD:aBcDeF01", "=4:01000000|=4:01EFCDAB"},
        {"@=hex:\n@=Hex: 1 , 02,fF;c", "=3:|=3:0102FF"},
        {"@=hex(FFFFFFFF):1\n@=hex(0):\n@=hex(10):2", "=4294967295:01|=0:|=16:02"},
        {"@=hex(2):1,\\ ;c\r\n  2,\\\n\\\n3\n@=hex:\\\n 4", "=2:010203|=3:04"},
    };
    for (const auto &[lines, operations] : cases) {
        const bool has_values = lines.find('=') != lines.npos;
        EXPECT_EQ(read(kHeader + (has_values ? "[HKEY_USERS]\n" : "") + lines),
                  (has_values ? "3 |" : "") + operations)
            << lines;
    }
}

TEST(RegistrationText, ReadsEachEncoding) {
    const std::string text = kHeader + "[HKEY_USERS\\\xC3\xA4]\r\n@=\"\xF0\x9F\x98\x80\"\r\n";
    const std::string operations = "3 \xC3\xA4|=1:3DD800DE0000";
    EXPECT_EQ(read(text), operations);
    EXPECT_EQ(read("\xEF\xBB\xBF" + text), operations);
    EXPECT_EQ(read("\xFF\xFE" + utf16(to_wide(text, 65001))), operations);
    EXPECT_EQ(read("\xFF\xFE" + utf16(u"REGEDIT4\n[HKEY_USERS]\n@=\"\xD83D\"")), "3 |=1:3DD80000");
}

// U+30BD ends in a backslash in code page 932.
TEST(RegistrationText, CodePageOfTheOlderForm) {
    const std::string narrow = to_narrow(u"A\u30BD");
    std::string bytes;
    for (const char c : narrow) {
        bytes += (bytes.empty() ? "" : ",") + hex_of(c);
    }
    std::string text = "REGEDIT4\n[HKEY_USERS\\" + narrow + "]\n@=\"" + narrow + "\"";
    for (const char *const type : {"1", "2", "7", "3"}) {
        text += std::string("\n\"x\"=hex(") + type + "):" + bytes;
    }
    bytes.erase(std::remove(bytes.begin(), bytes.end(), ','), bytes.end());
    EXPECT_EQ(read(text),
              "3 A\xE3\x82\xBD|=1:4100BD300000|x=1:4100BD30|x=2:4100BD30|x=7:4100BD30|"
              "x=3:" +
                  bytes);
    EXPECT_EQ(read("REGEDIT4\n\n;\xE0\n"), "3: some bytes are no text in the encoding of the file");
}

TEST(RegistrationText, RefusesTheWholeOfABadText) {
    const std::string users = "[HKEY_USERS\\A]\n";
    const std::string part(257, 'k');
    const std::pair<std::string, std::string> cases[] = {
        {"REGEDIT4x\n", "1: the first line"},
        {"\xFF\xFE" + utf16(u"REGEDIT4\n\n") + "x", "3: the file ends within"},
        {kHeader + users + "\n;\xC3\n", "4: some bytes"},
        {kHeader + "@=-", "2: a value stands above any key"},
        {kHeader + "[-HKEY_USERS\\A]\n\n@=-", "4: a value stands under a deleted key"},
        {kHeader + "[-HKEY_USERS\\]", "2: a root cannot be deleted"},
        {kHeader + "[HKEY_USERS\\A\\\\]", "2: a key's name has an empty part"},
        {kHeader + "[HKEY_USERS\\A\\" + part + "]", "2: a part of a key's name"},
        {kHeader + "[HKEY_USERS\\A" + std::string(1, '\0') + "]", "2: a name contains a NUL"},
        {kHeader + "[HKCU\\A]", "2: a key's name does not begin"},
        {kHeader + users + "\"a\nb", "3: a quoted text has no end"},
        {kHeader + users + "@=\"a\\n\"", "3: a backslash in a quoted text"},
        {kHeader + users + "@=\"a\" b", "3: a value's data is damaged"},
        {kHeader + users + "@=dword:123456789", "3: a number has not one to eight"},
        {kHeader + users + "@=hex:123", "3: a value's data is damaged"},
        {kHeader + users + "@=hex:1,\\\n", "4: the file ends in a line"},
    };
    for (const auto &[text, fault] : cases) {
        EXPECT_EQ(read(text).substr(0, fault.size()), fault) << text;
    }
}

RegistrationOperation value(std::u16string name, DWORD type, std::string bytes) {
    return {Kind::kValue, 0, std::move(name), type, std::move(bytes)};
}

TEST(RegistrationText, WritesWhatEditorsRead) {
    const std::tuple<const char *, RegistrationOperation, std::u16string> cases[] = {
        {"key", {Kind::kKey, 0x80000001, u"a]\\b", 0, {}}, u"\r\n[HKEY_CURRENT_USER\\a]\\b]"},
        {"a name of all units", value(u"a]\r\n;=\xDC00\xD83D\xFEFF", 0, ""),
         u"\"a]\r\n;=\xDC00\xD83D\xFEFF\"=hex(0):"},
        {"quotes", value(u"a\"\\", 1, utf16(std::u16string(u"\\\"\0", 3))), uR"("a\"\\"="\\\"")"},
        {"unnamed", value(u"", 1, std::string(2, '\0')), u"@=\"\""},
        {"CR", value(u"", 1, utf16(std::u16string(u"\r\0", 2))), u"@=hex(1):0d,00,00,00"},
        {"number", value(u"", 4, "\xFE\xCA\x0D\xF0"), u"@=dword:f00dcafe"},
        {"binary", value(u"", 3, "a\xFF"), u"@=hex:61,ff"},
    };
    for (const auto &[name, operation, line] : cases) {
        SCOPED_TRACE(name);
        const std::u16string users = line.front() == u'\r' ? u"" : u"\r\n[HKEY_USERS]\r\n";
        EXPECT_EQ(written(operation),
                  utf16(u"\uFEFF" + wide(kHeader) + users + line + u"\r\n\r\n"));
    }
}

// 25 bytes in a line that continues another, as the platform's editor has it.
TEST(RegistrationText, FoldsLinesAt80Columns) {
    for (std::size_t length = 1; length < 90; ++length) {
        const std::string bytes =
            written(value(std::u16string(length, u'n'), 3, std::string(60, 'a')));
        const std::u16string text = ostrel_platform::utf16_of_bytes(bytes);
        std::size_t at = text.find(u"\"n");
        const std::size_t first = text.find(u"\r\n", at) - at;
        const std::u16string full = u"\r\n  " + wide(repeated(25, "61,")) + u"\\\r\n";
        EXPECT_TRUE(first > 77 && (first <= 80 || first == length + 11)) << length << ' ' << first;
        EXPECT_NE(text.find(full), text.npos) << length;
    }
}

TEST(RegistrationText, SaysWhatItCannotWrite) {
    const std::pair<const char *, RegistrationOperation> cases[] = {
        {"LF in a key", {Kind::kKey, 0x80000001, u"a\nb", 0, {}}},
        {"NUL in a name", {Kind::kDeleteValue, 0, std::u16string(1, u'\0'), 0, {}}},
        {"no such root", {Kind::kDeleteKey, 0x80000007, u"a", 0, {}}},
    };
    for (const auto &[name, operation] : cases) {
        std::string text = "before";
        EXPECT_FALSE(append_registration(operation, &text)) << name;
        EXPECT_EQ(text, "before") << name;
    }
}

}  // namespace
