#include "ostrel/charset/util_toUTF8.h"

#include <gtest/gtest.h>

#include <string>

#include "support/bytes.h"
#include "support/trace_capture.h"

namespace {

const std::string kLine = ".\\util_toUTF8.cpp ";

std::string illegal(int count) {
    return "258 " + kLine +
           "UConverterToUCallbackForIllegalConvert(UCNV_ILLEGAL) illegal count = " +
           std::to_string(count) + "\n4099 " + kLine +
           "UConverterToUCallbackForIllegalConvert(UCNV_ILLEGAL) return U_ILLEGAL_CHAR_FOUND\n";
}

std::string construct_failed(int code) {
    return "4099 " + kLine + "UnicodeString construct failed, errCode = " + std::to_string(code) +
           "\n";
}

TEST(Utf8String, ConvertsFromAnyCharset) {
    const struct {
        const char *charset, *text, *utf8;
    } cases[] = {
        {"Shift_JIS", "\x83\x5C\x8A\xBF\xB1\\", "\xE3\x82\xBD\xE6\xBC\xA2\xEF\xBD\xB1\\"},
        {"EUC-JP", "\xA5\xBD\xB4\xC1", "\xE3\x82\xBD\xE6\xBC\xA2"},
        {"GB18030", "\x94\x39\xFC\x36\xC4\xE3", "\xF0\x9F\x98\x80\xE4\xBD\xA0"},
        {"Big5", "\xA7\x41", "\xE4\xBD\xA0"},
        {"ISO-2022-JP", "a\x1B$B%=\x1B(Bb", "a\xE3\x82\xBD\x62"},
        {"UTF-7", "+IKw-.", "\xE2\x82\xAC."},
        {"UTF-16", "\xFE\xFF\x30\xBD", "\xE3\x82\xBD"},
        {"windows-1252", "\x80\xE4", "\xE2\x82\xAC\xC3\xA4"},
        {"UTF-8", "\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
        {"EUC-JP", "", ""},
        {"EUC-JP", nullptr, ""},
    };
    for (const auto &c : cases) {
        const TraceCapture trace;
        EXPECT_STREQ(CUTF8String(c.text, 99, c.charset).Get(), c.utf8) << c.charset;
        EXPECT_EQ(trace.Lines(), "");
    }
}

TEST(Utf8String, ForgivesElevenIllegalSequences) {
    const struct {
        const char *charset, *bad;
    } cases[] = {{"Shift_JIS", "\x81\x20"}, {"EUC-JP", "\xA1 "},     {"GB18030", "\x81\x20"},
                 {"Big5", "\x81\x20"},      {"UTF-8", "\xC3 "},      {"UTF-7", "\x80 "},
                 {"us-ascii", "\x80 "},     {"ISO-2022-JP", "\xFF "}};
    for (const auto &c : cases) {
        for (const int count : {1, 11, 12, 13}) {
            std::string text = "a";
            std::string expected = text;
            for (int i = 0; i < count; ++i) {
                text += c.bad + std::to_string(i % 10);
                expected += " " + std::to_string(i % 10);
            }
            const TraceCapture trace;
            const CUTF8String utf8(text.c_str(), 0, c.charset);
            if (count <= 11) {
                ASSERT_STREQ(utf8.Get(), expected.c_str()) << c.charset << count;
                EXPECT_EQ(trace.Lines(), "");
            } else {
                EXPECT_EQ(utf8.Get(), nullptr) << c.charset;
                EXPECT_EQ(trace.Lines(), illegal(11) + construct_failed(12)) << c.charset;
            }
        }
    }
    // A character that is cut at the end is an illegal sequence.
    EXPECT_STREQ(CUTF8String("a\x83", 0, "Shift_JIS").Get(), "a");
    const TraceCapture trace;
    const std::string text = repeated(11, "\x81 ") + "\x83";
    EXPECT_EQ(CUTF8String(text.c_str(), 0, "Shift_JIS").Get(), nullptr);
    EXPECT_EQ(trace.Lines(), illegal(11) + construct_failed(12));
}

TEST(Utf8String, GivesUpAtAnUnassignedSequence) {
    for (const auto &[charset, text] : {std::pair("Shift_JIS", "a\xEF\xFC"),
                                        {"EUC-JP", "a\xA9\xA1"},
                                        {"windows-1253", "a\xD2"}}) {
        const TraceCapture trace;
        EXPECT_EQ(CUTF8String(text, 0, charset).Get(), nullptr) << charset;
        EXPECT_EQ(trace.Lines(), construct_failed(10)) << charset;
    }
    const TraceCapture trace;
    EXPECT_EQ(CUTF8String("a", 0, "no-such-charset").Get(), nullptr);
    EXPECT_EQ(trace.Lines(),
              "4099 " + kLine + "ucnv_open() failed, szCharset=no-such-charset errCode = 4\n");
}

TEST(Utf8String, OwnsItsText) {
    CUTF8String text("one", 0, "UTF-8");
    CUTF8String copy(text);
    const CUTF8String none("x", 0, "no-such-charset");
    text = *&text;
    EXPECT_STREQ(text.Get(), "one");
    EXPECT_NE(copy.Get(), text.Get());
    text = none;
    EXPECT_EQ(text.Get(), nullptr);
    EXPECT_EQ(CUTF8String(none).Get(), nullptr);
    text = copy;
    copy = CUTF8String("two", 0, "UTF-8");
    EXPECT_STREQ(text.Get(), "one");
    EXPECT_STREQ(copy.Get(), "two");
}

}  // namespace
