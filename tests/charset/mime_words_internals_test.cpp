#include "ostrel/charset/mime_words.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "ostrel/charset/japanese.h"
#include "support/bytes.h"

namespace {

using namespace OS::charset;

// The result, or nothing for null. The text lies in a block of just its size.
std::optional<std::string> call(char *(*function)(const char *), const std::string &text) {
    char *const result = function(block_of(text).get());
    if (result == nullptr) {
        return std::nullopt;
    }
    const std::string copy(result);
    std::free(result);
    return copy;
}

// Three kanji.
const std::string kNihongo = "\x1B$BF|K\\8l\x1B(B";

TEST(MimeWords, Decodes) {
    const std::pair<std::string, std::optional<std::string>> kCases[] = {
        {"", ""},
        {"Subject: a=b", "Subject: a=b"},
        // As Python's email.header writes them, then the same kanji in the other charsets.
        {"=?iso-2022-jp?b?GyRCRnxLXDhsGyhC?=", kNihongo},
        {"a =?SHIFT_JIS?B?k/qWe4zq?= b", "a " + kNihongo + " b"},
        {"=?EUC-JP?b?xvzL3Ljs?=", kNihongo},
        {"=?Shift_Jis?Q?=93=FA=96{=8C=EA?=", kNihongo},
        {"=?EUC-JP?Q?a_b?=", "a_b"},
        {"=?EUC-JP?Q?\?=", ""},
        {"=?EUC-JP?Q?a=00b?=c", "ac"},  // the word is a text with a zero byte at its end
        // Each word by itself, and what is between them stays.
        {"=?EUC-JP?Q?a?= =?EUC-JP?Q?b?=", "a b"},
        {"=?EUC-JP?Q?=C6=FC?=\r\n\t=?EUC-JP?Q?=C6=FC?=", "\x1B$BF|\x1B(B\r\n\t\x1B$BF|\x1B(B"},
        {"=?EUC-JP?Q?=C6?==?EUC-JP?Q?=FC?=", ""},
        // No word of ours.
        {"=?UTF-8?B?YQ==?=", "=?UTF-8?B?YQ==?="},
        {"=?EUC-JP?X?a?=", "=?EUC-JP?X?a?="},
        {"=?EUC-JP*ja?Q?a?=", "=?EUC-JP*ja?Q?a?="},
        {"==?EUC-JP?Q?a?=?=", "=a?="},
        {"=?=?EUC-JP?Q?a?=", "=?a"},
        // No end: all that follows stays too.
        {"=?EUC-JP?Q?a?= =?EUC-JP?Q?b? =?UTF-8", "a =?EUC-JP?Q?b? =?UTF-8"},
        {"=?EUC-JP?Q?a?\?=", "a?"},
        // A body that is not well-formed leaves nothing of the whole.
        {"a =?EUC-JP?Q?=XY?= =?EUC-JP?Q?b?=", std::nullopt},
        {"=?EUC-JP?Q?b?= =?EUC-JP?B?TQ=?=", std::nullopt},
        {"=?EUC-JP?B?=?EUC-JP?Q?a?=", std::nullopt}  // its "?=" is that of the second prefix
    };
    for (const auto &[text, jis] : kCases) {
        EXPECT_EQ(call(DecodeMimeWords, text), jis) << testing::PrintToString(text);
    }
    EXPECT_EQ(DecodeMimeWords(nullptr), nullptr);
    EXPECT_EQ(EncodeMimeWords(nullptr), nullptr);
}

TEST(MimeWords, Encodes) {
    const std::string word = "=?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?=";
    const std::pair<std::string, std::string> kCases[] = {
        {"", ""},
        {"a = b?", "a = b?"},
        {"a " + kNihongo + " b", "a " + word + " b"},
        {kNihongo + kNihongo, word + word},
        {"a\r\nb\n" + kNihongo + "\r", "ab" + word},
        {"\x1B$BF|", "=?ISO-2022-JP?B?GyRCRnw=?="},  // no end
        {"\x1B$BF|\x1B$BK\\\x1B(B", "=?ISO-2022-JP?B?GyRCRnwbJEJLXBsoQg==?="},
        {"\x1B$JF|\x1B(Bb", "=?ISO-2022-JP?B?GyRKRnwbKEI=?=b"},
        {"\x1B$BF|\x1B(J", "=?ISO-2022-JP?B?GyRCRnwbKEo=?="},  // only ESC ( B ends a word
        {"\x1B$@F|\x1B(B\x1B(I1\x1B(B\x1B", "\x1B$@F|\x1B(B\x1B(I1\x1B(B\x1B"},
        {"\x1B$", "\x1B$"}};
    for (const auto &[jis, text] : kCases) {
        EXPECT_EQ(call(EncodeMimeWords, jis), text) << testing::PrintToString(jis);
    }
}

// Words of every length up to several lines of Base64, and texts beyond several growth steps.
TEST(MimeWords, GiveTextsOfAnyLengthBack) {
    for (std::size_t count = 1; count < 200; ++count) {
        const std::string jis = "a\x1B$B" + repeated(count, "F|") + "\x1B(B";
        const std::string text = *call(EncodeMimeWords, repeated(count, jis));
        ASSERT_EQ(text.find_first_of("\r\n"), text.npos);
        ASSERT_EQ(call(DecodeMimeWords, text), repeated(count, jis));
    }
}

// None of these may take the square of its length, which would be minutes.
TEST(MimeWords, TakeLongTextsOfMarks) {
    constexpr std::size_t kCount = 1 << 18;
    for (const std::string mark : {"=", "=?", "?", "=?ISO-2022-JP?B", "=?ISO-2022-JP?B? "}) {
        const std::string text = repeated(kCount, mark);
        EXPECT_EQ(call(DecodeMimeWords, text), text);
        EXPECT_EQ(call(EncodeMimeWords, text), text);
        DetectJapaneseEncoding(text.c_str());
    }
    EXPECT_EQ(call(DecodeMimeWords, repeated(kCount, "=?ISO-2022-JP?B?")), std::nullopt);
    EXPECT_EQ(call(DecodeMimeWords, repeated(kCount, "=?EUC-JP?Q?\?=")), "");
    const std::string words = *call(EncodeMimeWords, repeated(kCount, "\x1B$B\x1B(B"));
    EXPECT_EQ(words, repeated(kCount, "=?ISO-2022-JP?B?GyRCGyhC?="));
}

}  // namespace
