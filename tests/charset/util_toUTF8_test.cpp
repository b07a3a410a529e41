#include "ostrel/charset/util_toUTF8.h"

#include "support/bytes.h"
#include "support/test.h"
#include "support/trace_capture.h"

namespace {

const std::string kLine = ".\\util_toUTF8.cpp ";
const std::string kCallback = "UConverterToUCallbackForIllegalConvert(UCNV_ILLEGAL) ";
const std::string kConstructFailed = "4099 " + kLine + "UnicodeString construct failed, errCode = ";

TEST(UtilToUtf8, ConvertsFromAnyCharset) {
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"Shift_JIS", "\x83\x5C\x8A\xBF\xB1\\", "\xE3\x82\xBD\xE6\xBC\xA2\xEF\xBD\xB1\\"},
        {"GB18030", "\x94\x39\xFC\x36\xC4\xE3", "\xF0\x9F\x98\x80\xE4\xBD\xA0"},
        {"UTF-16", "\xFE\xFF\x30\xBD", "\xE3\x82\xBD"},
        {"EUC-JP", nullptr, ""}};
    for (const auto &[charset, text, utf8] : cases) {
        const TraceCapture trace;
        EXPECT_STREQ(CUTF8String(text, 99, charset).Get(), utf8) << charset;
        EXPECT_EQ(trace.Lines(), "");
    }
}

TEST(UtilToUtf8, ForgivesElevenIllegalSequences) {
    // In the last line a character that is cut at the end is one more.
    for (const auto &[charset, bad, end] : {std::tuple{"Shift_JIS", "\x81 ", ""},
                                            {"UTF-7", "\x80 ", ""},
                                            {"Shift_JIS", "\x81 ", "\x83"}}) {
        SCOPED_TRACE(PrintToString(std::tuple(charset, bad, end)));
        const std::size_t most = *end == '\0' ? 11 : 10;
        const TraceCapture trace;
        EXPECT_EQ(CUTF8String((repeated(most, bad) + end).c_str(), 0, charset).Get(),
                  repeated(most, " "));
        EXPECT_EQ(trace.Lines(), "");
        EXPECT_EQ(CUTF8String((repeated(most + 1, bad) + end).c_str(), 0, charset).Get(), nullptr);
        EXPECT_EQ(trace.Lines(), "258 " + kLine + kCallback + "illegal count = 11\n4099 " + kLine +
                                     kCallback + "return U_ILLEGAL_CHAR_FOUND\n" +
                                     kConstructFailed + "12\n");
    }
}

TEST(UtilToUtf8, GivesUpAtAnUnassignedSequenceOrCharset) {
    const TraceCapture trace;
    EXPECT_EQ(CUTF8String("a\xEF\xFC", 0, "Shift_JIS").Get(), nullptr);
    EXPECT_EQ(CUTF8String("a", 0, "no-such-charset").Get(), nullptr);
    EXPECT_EQ(trace.Lines(), kConstructFailed + "10\n4099 " + kLine +
                                 "ucnv_open() failed, szCharset=no-such-charset errCode = 4\n");
}

TEST(UtilToUtf8, OwnsItsText) {
    CUTF8String text("one", 0, "UTF-8");
    CUTF8String copy(text);
    const CUTF8String none("x", 0, "no-such-charset");
    text = *&text;
    EXPECT_STREQ(text.Get(), "one");
    EXPECT_EQ(CUTF8String(none).Get(), nullptr);
    text = copy;
    copy = CUTF8String("two", 0, "UTF-8");
    EXPECT_EQ(std::string(text.Get()) + copy.Get(), "onetwo");
}

}  // namespace
