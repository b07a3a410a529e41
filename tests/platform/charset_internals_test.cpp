#include "ostrel/platform/charset.h"

#include <gtest/gtest.h>
#include <unicode/ucnv.h>
#include <unicode/utf8.h>

#include <random>
#include <vector>

#include "ostrel/platform/utf8.h"

namespace {

using platform::StreamDecoder;
using platform::to_narrow;
using platform::to_wide;

// ICU as a second opinion.
std::u16string icu_wide(const std::string &bytes) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter *const converter = ucnv_open("UTF-8", &status);
    std::u16string text(bytes.size(), u'\0');
    const int32_t length = ucnv_toUChars(converter, text.data(), static_cast<int32_t>(text.size()),
                                         bytes.data(), static_cast<int32_t>(bytes.size()), &status);
    ucnv_close(converter);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

// Characters of one length or of all, as real texts have them, so that every kind of block occurs.
std::string random_utf8(std::mt19937 &random, std::size_t count) {
    static const std::u32string kinds[] = {U"aZ ~\x7F", U"\x80\u00E4\u07FF",
                                           U"\u0800\u30BD\uD7FF\uE000\uFFFF",
                                           U"\U00010000\U0001F600\U0010FFFF"};
    std::string bytes;
    while (bytes.size() < count) {
        const std::size_t first = random() % 4;
        const std::size_t last = first + random() % (4 - first);
        for (std::size_t run = random() % 40; run > 0; --run) {
            const std::u32string &kind = kinds[first + random() % (last - first + 1)];
            const char32_t code = kind[random() % kind.size()];
            char encoded[4];
            int32_t length = 0;
            U8_APPEND_UNSAFE(encoded, length, code);
            bytes.append(encoded, static_cast<std::size_t>(length));
        }
    }
    return bytes;
}

TEST(Utf8, AgreesWithIcuAlsoOnBrokenText) {
    std::mt19937 random(7);
    const std::string breaking = "a\x80\xBF\xC0\xC1\xC2\xE0\xED\xF0\xF4\xF5\xFF\x9F\xA0\x90\x8F";
    for (int round = 0; round < 20000; ++round) {
        std::string bytes = random_utf8(random, random() % 300);
        for (std::size_t i = bytes.empty() ? 0 : random() % 3; i > 0; --i) {
            bytes[random() % bytes.size()] = breaking[random() % breaking.size()];
        }
        bytes.resize(bytes.size() - std::min<std::size_t>(bytes.size(), random() % 4));
        const std::u16string text = to_wide(bytes, 65001);
        ASSERT_EQ(text, icu_wide(bytes)) << round;
        ASSERT_EQ(platform::wide_length(bytes, 65001), text.size()) << round;
        ASSERT_EQ(to_wide(to_narrow(text, 65001), 65001), text) << round;
    }
}

TEST(Utf8, ReadsNothingBehindTheText) {
    for (std::size_t length = 0; length < 140; ++length) {
        const std::vector<WCHAR> units(length, u'\u30BD');
        const std::vector<char> bytes(length, 'x');
        EXPECT_EQ(platform::utf8_length(units.data(), length), 3 * length);
        EXPECT_EQ(platform::utf16_length(bytes.data(), length), length);
    }
}

// Longer than what is converted at a time, with a pair across the cut.
TEST(Charset, GoesOnInLongTexts) {
    for (const unsigned code_page : {932u, 936u, 51932u}) {
        const std::size_t lacking = to_narrow(u"\U0001F600", code_page).size();
        for (std::size_t length = 250; length < 260; ++length) {
            std::u16string text(length, u'\u6F22');
            text += u"\U0001F600" + std::u16string(3000, u'\u30BD');
            const std::string bytes = to_narrow(text, code_page);
            ASSERT_EQ(bytes.size(), 2 * (length + 3000) + lacking) << code_page << ' ' << length;
            const std::u16string back = to_wide(bytes, code_page);
            ASSERT_EQ(back.substr(back.size() - 3000), text.substr(length + 2));
            ASSERT_EQ(platform::wide_length(bytes, code_page), back.size());
        }
    }
}

// Every room there is: what is too small holds the beginning, and nothing behind it is touched.
template <class Char, class Convert>
void expect_fills(const std::basic_string<Char> &whole, Convert convert) {
    for (std::size_t room = 0; room <= whole.size() + 1; ++room) {
        const std::unique_ptr<Char[]> buffer(new Char[room]);
        const std::size_t stored = convert(buffer.get(), room);
        ASSERT_EQ(stored, room < whole.size() ? platform::kTooSmall : whole.size());
        if (room >= whole.size()) {
            ASSERT_EQ(std::basic_string<Char>(buffer.get(), stored), whole);
        }
    }
}

TEST(Charset, FillsABufferToItsLastUnit) {
    std::mt19937 random(11);
    for (const unsigned page : {65001u, 932u, 50220u}) {
        for (int round = 0; round < 60; ++round) {
            std::u16string text = icu_wide(random_utf8(random, random() % 100));
            if (page == 65001) {  // may make or break a pair
                text.insert(random() % (text.size() + 1), 1, u'\xD83D');
            }
            const std::string bytes = to_narrow(text, page);
            text = to_wide(bytes, page);
            ASSERT_EQ(platform::narrow_length(text, page), bytes.size());
            expect_fills(bytes, [&](char *buffer, std::size_t room) {
                return platform::to_narrow_within(text, page, buffer, room);
            });
            expect_fills(text, [&](WCHAR *buffer, std::size_t room) {
                return platform::to_wide_within(bytes, page, buffer, room);
            });
        }
    }
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
    // A broken byte is U+FFFD everywhere, and control characters are themselves.
    for (const unsigned code_page : {932u, 51932u, 51949u, 437u}) {
        EXPECT_EQ(to_wide("\x1A\x1C\x7F\xFFz", code_page),
                  code_page == 437 ? u"\x1A\x1C\x7F\u00A0z" : u"\x1A\x1C\x7F\uFFFDz");
        EXPECT_EQ(to_narrow(u"\x1A\x1C\x7F", code_page), "\x1A\x1C\x7F");
    }
}

}  // namespace
