#include "ostrel/platform/text/utf8.h"

#include "ostrel/platform/text/charset.h"
#include "support/test.h"

namespace {

using ostrel_platform::to_narrow;
using ostrel_platform::to_wide;

struct Text {
    std::string bytes;
    std::u16string units;

    Text operator*(std::size_t count) const {
        return count == 0 ? Text() : *this * (count - 1) + *this;
    }
    Text operator+(const Text &other) const { return {bytes + other.bytes, units + other.units}; }
};

// A character of each length, and what stands for none.
const Text kSound[] = {{"\x7F", u"\x7F"},
                       {"\xC2\x80", u"\x80"},
                       {"\xED\x9F\xBF", u"\uD7FF"},
                       {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"}};
const Text kBroken[] = {{"\xE2\x82", u"\uFFFD"},       {"\xF0\x9F\x92", u"\uFFFD"},
                        {"\xC1\x80", u"\uFFFD\uFFFD"}, {"\xE0\x9F", u"\uFFFD\uFFFD"},
                        {"\xED\xA0", u"\uFFFD\uFFFD"}, {"\xF4\x90", u"\uFFFD\uFFFD"}};

// Runs that change from one kind to another anywhere in a block.
TEST(Utf8, ConvertsBlocksOfEveryKind) {
    for (const Text &first : kSound) {
        for (const Text &second : kSound) {
            for (std::size_t length = 0; length < 70; ++length) {
                const Text text = first * length + second * 3 + kSound[length % 4] * 60;
                ASSERT_EQ(to_wide(text.bytes, 65001), text.units) << length;
                ASSERT_EQ(to_narrow(text.units + u'\xD83D' + text.units, 65001),
                          text.bytes + "\xEF\xBF\xBD" + text.bytes);
                const Text broken = text + kBroken[length % 6] + first * length;
                ASSERT_EQ(to_wide(broken.bytes, 65001), broken.units) << length;
                ASSERT_EQ(ostrel_platform::wide_length(broken.bytes, 65001), broken.units.size());
            }
        }
    }
}

TEST(Utf8, ReadsNothingBehindTheText) {
    for (std::size_t length = 0; length < 140; ++length) {
        EXPECT_EQ(
            ostrel_platform::utf8_length(std::vector<WCHAR>(length, u'\u30BD').data(), length),
            3 * length);
        EXPECT_EQ(ostrel_platform::utf16_length(std::vector<char>(length, 'x').data(), length),
                  length);
    }
}

}  // namespace
