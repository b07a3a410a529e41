// What VerifyEMailAddress and CheckPathFormat accept.

#include "ostrel/regex/validators.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "support/regex_model.h"

namespace {

using Text = std::u16string;

TEST(VerifyEMailAddress, AcceptsTheseFormsOnly) {
    std::vector<Text> valid = test::split(
        u"a@b ._@- J.SMITH_7@MAIL.EXAMPLE.CO a@-.1.xyz a@[1.2.3.4] a@[001.02.255.0] \"\"@d "
        u"\"\t\r\n\x3B1[\xD800@\"@d");
    valid.push_back(u"\"a b@c\"@d");
    for (const Text &address : valid) {
        EXPECT_TRUE(VerifyEMailAddress(address.c_str())) << ::testing::PrintToString(address);
    }
    std::vector<Text> invalid = test::split(
        u" @ a@b.info a@b.c a@b.c0 a@b.c-d a@.com a@b..com a@b.com. a@b@c a@[1.2.3.256] "
        u"a@[1.2.3.0004] a@[1.2.3] a@[1.2.3.4.5] a@[1.2.3.4 a@1.2.3.4 \"a\"b\"@d "
        u"\"a@d a\"b\"@d 'a'@d a-b@d a+b@d a@d\n \x430@d a@\xD800");
    invalid.insert(invalid.end(), {u" a@d", u"a@d ", u"a@[1.2. 3.4]"});
    for (const Text &address : invalid) {
        EXPECT_FALSE(VerifyEMailAddress(address.c_str())) << ::testing::PrintToString(address);
    }
    EXPECT_FALSE(VerifyEMailAddress(nullptr));
    for (int number = 0; number < 1000; ++number) {
        const std::string digits = std::to_string(number);
        const Text address = u"a@[1.2." + Text(digits.begin(), digits.end()) + u".3]";
        EXPECT_EQ(VerifyEMailAddress(address.c_str()), number <= 255) << number;
    }
}

// A pattern that goes back through what it has tried, or calls itself, would not come to an end.
TEST(VerifyEMailAddress, TakesAddressesOfAnyLength) {
    const std::tuple<Text, Text, std::size_t, Text, bool> cases[] = {
        {u"", u"a", 1'000'000, u"@b", true},     {u"", u"a", 200'000, u"", false},
        {u"a@", u"b-1.", 100'000, u"com", true}, {u"a@", u"b-1.", 100'000, u"info", false},
        {u"\"", u"a ", 200'000, u"\"@b", true},  {u"\"", u"a", 200'000, u"", false},
        {u"", u"\"", 200'000, u"", false}};
    for (const auto &[begin, part, count, end, valid] : cases) {
        Text address = begin;
        for (std::size_t i = 0; i < count; ++i) {
            address += part;
        }
        EXPECT_EQ(VerifyEMailAddress((address + end).c_str()), valid)
            << ::testing::PrintToString(begin + part + end);
    }
}

bool accepts(const Text &path) {
    return CheckPathFormat(path.data(), path.size());
}

TEST(CheckPathFormat, AcceptsTheseFormsOnly) {
    std::vector<Text> valid = test::split(u"C:\\ z:\\a\\ C:\\\x3B1\xD800\r\n\\ C:\\\x130\x212A\\");
    valid.push_back(u"C:\\Program Files\\a.b. c\\");
    for (const Text &path : valid) {
        EXPECT_TRUE(accepts(path)) << ::testing::PrintToString(path);
    }
    std::vector<Text> invalid = test::split(
        u" C C: C:\\a C:\\\\ C:\\a\\\\b\\ C:/a/ C:\\a/b\\ 1:\\ \x212A:\\ \\\\host\\share\\ CD:\\ "
        u"C:\\.\\ C:\\..\\ C:\\.a\\ C:\\a.\\");
    invalid.insert(invalid.end(), {u" C:\\", u"C:\\ a\\", u"C:\\a \\"});
    for (const char16_t refused : Text(u"\t/:*?\"<>|")) {
        invalid.push_back(Text(u"C:\\a") + refused + u"b\\");
        invalid.push_back(Text(u"C:\\") + refused + u"\\");
    }
    for (const Text &path : invalid) {
        EXPECT_FALSE(accepts(path)) << ::testing::PrintToString(path);
    }
}

TEST(CheckPathFormat, CountsTheGivenLengthAlone) {
    const WCHAR text[] = {u'C', u':', u'\\', u'a', u'\\', u'b'};  // without a NUL
    const bool valid[] = {false, false, false, true, false, true, false};
    for (std::size_t length = 0; length < std::size(valid); ++length) {
        EXPECT_EQ(CheckPathFormat(text, length), valid[length]) << length;
    }
    // A NUL within the length ends the text.
    EXPECT_TRUE(CheckPathFormat(TEXT("C:\\\0?"), 5));
    EXPECT_FALSE(CheckPathFormat(TEXT("C:\0\\"), 4));

    EXPECT_TRUE(accepts(u"C:\\" + Text(255, u'a') + u"\\"));
    EXPECT_FALSE(accepts(u"C:\\" + Text(256, u'a') + u"\\"));
    EXPECT_FALSE(CheckPathFormat(nullptr, 260));
    EXPECT_FALSE(CheckPathFormat(nullptr, std::uint64_t{1} << 32));
}

TEST(CheckPathFormat, ThrowsForANullPathWithALength) {
    EXPECT_FALSE(CheckPathFormat(nullptr, 0));
    try {
        CheckPathFormat(nullptr, 259);
        ADD_FAILURE();
    } catch (const OS::RegexFailure &failure) {
        EXPECT_EQ(failure.code, 0x80070057U);
    }
    static_assert(sizeof(OS::RegexFailure) == 4);
}

}  // namespace
