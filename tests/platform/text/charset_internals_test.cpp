#include "ostrel/platform/text/charset.h"

#include "ostrel/platform/text/best_fit_table.h"
#include "ostrel/platform/text/utf8.h"
#include "support/test.h"

namespace {

using ostrel_platform::BestFit;
using ostrel_platform::kBestFitPages;
using ostrel_platform::kBestFits;
using ostrel_platform::StreamDecoder;
using ostrel_platform::to_narrow;
using ostrel_platform::to_wide;

// Longer than what is converted at a time, with a pair across the cut.
TEST(Charset, GoesOnInLongTexts) {
    for (const unsigned page : {932u, 936u}) {
        for (std::size_t length = 250; length < 260; ++length) {
            const std::u16string end(3000, u'\u30BD');
            const std::u16string text = std::u16string(length, u'\u6F22') + u"\U0001F600" + end;
            const std::string bytes = to_narrow(text, page);
            ASSERT_EQ(bytes.size(), 2 * (length + 3000) + to_narrow(u"\U0001F600", page).size());
            ASSERT_TRUE(to_wide(bytes, page).ends_with(end));
            ASSERT_EQ(ostrel_platform::wide_length(bytes, page), to_wide(bytes, page).size());
        }
    }
}

// What does not fit is told, and nothing behind the room is touched.
TEST(Charset, FillsABufferToItsLastUnit) {
    for (const unsigned page : {65001u, 50220u}) {
        const std::string bytes = to_narrow(u"a\u20AC\U0001F600\U0001F600\u30BD\u30BDz", page);
        const std::u16string units = to_wide(bytes, page);
        for (std::size_t room = 0; room < bytes.size(); ++room) {
            EXPECT_EQ(ostrel_platform::to_narrow_within(units, page, std::vector<char>(room).data(),
                                                        room),
                      ostrel_platform::kTooSmall);
            const bool fits = room >= units.size();
            EXPECT_EQ(
                ostrel_platform::to_wide_within(bytes, page, std::vector<WCHAR>(room).data(), room),
                fits ? units.size() : ostrel_platform::kTooSmall);
        }
    }
}

TEST(Charset, StreamDecoderGivesTheSameTextHoweverItIsCut) {
    const std::pair<unsigned, std::string> cases[] = {
        {65001, "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xE2\x82\x41\xF0\x9F\xC0\x80\xE2\x82"},
        {932, "a\x83\x5C\x8A\xBF\xB1\x83"},
        {51932, "\xA5\xBD\x8F\xB0\xA1\x8E\xB1"},
        {54936, "\x81\x30\x89\x33\xC4\xE3"}};
    for (const auto &[page, bytes] : cases) {
        for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
            StreamDecoder decoder(page);
            std::u16string text(2 * StreamDecoder::Capacity(bytes.size()), u'\0');
            const std::size_t first = decoder.Decode(bytes.data(), cut, false, text.data());
            const std::size_t second =
                decoder.Decode(&bytes[cut], bytes.size() - cut, true, &text[first]);
            EXPECT_EQ(text.substr(0, first + second), to_wide(bytes, page)) << page << ' ' << cut;
        }
    }
    // A broken sequence is U+FFFD everywhere, and control characters are themselves.
    for (const unsigned code_page : {932u, 51932u, 51949u}) {
        EXPECT_EQ(to_wide("\x1A\x1C\x7F\xE0 z", code_page), u"\x1A\x1C\x7F\uFFFD z") << code_page;
        EXPECT_EQ(to_narrow(u"\x1A\x1C\x7F", code_page), "\x1A\x1C\x7F") << code_page;
    }
}

TEST(Charset, EachBestFitIsACharacterOfItsCodePages) {
    for (const BestFit &row : kBestFits) {
        for (std::size_t i = 0; i < std::size(kBestFitPages); ++i) {
            if ((row.pages >> i & 1) != 0) {
                const std::string bytes = to_narrow({&row.character, 1}, kBestFitPages[i]);
                EXPECT_EQ(to_wide(bytes, kBestFitPages[i]), std::u16string(1, row.fit))
                    << static_cast<int>(row.character) << ' ' << kBestFitPages[i];
            }
        }
    }
}

}  // namespace
