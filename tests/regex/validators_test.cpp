// VerifyEMailAddress and CheckPathFormat, against tables and against a reading of the accepted
// forms that uses no patterns.

#include "ostrel/regex/validators.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "support/regex_model.h"

namespace {

using Text = std::u16string;

const Text kDigits = u"0123456789";
const Text kLetters = u"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

bool only(const Text &text, const Text &characters) {
    return text.find_first_not_of(characters) == Text::npos;
}

bool is_number(const Text &text) {
    return !text.empty() && text.size() <= 3 && only(text, kDigits) &&
           std::stoi(std::string(text.begin(), text.end())) <= 255;
}

bool is_label(const Text &text) {
    return !text.empty() && only(text, kLetters + kDigits + u"-");
}

bool is_domain(const Text &text) {
    if (text.size() > 1 && text.front() == u'[' && text.back() == u']') {
        const auto numbers = test::split(text.substr(1, text.size() - 2), u'.');
        return numbers.size() == 4 && std::all_of(numbers.begin(), numbers.end(), is_number);
    }
    auto labels = test::split(text, u'.');
    if (labels.size() > 1) {
        const Text last = labels.back();
        labels.pop_back();
        if (last.size() < 2 || last.size() > 3 || !only(last, kLetters)) {
            return false;
        }
    }
    return std::all_of(labels.begin(), labels.end(), is_label);
}

bool is_address(const Text &text) {
    const bool quoted = text[0] == u'"';
    const std::size_t at = quoted ? text.find(u'"', 1) + 1 : text.find(u'@');
    return at != 0 && at < text.size() && text[at] == u'@' && is_domain(text.substr(at + 1)) &&
           (quoted || only(text.substr(0, at), kLetters + kDigits + u"._"));
}

bool is_name(const Text &text) {
    return !text.empty() && text.find_first_of(u"\t/:*?\"<>|") == Text::npos &&
           !only(text.substr(0, 1), u" .") && !only(text.substr(text.size() - 1), u" .");
}

bool is_path(const Text &text) {
    const auto names = test::split(text.substr(0, text.find(u'\0')), u'\\');
    return names.size() > 1 && names[0].size() == 2 && only(names[0].substr(0, 1), kLetters) &&
           names[0][1] == u':' && names.back().empty() &&
           std::all_of(names.begin() + 1, names.end() - 1, is_name);
}

// Joins random parts, and now and then drops or doubles a character.
Text generate(std::mt19937 &random, const std::vector<Text> &parts) {
    Text text;
    for (std::size_t left = random() % 5; left != 0; --left) {
        text += parts[random() % parts.size()];
    }
    if (const std::size_t at = random() % (text.size() * 2 + 1); at < text.size()) {
        if (random() % 2 == 0) {
            text.erase(at, 1);
        } else {
            text.insert(at, 1, text[at]);
        }
    }
    return text;
}

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
        u"a@[999.2.3.4] a@[1.2.3.0004] a@[1.2.3] a@[1.2.3.4.5] a@[1.2.3.4 a@1.2.3.4 \"a\"b\"@d "
        u"\"a@d a\"b\"@d 'a'@d a-b@d a+b@d a@d\n \x430@d a@\xD800");
    invalid.insert(invalid.end(), {u" a@d", u"a@d ", u"a@[1.2. 3.4]"});
    for (const Text &address : invalid) {
        EXPECT_FALSE(VerifyEMailAddress(address.c_str())) << ::testing::PrintToString(address);
    }
    EXPECT_FALSE(VerifyEMailAddress(nullptr));
}

TEST(VerifyEMailAddress, AgreesWithAReadingByHand) {
    std::vector<Text> locals = test::split(u"a . _ Z9 \" - ' j.s_m \"a@b\" \x3B1");
    locals.insert(locals.end(), {u" ", u"\"x y\""});
    const std::vector<Text> domains =
        test::split(u"a - . b1. com de info [ ] @ 1 256 255. 0. [1.2.3.4]");
    std::mt19937 random(3);
    int valid = 0;
    for (int i = 0; i < 30000; ++i) {
        Text address = generate(random, locals) + u"@";
        if (random() % 4 == 0) {
            for (int j = 0; j < 4; ++j) {
                const std::string octet = std::to_string(random() % 270);
                address += (j == 0 ? u'[' : u'.') + Text(octet.begin(), octet.end());
            }
            address += u']';
        } else {
            address += generate(random, domains);
        }
        const bool expected = is_address(address);
        ASSERT_EQ(VerifyEMailAddress(address.c_str()), expected)
            << ::testing::PrintToString(address);
        valid += expected ? 1 : 0;
    }
    EXPECT_GT(valid, 1000);
}

// A pattern that goes back through what it has tried, or calls itself, would not come to an end.
TEST(VerifyEMailAddress, TakesAddressesOfAnyLength) {
    const std::tuple<Text, Text, std::size_t, Text, bool> cases[] = {
        {u"", u"a", 1'000'000, u"@b", true},     {u"", u"a", 200'000, u"", false},
        {u"a@", u"b-1.", 100'000, u"com", true}, {u"a@", u"b-1.", 100'000, u"info", false},
        {u"a@", u"b", 200'000, u"", true},       {u"a@", u"[", 200'000, u"", false},
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

TEST(CheckPathFormat, AgreesWithAReadingByHand) {
    std::vector<Text> parts = test::split(u"a B \\ \\ . name\\ / a.b\\ * \x3B1\\ | C:\\ \t");
    parts.insert(parts.end(), {u" ", u"x y\\", Text(1, u'\0')});
    std::mt19937 random(5);
    int valid = 0;
    for (int i = 0; i < 30000; ++i) {
        Text path = random() % 10 == 0 ? u"" : u"C:\\";
        path += generate(random, parts);
        path += random() % 3 == 0 ? u"" : u"\\";
        const bool expected = is_path(path);
        ASSERT_EQ(accepts(path), expected) << ::testing::PrintToString(path);
        valid += expected ? 1 : 0;
    }
    EXPECT_GT(valid, 1000);
}

}  // namespace
