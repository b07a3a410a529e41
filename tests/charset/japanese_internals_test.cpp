#include "ostrel/charset/japanese.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace {

using namespace OS::charset;

// The result of a conversion, released.
template <class Convert>
std::string exact(const std::string &text, Convert convert) {
    char *const result = convert(block_of(text).get());
    EXPECT_NE(result, nullptr);
    const std::string copy(result == nullptr ? "" : result);
    std::free(result);
    return copy;
}

std::string to_jis(const std::string &text, int encoding) {
    return exact(text, [=](const char *block) { return ConvertToJis(block, encoding); });
}
std::string from_jis(const std::string &text, int target) {
    return exact(text, [=](const char *block) { return ConvertFromJis(block, target); });
}
std::string detected_to(const std::string &text, int target) {
    return exact(text, [=](const char *block) { return ConvertDetected(block, target); });
}

// The text in another encoding; nothing when iconv refuses it.
std::optional<std::string> by_iconv(const char *to, const char *from, std::string text) {
    const iconv_t converter = iconv_open(to, from);
    std::string result(text.size() * 8 + 8, '\0');
    char *in = text.data();
    char *out = result.data();
    std::size_t in_left = text.size();
    std::size_t out_left = result.size();
    const bool whole = iconv(converter, &in, &in_left, &out, &out_left) == 0 &&
                       iconv(converter, nullptr, nullptr, &out, &out_left) == 0;
    iconv_close(converter);
    result.resize(result.size() - out_left);
    return whole ? std::optional(result) : std::nullopt;
}

// The characters of JIS X 0208 that iconv knows, in EUC-JP.
const std::vector<std::string> &plane() {
    static const std::vector<std::string> made = [] {
        std::vector<std::string> pairs;
        for (int lead = 0xA1; lead <= 0xFE; ++lead) {
            for (int trail = 0xA1; trail <= 0xFE; ++trail) {
                const std::string pair = {static_cast<char>(lead), static_cast<char>(trail)};
                if (by_iconv("ISO-2022-JP", "EUC-JP", pair)) {
                    pairs.push_back(pair);
                }
            }
        }
        return pairs;
    }();
    return made;
}

// A valid text in EUC-JP: runs of kanji, of katakana and of ASCII.
std::string japanese_text(std::mt19937 &random, std::size_t length) {
    std::string text;
    while (text.size() < length) {
        const auto kind = random() % 3;
        for (std::size_t left = random() % 40; left != 0; --left) {
            if (kind == 0) {
                text += plane()[random() % plane().size()];
            } else if (kind == 1) {
                text += static_cast<char>(' ' + random() % 95);
            } else {
                text += {'\x8E', static_cast<char>(0xA1 + random() % 63)};
            }
        }
    }
    return text;
}

TEST(Japanese, Detects) {
    const std::string sjis = "\x88\x9F", euc = "\xB0\xA1", mark = "=?iso-2022-jp?Q?";
    const std::string plain(40, 'a');
    // Where both readings break off: two points a character, one for a katakana, 20 less.
    const std::vector<std::string> kTexts[] = {
        // EncodingNone
        {"", "plain = text ?", "\x1B(", "\x1B$J\x1B)B", "=?UTF-8?B?", "=?SHIFT_JIS?X?", "\xA0",
         "\x81\x7F", "\xA1\xFF", "\x80" + mark, repeated(9, euc) + "\x80",
         repeated(9, sjis) + "\x80", repeated(19, "\xB1 ") + "\x80"},
        {"a\x1B$Bb", plain + "\x1B(I", "\x1B(B" + mark, mark + "\x1B(B"},
        // EncodingShiftJis. A pair of EUC-JP is two katakana too.
        {sjis, "\xB1", "\x8E\xE0", "\x81\x40", "\x81\x80", plain + euc + plain + sjis,
         repeated(10, sjis) + "\x80", repeated(20, "\xB1 ") + "\x80",
         repeated(10, euc) + repeated(9, sjis) + "\xFF"},
        // EncodingEucJp, with equal scores too
        {euc, "\x8E\xB1", "\xA1\xFE", "\xFC\xFC", "\xFD\xA1", euc + mark + "\x1B$B",
         repeated(10, euc) + "\x80", repeated(10, "\x8E\xB1") + "\x80",
         repeated(10, "\xE0\xA1") + " \x80"},
        // EncodingMime. Nothing is counted in front of the bad byte.
        {plain + "=?EUC-jp?b?" + plain, "==?shift_jis?q?", mark + "\x80"}};
    for (int encoding = EncodingNone; encoding <= EncodingMime; ++encoding) {
        for (const std::string &text : kTexts[encoding]) {
            EXPECT_EQ(DetectJapaneseEncoding(text.c_str()), encoding) << text;
        }
    }
}

TEST(Japanese, ConvertsEachKindOfCharacterAndSwitchesStates) {
    const struct {
        std::string sjis, euc, jis, masked;  // one that is empty has no form of this text
    } kCases[] = {{"a\xB1\x88\x9F\xB2 b", "a\x8E\xB1\xB0\xA1\x8E\xB2 b",
                   "a\x1B(I1\x1B$B0!\x1B(I2\x1B(B b", "a?\?\?? b"},
                  {"\x80\xA0\xFD\xFF", "", "\x80\xA0\xFD\xFF", "\x80\xA0\xFD\xFF"},
                  {"", "\x80\xA0\x8D\xFF", "\x80\xA0\x8D\xFF", "\x80\xA0\x8D\xFF"}};
    for (const auto &[sjis, euc, jis, masked] : kCases) {
        for (const auto &[text, encoding] :
             {std::pair(sjis, EncodingShiftJis), {euc, EncodingEucJp}}) {
            if (!text.empty()) {
                EXPECT_EQ(to_jis(text, encoding), jis);
                EXPECT_EQ(from_jis(jis, encoding), text);
            }
        }
        EXPECT_EQ(from_jis(jis, EncodingMasked), masked);
    }
}

// What no writer of these encodings gives, and texts that end within a character.
TEST(Japanese, MapsBrokenTextAndStopsAtItsEnd) {
    const struct {
        bool from;
        int encoding;
        std::string text, expected;
    } kCases[] = {
        {false, EncodingShiftJis, "\x81 ", "\x1B$B!\x01\x1B(B"},  // as if the trail were one
        {false, EncodingShiftJis, "\x81\x7F", "\x1B$B!_\x1B(B"},
        {false, EncodingShiftJis, "\xF0\x9F", "\x1B$B"},  // a zero byte
        {false, EncodingShiftJis, "a\x88", "a"},
        {false, EncodingEucJp, "\xB0\x41", "\x1B$B0A\x1B(B"},
        {false, EncodingEucJp, "\x8E\x41", "\x1B(IA\x1B(B"},
        {false, EncodingEucJp, "\xB0\xA1\xB0", "\x1B$B0!\x1B(B"},
        {false, EncodingEucJp, "a\x8E", "a"},
        {false, EncodingMasked, "a", ""},
        {false, -1, "a", ""},
        {true, EncodingShiftJis, "\x1B$@0!0", "\x88\x9F"},
        {true, EncodingEucJp, "\x1B$B0", ""},
        {true, EncodingMasked, "\x1B$B0!0", "\?\?"},
        {true, EncodingEucJp, "\x1B$B0\x1B(B", "\xB0\x9B\xA8\xC2"},  // pairs across the escape
        {true, EncodingEucJp, "\x1B(I\x1B(", "\x8E\x9B\x8E\xA8"},
        {true, EncodingEucJp, "\x1B$B\x1B\x41\x30!\x1B(JA", "\x9B\xC1\xB0\xA1\x41"},
        {true, EncodingShiftJis, "\x1B\x1B(B\x1B$\x1B(A", "\x1B\x1B$\x1B(A"},
        {true, EncodingJis, "\x1B$B0!", "\x1B$B0!"},
        {true, EncodingNone, "a\x1B$B0!\x1B(I1\x1B(Bb", "ab"}};
    for (const auto &[from, encoding, text, expected] : kCases) {
        EXPECT_EQ(from ? from_jis(text, encoding) : to_jis(text, encoding), expected)
            << testing::PrintToString(text);
    }
}

TEST(Japanese, GoesThroughTheHubFromAndToEachEncoding) {
    const std::string sjis = "a\x88\x9F", euc = "a\xB0\xA1", jis = "a\x1B$B0!\x1B(B",
                      mime = "a=?ISO-2022-JP?B?GyRCMCEbKEI=?=";
    const std::string in[] = {"", jis, sjis, euc, mime, "a\?\?"};
    for (int target = EncodingJis; target <= EncodingMasked; ++target) {
        for (int source = EncodingJis; source <= EncodingMime; ++source) {
            EXPECT_EQ(detected_to(in[source], target), in[target]) << source << " to " << target;
        }
        EXPECT_EQ(detected_to("ab", target), "ab");
        EXPECT_EQ(exact(euc, [=](auto text) { return ConvertFromInternal(text, target); }),
                  in[target]);
    }
    for (int source = EncodingNone; source <= EncodingMime; ++source) {
        EXPECT_EQ(exact(in[source], [=](auto text) { return ConvertToInternal(text, source); }),
                  source == EncodingNone ? "" : euc);
    }
    // A word that cannot be decoded.
    EXPECT_EQ(ConvertDetected("=?EUC-JP?Q?=x?=", EncodingShiftJis), nullptr);
    EXPECT_EQ(DetectJapaneseEncoding(nullptr), EncodingNone);
    for (const auto convert :
         {ConvertToJis, ConvertFromJis, ConvertDetected, ConvertToInternal, ConvertFromInternal}) {
        EXPECT_EQ(convert(nullptr, EncodingJis), nullptr);
        EXPECT_EQ(exact("", [=](auto text) { return convert(text, EncodingMasked); }), "");
    }
}

// All 6,879 characters of JIS X 0208 and all half-width katakana. iconv refuses what the standard
// leaves free, which is mapped here, and katakana in plain ISO-2022-JP, so its third extension
// stands in. In what both take there is no difference.
TEST(JapaneseDifferential, AgreesWithIconv) {
    ASSERT_EQ(plane().size(), 6879u);
    std::string all;
    for (const std::string &pair : plane()) {
        all += pair;
    }
    std::string katakana;
    for (int kana = 0xA1; kana <= 0xDF; ++kana) {
        katakana += {'\x8E', static_cast<char>(kana)};
    }
    std::mt19937 random(1);
    std::vector<std::string> texts = {all, katakana, all + katakana};
    for (int round = 0; round < 200; ++round) {
        texts.push_back(japanese_text(random, random() % 400));
    }
    for (const std::string &euc : texts) {
        const std::optional<std::string> sjis = by_iconv("SHIFT_JIS", "EUC-JP", euc);
        const std::optional<std::string> jis = by_iconv("ISO-2022-JP-3", "EUC-JP", euc);
        ASSERT_TRUE(sjis && jis);
        ASSERT_EQ(to_jis(euc, EncodingEucJp), *jis);
        ASSERT_EQ(to_jis(*sjis, EncodingShiftJis), *jis);
        ASSERT_EQ(from_jis(*jis, EncodingEucJp), euc);
        ASSERT_EQ(from_jis(*jis, EncodingShiftJis), *sjis);
    }
}

// What is cut off is a character at most; the rest comes back.
TEST(Japanese, TakesEveryPrefix) {
    std::mt19937 random(3);
    const std::string euc = japanese_text(random, 300);
    const std::string sjis = from_jis(to_jis(euc, EncodingEucJp), EncodingShiftJis);
    for (const auto &[text, encoding] :
         {std::pair(euc, EncodingEucJp), std::pair(sjis, EncodingShiftJis)}) {
        for (std::size_t length = 0; length <= text.size(); ++length) {
            const std::string prefix = text.substr(0, length);
            const std::string back = from_jis(to_jis(prefix, encoding), encoding);
            ASSERT_EQ(back, prefix.substr(0, back.size()));
            ASSERT_LE(prefix.size() - back.size(), 1u);
        }
    }
}

}  // namespace
