#include "ostrel/platform/charset.h"

#include <gtest/gtest.h>
#include <unicode/ucnv.h>

#include <random>

namespace {

using platform::StreamDecoder;
using platform::to_narrow;
using platform::to_wide;

// ICU as a second opinion.
std::u16string icu_wide(const std::string &bytes) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter *const converter = ucnv_open("UTF-8", &status);
    char16_t text[200];
    const int32_t length = ucnv_toUChars(converter, text, 200, bytes.data(),
                                         static_cast<int32_t>(bytes.size()), &status);
    ucnv_close(converter);
    return {text, static_cast<std::size_t>(length)};
}

TEST(Utf8, AgreesWithIcuOnRandomBytes) {
    std::mt19937 random(7);
    const std::string interesting =
        "ab\x80\xBF\xC2\xE0\xE3\xED\xF0\xF1\xF4\xF5\x9F\xA0\x90\x8F\xC0\xFF";
    for (int round = 0; round < 20000; ++round) {
        std::string bytes(random() % 24, 'x');  // long runs of ASCII in front and behind
        for (std::size_t i = random() % 12; i > 0; --i) {
            bytes.push_back(interesting[random() % interesting.size()]);
        }
        bytes.append(random() % 24, 'y');
        const std::u16string text = to_wide(bytes, 65001);
        ASSERT_EQ(text, icu_wide(bytes));
        ASSERT_EQ(to_wide(to_narrow(text, 65001), 65001), text);
    }
    EXPECT_EQ(to_wide("\xE2\x82\x41\xF4\x90", 65001), u"\uFFFDA\uFFFD\uFFFD");
    EXPECT_EQ(to_narrow(u"\u00E4\xD800z\xDC00\xD83D\xDE00\xD83D", 65001),
              "\xC3\xA4\xEF\xBF\xBDz\xEF\xBF\xBD\xF0\x9F\x98\x80\xEF\xBF\xBD");
}

TEST(StreamDecoder, GivesTheSameTextHoweverItIsCut) {
    const std::pair<unsigned, std::string> cases[] = {
        {65001, "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xE2\x82\x41\xF0\x9F\xC0\x80\xE2\x82"},
        {932, "a\x83\x5C\x8A\xBF\xB1\x83"},
        {936, "\xC4\xE3\xBA\xC3!"},
        {51932, "\xA5\xBD\x8F\xB0\xA1\x8E\xB1"},
        {54936, "\x81\x30\x89\x33\xC4\xE3"},
        {28591, "\xE4\xFC"}};
    for (const auto &[code_page, bytes] : cases) {
        const std::u16string whole = to_wide(bytes, code_page);
        for (std::size_t i = 0; i <= bytes.size() * bytes.size(); ++i) {
            StreamDecoder decoder(code_page);
            std::u16string text;
            std::size_t begin = 0;
            for (const std::size_t end : {i % (bytes.size() + 1), i / bytes.size(), bytes.size()}) {
                const std::size_t count = std::max(begin, end) - begin;
                std::u16string block(StreamDecoder::Capacity(count), u'\0');
                block.resize(decoder.Decode(&bytes[begin], count, false, block.data()));
                text += block;
                begin += count;
            }
            WCHAR last[StreamDecoder::Capacity(0)];
            text.append(last, decoder.Decode("", 0, true, last));
            ASSERT_EQ(text, whole) << code_page << " " << i;
        }
    }
    EXPECT_EQ(to_narrow(u"\u30BD\u6F22", 932), "\x83\x5C\x8A\xBF");
    EXPECT_EQ(to_wide("\x83\x5C\xE4", 28591), u"\u0083\\\u00E4");
    // A broken byte is U+FFFD everywhere, and control characters are themselves.
    EXPECT_EQ(to_wide("caf\xA0.", 932), u"caf\uFFFD.");
    for (const unsigned code_page : {932u, 51932u, 51949u, 437u}) {
        EXPECT_EQ(to_wide("\x1A\x1C\x7F\xFFz", code_page),
                  code_page == 437 ? u"\x1A\x1C\x7F\u00A0z" : u"\x1A\x1C\x7F\uFFFDz");
        EXPECT_EQ(to_narrow(u"\x1A\x1C\x7F", code_page), "\x1A\x1C\x7F");
    }
}

}  // namespace
