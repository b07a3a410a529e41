#include "ostrel/platform/charset.h"

#include <gtest/gtest.h>
#include <unicode/ucnv.h>

#include <random>

#include "ostrel/platform/utf8.h"

namespace {

using platform::StreamDecoder;
using platform::to_narrow;
using platform::to_wide;

// ICU as a second opinion.
std::u16string icu_wide(const char *charset, const std::string &bytes) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter *const converter = ucnv_open(charset, &status);
    std::u16string text(bytes.size() * 2 + 10, u'\0');
    const int32_t length = ucnv_toUChars(converter, text.data(), static_cast<int32_t>(text.size()),
                                         bytes.data(), static_cast<int32_t>(bytes.size()), &status);
    ucnv_close(converter);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

TEST(Utf8, ReplacesEachMaximalBrokenPart) {
    const std::pair<std::string, std::u16string> cases[] = {
        {"", u""},
        {"a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z", u"a\u00E4\u20AC\U0001F600z"},
        {"\xE2\x82"
         "A",
         u"\uFFFDA"},
        {"\xC0\x80", u"\uFFFD\uFFFD"},
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
        {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xF0\x9F\x98", u"\uFFFD"},
        {"\x80\xFF", u"\uFFFD\uFFFD"},
        {"\xEF\xBB\xBF", u"\uFEFF"},
    };
    for (const auto &[bytes, text] : cases) {
        EXPECT_EQ(to_wide(bytes, 65001), text);
    }
    EXPECT_EQ(to_narrow(u"\u00E4\xD800z\xDC00\xD83D\xDE00\xD83D", 65001),
              "\xC3\xA4\xEF\xBF\xBDz\xEF\xBF\xBD\xF0\x9F\x98\x80\xEF\xBF\xBD");
}

TEST(Utf8, AgreesWithIcuOnRandomBytes) {
    std::mt19937 random(7);
    const unsigned char interesting[] = {'a',  'b',  0x80, 0xBF, 0xC2, 0xE0, 0xE3, 0xED,
                                         0xF0, 0xF1, 0xF4, 0xF5, 0x9F, 0xA0, 0x90, 0x8F};
    for (int round = 0; round < 20000; ++round) {
        std::string bytes(random() % 24, 'x');  // long runs of ASCII in front and behind
        for (std::size_t i = random() % 12; i > 0; --i) {
            bytes.push_back(static_cast<char>(interesting[random() % sizeof interesting]));
        }
        bytes.append(random() % 24, 'y');
        const std::u16string text = to_wide(bytes, 65001);
        ASSERT_EQ(text, icu_wide("UTF-8", bytes));
        ASSERT_EQ(to_wide(to_narrow(text, 65001), 65001), text);
    }
}

TEST(StreamDecoder, GivesTheSameTextHoweverItIsCut) {
    const std::pair<unsigned, std::string> cases[] = {
        {65001,
         "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xE2\x82"
         "A\xF0\x9F\xC0\x80\xE2\x82"},
        {932, "a\x83\x5C\x8A\xBF\xB1\x83"},
        {936, "\xC4\xE3\xBA\xC3!"},
        {51932, "\xA5\xBD\x8F\xB0\xA1\x8E\xB1"},
        {54936, "\x81\x30\x89\x33\xC4\xE3"},
        {28591, "\xE4\xFC"},
    };
    for (const auto &entry : cases) {
        const unsigned code_page = entry.first;
        const std::string &bytes = entry.second;
        const std::u16string whole = to_wide(bytes, code_page);
        for (std::size_t first = 0; first <= bytes.size(); ++first) {
            for (std::size_t second = first; second <= bytes.size(); ++second) {
                StreamDecoder decoder(code_page);
                std::u16string text;
                const auto decode = [&](std::size_t begin, std::size_t end, bool last) {
                    std::u16string block(StreamDecoder::Capacity(end - begin), u'\0');
                    block.resize(
                        decoder.Decode(bytes.data() + begin, end - begin, last, block.data()));
                    text += block;
                };
                decode(0, first, false);
                decode(first, second, false);
                decode(second, bytes.size(), false);
                decode(bytes.size(), bytes.size(), true);
                ASSERT_EQ(text, whole) << code_page << " " << first << " " << second;
            }
        }
    }
    EXPECT_EQ(to_narrow(u"\u30BD\u6F22", 932), "\x83\x5C\x8A\xBF");
    EXPECT_EQ(to_wide("\xE4", 28591), u"\u00E4");
    // A broken byte is U+FFFD everywhere, and control characters are themselves.
    for (const unsigned code_page : {932u, 51932u, 51949u, 437u}) {
        EXPECT_EQ(to_wide(code_page == 437 ? "z"
                                           : "\xFF"
                                             "z",
                          code_page)
                      .back(),
                  u'z');
        EXPECT_EQ(to_wide("\x1A\x1C\x7F", code_page), u"\x1A\x1C\x7F");
        EXPECT_EQ(to_narrow(u"\x1A\x1C\x7F", code_page), "\x1A\x1C\x7F");
    }
    EXPECT_EQ(to_wide("caf\xA0.", 932), u"caf\uFFFD.");
}

}  // namespace
