// VerifyEMailAddress and CheckPathFormat, against tables and against a reading of the accepted
// forms that uses no patterns.

#include "ostrel/regex/validators.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace {

using Text = std::u16string;
using View = std::u16string_view;

constexpr View kDigits = u"0123456789";
constexpr View kLetters = u"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

bool only(View text, std::initializer_list<View> sets) {
    return std::all_of(text.begin(), text.end(), [&](char16_t c) {
        return std::any_of(sets.begin(), sets.end(),
                           [c](View set) { return set.find(c) != View::npos; });
    });
}

// Cuts the text before the first `c` off `rest`, which loses both; all of it when there is none.
View cut(View &rest, char16_t c) {
    const View part = rest.substr(0, rest.find(c));
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
    return part;
}

bool reads_as_numbers(View text) {
    if (text.size() < 2 || text.front() != u'[' || text.back() != u']') {
        return false;
    }
    View rest = text.substr(1, text.size() - 2);
    if (std::count(rest.begin(), rest.end(), u'.') != 3) {
        return false;
    }
    for (int i = 0; i < 4; ++i) {
        const View number = cut(rest, u'.');
        if (number.empty() || number.size() > 3 || !only(number, {kDigits}) ||
            std::stoi(std::string(number.begin(), number.end())) > 255) {
            return false;
        }
    }
    return true;
}

bool reads_as_domain(View text) {
    if (text.find(u'.') == View::npos) {
        return !text.empty() && only(text, {kLetters, kDigits, u"-"});
    }
    const View last = text.substr(text.rfind(u'.') + 1);
    if (last.size() < 2 || last.size() > 3 || !only(last, {kLetters})) {
        return false;
    }
    for (View rest = text.substr(0, text.size() - last.size()); !rest.empty();) {
        const View label = cut(rest, u'.');
        if (label.empty() || !only(label, {kLetters, kDigits, u"-"})) {
            return false;
        }
    }
    return true;
}

bool reads_as_address(const Text &address) {
    View text = address.c_str();
    View local;
    if (!text.empty() && text.front() == u'"') {
        const std::size_t quote = text.find(u'"', 1);
        if (quote == View::npos || text.substr(quote + 1, 1) != u"@") {
            return false;
        }
        text.remove_prefix(quote + 2);
    } else {
        const bool separated = text.find(u'@') != View::npos;
        local = cut(text, u'@');
        if (!separated || local.empty() || !only(local, {kLetters, kDigits, u"._"})) {
            return false;
        }
    }
    return reads_as_domain(text) || reads_as_numbers(text);
}

bool reads_as_path(const Text &path, std::uint64_t length) {
    if (length >= 260) {
        return false;
    }
    View text = View(path).substr(0, length);
    text = text.substr(0, text.find(u'\0'));
    if (text.size() < 3 || !only(text.substr(0, 1), {kLetters}) || text.substr(1, 2) != u":\\" ||
        text.back() != u'\\') {
        return false;
    }
    for (View rest = text.substr(3); !rest.empty();) {
        const View name = cut(rest, u'\\');
        if (name.empty() || name.find_first_of(u"\t/:*?\"<>|") != View::npos ||
            View(u" .").find(name.front()) != View::npos ||
            View(u" .").find(name.back()) != View::npos) {
            return false;
        }
    }
    return true;
}

bool accepts(const WCHAR *path) {
    return CheckPathFormat(path, View(path).size());
}

// Joins random parts, and now and then changes, drops or doubles a character.
Text generate(std::mt19937 &random, const Text *parts, std::size_t count, std::size_t longest) {
    Text text;
    for (std::size_t left = random() % longest; left != 0; --left) {
        text += parts[random() % count];
    }
    for (std::size_t left = random() % 3; left != 0 && !text.empty(); --left) {
        const std::size_t at = random() % text.size();
        const Text &part = parts[random() % count];
        switch (random() % 3) {
            case 0:
                text.erase(at, 1);
                break;
            case 1:
                text.insert(at, 1, text[at]);
                break;
            default:
                text[at] = part.empty() ? u'\x3B1' : part[0];
                break;
        }
    }
    return text;
}

TEST(VerifyEMailAddress, AcceptsTheseFormsOnly) {
    const std::pair<const WCHAR *, bool> cases[] = {
        {nullptr, false},
        {TEXT(""), false},
        {TEXT("@"), false},
        {TEXT("a@b"), true},
        {TEXT("._@-"), true},
        {TEXT("J.SMITH_7@MAIL.EXAMPLE.CO"), true},
        {TEXT("a@b.info"), false},
        {TEXT("a@b.c"), false},
        {TEXT("a@b.c0"), false},
        {TEXT("a@b.c-d"), false},
        {TEXT("a@-.1.xyz"), true},
        {TEXT("a@.com"), false},
        {TEXT("a@b..com"), false},
        {TEXT("a@b.com."), false},
        {TEXT("a@b@c"), false},
        {TEXT("a@[1.2.3.4]"), true},
        {TEXT("a@[001.02.255.0]"), true},
        {TEXT("a@[1.2.3.256]"), false},
        {TEXT("a@[999.2.3.4]"), false},
        {TEXT("a@[1.2.3.0004]"), false},
        {TEXT("a@[1.2.3]"), false},
        {TEXT("a@[1.2.3.4.5]"), false},
        {TEXT("a@[ 1.2.3.4]"), false},
        {TEXT("a@[1.2. 3.4]"), false},
        {TEXT("a@[1.2.3.4"), false},
        {TEXT("a@1.2.3.4"), false},
        {TEXT("\"a b@c\"@d"), true},
        {TEXT("\"\"@d"), true},
        {TEXT("\"\t\r\n\x3B1[\xD800\"@d"), true},
        {TEXT("\"a\"b\"@d"), false},
        {TEXT("\"a@d"), false},
        {TEXT("a\"b\"@d"), false},
        {TEXT("'a b'@d"), false},
        {TEXT("a-b@d"), false},
        {TEXT("a+b@d"), false},
        {TEXT(" a@d"), false},
        {TEXT("a@d "), false},
        {TEXT("a@d\n"), false},
        {TEXT("\x430@d"), false},
    };
    for (const auto &[address, valid] : cases) {
        EXPECT_EQ(VerifyEMailAddress(address), valid)
            << (address == nullptr ? "null" : ::testing::PrintToString(Text(address)));
    }
}

TEST(VerifyEMailAddress, AgreesWithAReadingByHand) {
    const Text locals[] = {u"a", u".", u"_", u"Z9",    u"\"",      u"\"x y\"",
                           u"-", u" ", u"'", u"j.s_m", u"\"a@b\"", u"\\"};
    const Text domains[] = {u"a", u"-", u".", u"b1.", u"com",  u"de", u"info", u"[",
                            u"]", u"@", u"1", u"256", u"255.", u"0.", u"9.",   u"[1.2.3.4]"};
    std::mt19937 random(3);
    int valid = 0;
    for (int i = 0; i < 60000; ++i) {
        Text address = generate(random, locals, std::size(locals), 4);
        address += random() % 20 == 0 ? u"" : u"@";
        if (random() % 4 == 0) {
            address += u'[';
            for (std::size_t left = 3 + (random() % 8 + 1) / 4; left != 0; --left) {
                const std::string number = std::to_string(random() % 280);
                address.append(number.begin(), number.end());
                address += left == 1 ? u']' : u'.';
            }
        } else {
            address += generate(random, domains, std::size(domains), 5);
        }
        const bool expected = reads_as_address(address);
        ASSERT_EQ(VerifyEMailAddress(address.c_str()), expected)
            << ::testing::PrintToString(address);
        valid += expected ? 1 : 0;
    }
    EXPECT_GT(valid, 2000);
}

TEST(VerifyEMailAddress, TakesAddressesOfAnyLength) {
    const auto repeat = [](std::size_t count, const Text &part) {
        Text text;
        for (std::size_t i = 0; i < count; ++i) {
            text += part;
        }
        return text;
    };
    EXPECT_TRUE(VerifyEMailAddress((repeat(10'000'000, u"a") + u"@b").c_str()));
    EXPECT_FALSE(VerifyEMailAddress(repeat(200'000, u"a").c_str()));
    EXPECT_TRUE(VerifyEMailAddress((u"a@" + repeat(100'000, u"b-1.") + u"com").c_str()));
    EXPECT_FALSE(VerifyEMailAddress((u"a@" + repeat(100'000, u"b-1.") + u"info").c_str()));
    EXPECT_TRUE(VerifyEMailAddress((u"a@" + repeat(200'000, u"b")).c_str()));
    EXPECT_TRUE(VerifyEMailAddress((u"\"" + repeat(200'000, u"a ") + u"\"@b").c_str()));
    EXPECT_FALSE(VerifyEMailAddress(repeat(200'000, u"\"").c_str()));
    EXPECT_FALSE(VerifyEMailAddress((u"\"" + repeat(200'000, u"a")).c_str()));
    EXPECT_FALSE(VerifyEMailAddress((u"a@" + repeat(200'000, u"[")).c_str()));
}

TEST(CheckPathFormat, AcceptsTheseFormsOnly) {
    const std::pair<const WCHAR *, bool> cases[] = {
        {TEXT("C:\\"), true},
        {TEXT("z:\\a\\"), true},
        {TEXT("C:\\Program Files\\a.b. c\\"), true},
        {TEXT("C:\\\x3B1\xD800\r\n\\"), true},
        {TEXT("C:\\\x130\x212A\\"), true},
        {TEXT(""), false},
        {TEXT("C"), false},
        {TEXT("C:"), false},
        {TEXT("C:\\a"), false},
        {TEXT("C:\\\\"), false},
        {TEXT("C:\\a\\\\b\\"), false},
        {TEXT("C:/a/"), false},
        {TEXT("C:\\a/b\\"), false},
        {TEXT("1:\\"), false},
        {TEXT("\x212A:\\"), false},
        {TEXT("\\\\host\\share\\"), false},
        {TEXT("CD:\\"), false},
        {TEXT(" C:\\"), false},
        {TEXT("C:\\.\\"), false},
        {TEXT("C:\\..\\"), false},
        {TEXT("C:\\ a\\"), false},
        {TEXT("C:\\a \\"), false},
        {TEXT("C:\\.a\\"), false},
        {TEXT("C:\\a.\\"), false},
        {TEXT("C:\\a\tb\\"), false},
        {TEXT("C:\\a:b\\"), false},
        {TEXT("C:\\a*\\"), false},
        {TEXT("C:\\?\\"), false},
        {TEXT("C:\\a\"b\\"), false},
        {TEXT("C:\\<\\"), false},
        {TEXT("C:\\>\\"), false},
        {TEXT("C:\\a|b\\"), false},
    };
    for (const auto &[path, valid] : cases) {
        EXPECT_EQ(accepts(path), valid) << ::testing::PrintToString(Text(path));
    }
}

TEST(CheckPathFormat, CountsTheGivenLengthAlone) {
    const Text text = u"C:\\a\\b";
    EXPECT_TRUE(CheckPathFormat(text.data(), 5));
    EXPECT_FALSE(CheckPathFormat(text.data(), 4));
    const WCHAR unterminated[] = {u'C', u':', u'\\'};
    EXPECT_TRUE(CheckPathFormat(unterminated, 3));
    // A NUL within the length ends the text.
    EXPECT_TRUE(CheckPathFormat(TEXT("C:\\\0?"), 5));
    EXPECT_FALSE(CheckPathFormat(TEXT("C:\0\\"), 4));

    Text longest = u"C:\\" + Text(255, u'a') + u"\\";
    ASSERT_EQ(longest.size(), 259U);
    EXPECT_TRUE(CheckPathFormat(longest.data(), 259));
    longest.insert(3, 1, u'a');
    EXPECT_FALSE(CheckPathFormat(longest.data(), 260));
    for (const std::uint64_t length :
         {std::uint64_t{260}, std::uint64_t{1} << 32, ~std::uint64_t{}}) {
        EXPECT_FALSE(CheckPathFormat(nullptr, length)) << length;
    }
}

TEST(CheckPathFormat, ThrowsForANullPathWithALength) {
    EXPECT_FALSE(CheckPathFormat(nullptr, 0));
    for (const std::uint64_t length : {1U, 259U}) {
        try {
            CheckPathFormat(nullptr, length);
            ADD_FAILURE() << length;
        } catch (const OS::RegexFailure &failure) {
            EXPECT_EQ(failure.code, 0x80070057U);
        }
    }
    static_assert(sizeof(OS::RegexFailure) == 4);
}

TEST(CheckPathFormat, AgreesWithAReadingByHand) {
    const Text parts[] = {u"a",      u"B",       u"\\", u"\\",   u" ",          u".",
                          u"name\\", u"x y\\",   u"\t", u"/",    u":",          u"a.b\\",
                          u"*",      u"\x3B1\\", u"|",  u"C:\\", Text(1, u'\0')};
    std::mt19937 random(5);
    int valid = 0;
    for (int i = 0; i < 60000; ++i) {
        Text path = random() % 10 == 0 ? u"" : u"C:\\";
        path += generate(random, parts, std::size(parts), 5);
        path += random() % 3 == 0 ? u"" : u"\\";
        const std::uint64_t length = random() % 4 == 0 ? random() % (path.size() + 1) : path.size();
        const bool expected = reads_as_path(path, length);
        ASSERT_EQ(CheckPathFormat(path.data(), length), expected)
            << ::testing::PrintToString(path) << " " << length;
        valid += expected ? 1 : 0;
    }
    EXPECT_GT(valid, 2000);
}

}  // namespace
