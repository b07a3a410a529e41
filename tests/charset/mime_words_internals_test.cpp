#include "ostrel/charset/mime_words.h"

#include <optional>

#include "ostrel/charset/heap_text.h"
#include "ostrel/charset/japanese.h"
#include "support/bytes.h"
#include "support/test.h"

namespace {

using namespace OS::charset;

// The result, or nothing for null. The text lies in a block of just its size.
std::optional<std::string> call(char *(*function)(const char *), const std::string &text) {
    const HeapText result(function(block_of(text).get()));
    return result == nullptr ? std::nullopt : std::optional(std::string(result.get()));
}

// Three kanji.
const std::string kNihongo = "\x1B$BF|K\\8l\x1B(B";

TEST(MimeWords, Decodes) {
    const std::pair<std::string, std::optional<std::string>> kCases[] = {
        // As Python's email.header writes them, then the same kanji in the other charsets.
        {"=?iso-2022-jp?b?GyRCRnxLXDhsGyhC?=", kNihongo},
        {"a =?SHIFT_JIS?B?k/qWe4zq?= b", "a " + kNihongo + " b"},
        {"=?EUC-JP?Q?a=00b?=c", "ac"},  // the word is a text with a zero byte at its end
        // Each word by itself, and what is between them stays.
        {"=?EUC-JP?Q?=C6=FC?=\r\n\t=?EUC-JP?Q?=C6=FC?=", "\x1B$BF|\x1B(B\r\n\t\x1B$BF|\x1B(B"},
        // No word of ours.
        {"=?UTF-8?B?YQ==?=", "=?UTF-8?B?YQ==?="},
        {"=?=?EUC-JP?Q?a?=", "=?a"},
        // No end: all that follows stays too.
        {"=?EUC-JP?Q?a?= =?EUC-JP?Q?b? =?UTF-8", "a =?EUC-JP?Q?b? =?UTF-8"},
        // A body that is not well-formed leaves nothing of the whole.
        {"a =?EUC-JP?Q?=XY?= =?EUC-JP?Q?b?=", std::nullopt},
        {"=?EUC-JP?Q?b?= =?EUC-JP?B?TQ=?=", std::nullopt},
        {"=?EUC-JP?B?=?EUC-JP?Q?a?=", std::nullopt}  // its "?=" is that of the second prefix
    };
    for (const auto &[text, jis] : kCases) {
        EXPECT_EQ(call(DecodeMimeWords, text), jis) << PrintToString(text);
    }
}

TEST(MimeWords, Encodes) {
    const std::string word = "=?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?=";
    const std::pair<std::string, std::string> kCases[] = {
        {"", ""},
        {"a " + kNihongo + " b", "a " + word + " b"},
        {"a\r\nb\n" + kNihongo + "\r", "ab" + word},
        {"\x1B$BF|", "=?ISO-2022-JP?B?GyRCRnw=?="},            // no end
        {"\x1B$BF|\x1B(J", "=?ISO-2022-JP?B?GyRCRnwbKEo=?="},  // only ESC ( B ends a word
        {"\x1B$@F|\x1B(B\x1B(I1\x1B(B\x1B$", "\x1B$@F|\x1B(B\x1B(I1\x1B(B\x1B$"}};
    for (const auto &[jis, text] : kCases) {
        EXPECT_EQ(call(EncodeMimeWords, jis), text) << PrintToString(jis);
    }
}

// None of these may take the square of its length, which would be minutes.
TEST(MimeWords, TakeLongTextsOfMarks) {
    constexpr std::size_t kCount = 1 << 18;
    for (const std::string mark : {"=", "=?", "?", "=?ISO-2022-JP?B", "=?ISO-2022-JP?B? "}) {
        SCOPED_TRACE(mark);
        const std::string text = repeated(kCount, mark);
        EXPECT_EQ(call(DecodeMimeWords, text), text);
        EXPECT_EQ(call(EncodeMimeWords, text), text);
        DetectJapaneseEncoding(text.c_str());
    }
    EXPECT_EQ(call(DecodeMimeWords, repeated(kCount, "=?ISO-2022-JP?B?")), std::nullopt);
    EXPECT_EQ(call(DecodeMimeWords, repeated(kCount, "=?EUC-JP?Q?\?=")), "");
    EXPECT_EQ(call(EncodeMimeWords, repeated(kCount, "\x1B$B\x1B(B")),
              repeated(kCount, "=?ISO-2022-JP?B?GyRCGyhC?="));
}

}  // namespace
