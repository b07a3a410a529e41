#include "ostrel/charset/transfer_coding.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace OS::charset;

using Coding = char *(*)(const char *, unsigned, unsigned *);

// The bytes that come out, or nothing for null. The data lies in a block of just its size.
std::optional<std::string> code(Coding coding, const std::string &data) {
    const std::vector<char> block(data.begin(), data.end());
    unsigned length = 77;
    char *const result =
        coding(block.empty() ? "" : block.data(), static_cast<unsigned>(block.size()), &length);
    if (result == nullptr) {
        EXPECT_EQ(length, 0u);
        return std::nullopt;
    }
    EXPECT_EQ(result[length], '\0');
    const std::string bytes(result, length);
    std::free(result);
    return bytes;
}

std::string any_bytes(std::mt19937 &random, std::size_t length) {
    std::string bytes(length, '\0');
    for (char &c : bytes) {
        c = static_cast<char>(random());
    }
    return bytes;
}

// Base64 a character at a time.
std::string plain_base64(const std::string &data) {
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::basic_string<unsigned char> bytes(data.begin(), data.end());
    std::string text;
    for (std::size_t bit = 0; bit < data.size() * 8; bit += 6) {
        const unsigned next = bit / 8 + 1 < bytes.size() ? bytes[bit / 8 + 1] : 0;
        text += alphabet[(bytes[bit / 8] * 256 + next) >> (10 - bit % 8) & 63];
    }
    return text.append((4 - text.size() % 4) % 4, '=');
}

TEST(Base64, EncodesInLinesAndDecodesAgain) {
    std::mt19937 random(1);
    for (std::size_t length = 1; length < 400; ++length) {
        const std::string data = any_bytes(random, length);
        const std::string plain = plain_base64(data);
        std::string lines;
        for (std::size_t at = 0; at <= plain.size(); at += 60) {  // one more after a full line
            lines += plain.substr(at, 60) + "\r\n";
        }
        ASSERT_EQ(code(EncodeBase64, data), lines);
        ASSERT_EQ(code(DecodeBase64, lines), data);
        ASSERT_EQ(code(DecodeBase64, plain), data);
        // Anything that is not of the alphabet may stand anywhere in front of the padding.
        for (int more = 0; more < 10; ++more) {
            lines.insert(random() % (length + 1), 1, "\r\n -_\xFF\x80!"[random() % 8]);
        }
        ASSERT_EQ(code(DecodeBase64, lines), data);
    }
}

TEST(Base64, DecodesPaddingAndWhatFollowsIt) {
    const std::pair<std::string, std::string> kCases[] = {
        {"", ""},
        {"TQ==TWE=TWFu", "MMaMan"},
        {"TQ==\r\nTQ==", "MM"},
        {"TR==TQ==", "MM"},  // left-over bits are dropped
        {"TWFuT", "Man"},
        {"TWFuTQ", "ManM"},
        {"TWFuTWE", "ManMa"},
        {std::string("TW\0Fu", 5), "Man"}};
    for (const auto &[text, data] : kCases) {
        EXPECT_EQ(code(DecodeBase64, text), data) << text;
    }
    for (const char *const text :
         {"=", "T=", "TQ=", "TQ=\r\n=", "TQ=x", "TQ===", "TWE==", "TWFu="}) {
        EXPECT_EQ(code(DecodeBase64, text), std::nullopt) << text;
    }
}

TEST(QuotedPrintable, Decodes) {
    const std::pair<std::string, std::string> kCases[] = {
        {"", ""},
        {"a_b c=1b=1B", "a_b c\x1B\x1B"},
        {"=00a", std::string("\0a", 2)},
        {std::string("a\0b", 3), "a"},
        {"a \t  \r\nb  ", "a \t\r\nb  "},
        {"   \rb", "\rb"},
        {"a=20\r\n", "a \r\n"},
        {"a \r\n \r\n", "a\r\n\r\n"},
        {"a=\r\nb=\rc", "abc"},
        {"a =\r\n\r", "a\r"},  // a soft line break is nothing that keeps blanks
        {"a=", "a"},
        {"a=\r", "a"},
        {std::string("a=\0b", 4), "a"}};
    for (const auto &[text, data] : kCases) {
        EXPECT_EQ(code(DecodeQuotedPrintable, text), data) << testing::PrintToString(text);
    }
    for (const char *const text : {"c=\n", "a=4", "=4G", "=G4", "==", "= 4"}) {
        EXPECT_EQ(code(DecodeQuotedPrintable, text), std::nullopt) << text;
    }
}

TEST(QuotedPrintable, Encodes) {
    const std::string a72(72, 'a'), a75(75, 'a');
    const std::pair<std::string, std::string> kCases[] = {
        {"", ""},
        {"a b~!", "a b~!"},
        {"=\x7F\x1F\x80\xFF\t", "=3D=7F=1F=80=FF=09"},
        {std::string("\0", 1), "=00"},
        {"a\r\nb\rc\n", "a\r\nb=0Dc=0A"},
        {"\r", "=0D"},
        {"a  \r\n \r ", "a =20\r\n=20=0D "},
        {a75, a75},
        {a75 + "b", a75 + "=\r\nb"},
        {a75 + "\r\n" + a75, a75 + "\r\n" + a75},
        {a72 + "=", a72 + "=3D"},
        {a72 + "a=b", a72 + "a=\r\n=3Db"},
        {a72 + "a=" + a72 + "b", a72 + "a=\r\n=3D" + a72 + "=\r\nb"}};
    for (const auto &[data, text] : kCases) {
        EXPECT_EQ(code(EncodeQuotedPrintable, data), text) << testing::PrintToString(data);
    }
}

TEST(TransferCoding, TakesNullNothingAndTooMuch) {
    for (const Coding coding :
         {DecodeBase64, EncodeBase64, DecodeQuotedPrintable, EncodeQuotedPrintable}) {
        for (const unsigned length : {0u, 4u, INT_MAX + 1u, UINT_MAX}) {
            unsigned result_length = 77;
            EXPECT_EQ(coding(length > 4 ? "a" : nullptr, length, &result_length), nullptr);
            EXPECT_EQ(result_length, 0u);
        }
    }
    EXPECT_EQ(RemoveLineBreaks(nullptr), nullptr);
    std::string text = "\n\rab\r\r\rcd\n";
    EXPECT_STREQ(RemoveLineBreaks(text.data()), "abcd");

    unsigned length = 0;
    char *const nothing = EncodeBase64("", 0, &length);
    EXPECT_STREQ(nothing, "");
    EXPECT_EQ(length, 2u);
    std::free(nothing);
}

}  // namespace
