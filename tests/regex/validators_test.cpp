// What VerifyEMailAddress and CheckPathFormat accept.

#include "ostrel/regex/validators.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "support/test.h"

namespace {

using Text = std::u16string;

// Gives each text of the list, in which a ~ stands between them, to `accepts`.
void expect_each(bool expected, bool (*accepts)(const WCHAR *), const Text &texts) {
    for (std::size_t at = 0, end = 0; at <= texts.size(); at = end + 1) {
        end = std::min(texts.find(u'~', at), texts.size());
        const Text text = texts.substr(at, end - at);
        EXPECT_EQ(accepts(text.c_str()), expected) << PrintToString(text);
    }
}

bool is_path(const WCHAR *text) {
    return CheckPathFormat(text, Text(text).size());
}

TEST(Validators, AcceptTheseAddressesOnly) {
    expect_each(true, VerifyEMailAddress,
                u"a@b~._@-~J.SMITH_7@MAIL.EXAMPLE.CO~a@-.1.xyz~a@[001.02.255.0]~a@[255.4.5.6]~"
                u"a@[4.255.5.6]~a@[4.5.6.255]~\"\"@d~\"\t\r\n\x3B1[\xD800@\"@d~\"a b@c\"@d");
    expect_each(false, VerifyEMailAddress,
                u"~@~a@b.info~a@b.c~a@b.c0~a@b.c-d~a@.com~a@b..com~a@b.com.~a@b@c~a@[1.2.3.0004]~"
                u"a@[256.4.5.6]~a@[4.256.5.6]~a@[4.5.999.6]~a@[4.5.6.256]~a@[1.2.3]~a@[1.2.3.4.5]~"
                u"a@[1.2.3.4~a@1.2.3.4~a@[1.2. 3.4]~\"a\"b\"@d~\"a@d~a\"b\"@d~'a'@d~a-b@d~a+b@d~"
                u" a@d~a@d ~a@d\n~\x430@d~a@\xD800");
}

// A pattern that goes back through what it has tried, or calls itself, would not come to an end.
TEST(Validators, TakeAddressesOfAnyLength) {
    const std::tuple<Text, Text, std::size_t, Text, bool> cases[] = {
        {u"", u"a", 1'000'000, u"@b", true},     {u"", u"a", 200'000, u"", false},
        {u"a@", u"b-1.", 100'000, u"com", true}, {u"a@", u"b-1.", 100'000, u"info", false},
        {u"\"", u"a ", 200'000, u"\"@b", true},  {u"", u"\"", 200'000, u"", false}};
    for (const auto &[begin, part, count, end, valid] : cases) {
        Text address = begin;
        for (std::size_t i = 0; i < count; ++i) {
            address += part;
        }
        EXPECT_EQ(VerifyEMailAddress((address + end).c_str()), valid)
            << PrintToString(begin + part + end);
    }
}

TEST(Validators, AcceptThesePathsOnly) {
    expect_each(true, is_path,
                u"C:\\~z:\\a\\~C:\\\x3B1\xD800\r\n\\~C:\\\x130\x212A\\~C:\\a b\\a.b. c\\");
    expect_each(false, is_path,
                u"~C~C:~C:\\a~C:\\\\~C:\\a\\\\b\\~C:/a/~C:\\a/b\\~1:\\~\x212A:\\~CD:\\~C:\\.\\~"
                u"C:\\..\\~C:\\.a\\~C:\\a.\\~ C:\\~C:\\ a\\~C:\\a \\~\\\\host\\share\\");
    for (const char16_t refused : Text(u"\t/:*?\"<>|")) {
        const Text within = Text(u"C:\\a") + refused + u"b\\",
                   alone = Text(u"C:\\") + refused + u"\\";
        EXPECT_FALSE(is_path(within.c_str()) || is_path(alone.c_str())) << PrintToString(alone);
    }
}

TEST(Validators, CountTheGivenLengthOfAPathAlone) {
    const WCHAR text[] = {u'C', u':', u'\\', u'a', u'\\', u'b'};  // without a NUL
    const bool valid[] = {false, false, false, true, false, true, false};
    for (std::size_t length = 0; length < std::size(valid); ++length) {
        EXPECT_EQ(CheckPathFormat(text, length), valid[length]) << length;
    }
    EXPECT_TRUE(CheckPathFormat(TEXT("C:\\\0?"), 5));  // a NUL within the length ends the text
    EXPECT_FALSE(CheckPathFormat(TEXT("C:\0\\"), 4));
    EXPECT_TRUE(is_path((u"C:\\" + Text(255, u'a') + u"\\").c_str()));
    EXPECT_FALSE(is_path((u"C:\\" + Text(256, u'a') + u"\\").c_str()));
}

}  // namespace
