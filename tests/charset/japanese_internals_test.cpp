#include "ostrel/charset/japanese.h"

#include "ostrel/charset/heap_text.h"
#include "support/bytes.h"
#include "support/test.h"

namespace {

using namespace OS::charset;

template <class Convert>
std::string exact(const std::string &text, Convert convert) {
    const HeapText result(convert(block_of(text).get()));
    return result == nullptr ? "(null)" : result.get();
}

std::string to_jis(const std::string &text, int encoding) {
    return exact(text, [=](const char *block) { return ConvertToJis(block, encoding); });
}
std::string from_jis(const std::string &text, int target) {
    return exact(text, [=](const char *block) { return ConvertFromJis(block, target); });
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
    // Shift_JIS, EUC-JP, JIS, masked; one that is empty has no form of this text.
    const std::string kCases[][4] = {
        {"a\xB1\x88\x9F\xB2 b", "a\x8E\xB1\xB0\xA1\x8E\xB2 b", "a\x1B(I1\x1B$B0!\x1B(I2\x1B(B b",
         "a?\?\?? b"},
        // Where the ranges of the two bytes begin and end.
        {"\x81\x7E\x81\x80\x81\x9F\x9F\xFC\xE0\x40\xEF\xFC",
         "\xA1\xDF\xA1\xE0\xA2\xA1\xDE\xFE\xDF\xA1\xFE\xFE", "\x1B$B!_!`\"!^~_!~~\x1B(B",
         std::string(12, '?')},
        {"\x80\xA0\xFD\xFF", "", "\x80\xA0\xFD\xFF", "\x80\xA0\xFD\xFF"},
        {"", "\x80\xA0\x8D\xFF", "\x80\xA0\x8D\xFF", "\x80\xA0\x8D\xFF"}};
    for (const auto &[sjis, euc, jis, masked] : kCases) {
        SCOPED_TRACE(PrintToString(jis));
        for (const auto &[text, encoding] :
             {std::pair(sjis, EncodingShiftJis), {euc, EncodingEucJp}}) {
            EXPECT_EQ(text.empty() ? jis : to_jis(text, encoding), jis);
            EXPECT_EQ(text.empty() ? text : from_jis(jis, encoding), text);
        }
        EXPECT_EQ(from_jis(jis, EncodingMasked), masked);
    }
}

// What no writer of these encodings gives, and texts that end within a character.
TEST(Japanese, MapsBrokenTextAndStopsAtItsEnd) {
    const std::tuple<bool, int, std::string, std::string> kCases[] = {
        {false, EncodingShiftJis, "\x81 ", "\x1B$B!\x01\x1B(B"},  // as if the trail were one
        {false, EncodingShiftJis, "\xF0\x9F", "\x1B$B"},          // a zero byte
        {false, EncodingShiftJis, "a\x88", "a"},
        {false, EncodingShiftJis, "\xB1", "\x1B(I1\x1B(B"},  // what takes the most room
        {false, EncodingEucJp, "\xB0\x41", "\x1B$B0A\x1B(B"},
        {false, -1, "a", ""},
        {true, EncodingShiftJis, "\x1B$@0!0", "\x88\x9F"},
        {true, EncodingEucJp, "\x1B$B0\x1B(B", "\xB0\x9B\xA8\xC2"},  // pairs across the escape
        {true, EncodingEucJp, "\x1B$B\x1B\x41\x30!\x1B(JA", "\x9B\xC1\xB0\xA1\x41"},
        {true, EncodingNone, "a\x1B$B0!\x1B(I1\x1B(Bb", "ab"}};
    for (const auto &[from, encoding, text, expected] : kCases) {
        EXPECT_EQ(from ? from_jis(text, encoding) : to_jis(text, encoding), expected)
            << PrintToString(text);
    }
}

TEST(Japanese, GoesThroughTheHubFromAndToEachEncoding) {
    const std::string euc = "a\xB0\xA1";
    const std::string in[] = {
        "ab", "a\x1B$B0!\x1B(B", "a\x88\x9F", euc, "a=?ISO-2022-JP?B?GyRCMCEbKEI=?=", "a\?\?"};
    for (int target = EncodingJis; target <= EncodingMasked; ++target) {
        const auto detected = [=](const char *text) { return ConvertDetected(text, target); };
        for (int source = EncodingJis; source <= EncodingMime; ++source) {
            EXPECT_EQ(exact(in[source], detected), in[target]) << source << " to " << target;
        }
        EXPECT_EQ(exact(euc, [=](auto text) { return ConvertFromInternal(text, target); }),
                  in[target])
            << target;
    }
    for (int source = EncodingNone; source <= EncodingMime; ++source) {
        EXPECT_EQ(exact(in[source], [=](auto text) { return ConvertToInternal(text, source); }),
                  source == EncodingNone ? "ab" : euc)
            << source;
    }
    // A word that cannot be decoded.
    EXPECT_EQ(ConvertDetected("=?EUC-JP?Q?=x?=", EncodingShiftJis), nullptr);
}

}  // namespace
