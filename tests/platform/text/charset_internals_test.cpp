#include "ostrel/platform/text/charset.h"

#include "ostrel/platform/text/utf8.h"
#include "support/test.h"

namespace {

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

TEST(Charset, ReplacesWhatIsBrokenButNoControlCharacters) {
    for (const unsigned code_page : {932u, 51932u, 51949u}) {
        EXPECT_EQ(to_wide("\x1A\x1C\x7F\xE0 z", code_page), u"\x1A\x1C\x7F\uFFFD z") << code_page;
        EXPECT_EQ(to_narrow(u"\x1A\x1C\x7F", code_page), "\x1A\x1C\x7F") << code_page;
    }
}

}  // namespace
