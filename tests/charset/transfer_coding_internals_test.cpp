#include "ostrel/charset/transfer_coding.h"

#include <climits>
#include <optional>

#include "ostrel/charset/heap_text.h"
#include "support/bytes.h"
#include "support/test.h"

namespace {

using namespace OS::charset;

using Coding = char *(*)(const char *, unsigned, unsigned *);

// The bytes that come out, or nothing for null. The data lies in a block of just its size.
std::optional<std::string> code(Coding coding, const std::string &data) {
    const std::vector<char> block(data.begin(), data.end());
    unsigned length = 77;
    const HeapText result(
        coding(block.empty() ? "" : block.data(), static_cast<unsigned>(block.size()), &length));
    EXPECT_EQ(result == nullptr ? length : result.get()[length], 0u);
    return result == nullptr ? std::nullopt : std::optional(std::string(result.get(), length));
}

TEST(TransferCoding, Base64EncodesInLinesAndDecodesAgain) {
    for (std::size_t length = 1; length < 200; ++length) {
        const char *const last[] = {"", "YQ==", "YWE="};
        const std::string data(length, 'a');
        const std::string plain = repeated(length / 3, "YWFh") + last[length % 3];
        std::string lines;
        for (std::size_t at = 0; at <= plain.size(); at += 60) {  // one more after a full line
            lines += plain.substr(at, 60) + "\r\n";
        }
        ASSERT_EQ(code(EncodeBase64, data), lines);
        ASSERT_EQ(code(DecodeBase64, lines), data);
        ASSERT_EQ(code(DecodeBase64, plain), data);
    }
    const std::string lines =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz01234567\r\n89+/\r\n";
    const std::string data = *code(DecodeBase64, lines);
    EXPECT_EQ(code(EncodeBase64, data), lines);
    EXPECT_EQ(data.substr(0, 3) + data.substr(45), std::string("\0\x10\x83\xF3\xDF\xBF", 6));
}

TEST(TransferCoding, Base64DecodesPaddingAndWhatFollowsIt) {
    const std::pair<std::string, std::string> kCases[] = {
        {"", ""},
        {"TQ==TWE=TWFu", "MMaMan"},
        {"TR==TQ==", "MM"},  // left-over bits are dropped
        {"TWFuT", "Man"},
        {"TWFuTWE", "ManMa"},
        {std::string("\rT\0W\xFF\x80- _F!u", 12), "Man"}};
    for (const auto &[text, data] : kCases) {
        EXPECT_EQ(code(DecodeBase64, text), data) << PrintToString(text);
    }
    for (const char *const text :
         {"=", "T=", "TQ=", "TQ=\r\n=", "TQ=x", "TQ===", "TWE==", "TWFu="}) {
        EXPECT_EQ(code(DecodeBase64, text), std::nullopt) << text;
    }
}

TEST(TransferCoding, QuotedPrintableDecodes) {
    const std::pair<std::string, std::string> kCases[] = {
        {"a_b c=1b=1B", "a_b c\x1B\x1B"},
        {std::string("a\0b", 3), "a"},
        {"a \t  \r\nb  ", "a \t\r\nb  "},
        {"a=20\r\n", "a \r\n"},
        {"a=\r\nb=\rc", "abc"},
        {"a =\r\n\r", "a\r"},  // a soft line break is nothing that keeps blanks
        {std::string("a=\0b", 4), "a"}};
    for (const auto &[text, data] : kCases) {
        EXPECT_EQ(code(DecodeQuotedPrintable, text), data) << PrintToString(text);
    }
    for (const char *const text : {"c=\n", "a=4", "=4G", "=G4", "==", "= 4"}) {
        EXPECT_EQ(code(DecodeQuotedPrintable, text), std::nullopt) << text;
    }
}

TEST(TransferCoding, QuotedPrintableEncodes) {
    const std::string a72(72, 'a'), a75(75, 'a');
    const std::pair<std::string, std::string> kCases[] = {
        {"=\x7F\x1F\x80\xFF\t", "=3D=7F=1F=80=FF=09"},
        {"a\r\nb\rc\n", "a\r\nb=0Dc=0A"},
        {"a  \r\n \r ", "a =20\r\n=20=0D "},
        {a75 + "b", a75 + "=\r\nb"},
        {a75 + "\r\n" + a75, a75 + "\r\n" + a75},
        {a72 + "=", a72 + "=3D"},
        {a72 + "a=" + a72 + "b", a72 + "a=\r\n=3D" + a72 + "=\r\nb"}};
    for (const auto &[data, text] : kCases) {
        EXPECT_EQ(code(EncodeQuotedPrintable, data), text) << PrintToString(data);
    }
}

TEST(TransferCoding, TakesNullNothingAndTooMuch) {
    unsigned length = 77;
    for (const Coding coding :
         {DecodeBase64, EncodeBase64, DecodeQuotedPrintable, EncodeQuotedPrintable}) {
        for (const auto &[data, size] : {std::pair<const char *, unsigned>(nullptr, 4),
                                         {"a", INT_MAX + 1u},
                                         {"a", UINT_MAX}}) {
            EXPECT_EQ(coding(data, size, &length), nullptr) << size;
            EXPECT_EQ(std::exchange(length, 77), 0u) << size;
        }
    }
    std::string text = "\n\rab\r\r\rcd\n";
    EXPECT_STREQ(RemoveLineBreaks(text.data()), "abcd");
    const HeapText nothing(EncodeBase64("", 0, &length));
    EXPECT_TRUE(*nothing == '\0' && length == 2);
}

}  // namespace
