#include "ostrel/platform/codepage.h"

#include "ostrel/platform/error.h"
#include "support/test.h"

namespace {

std::u16string wide(unsigned code_page, const std::string &bytes) {
    WCHAR buffer[64];
    const int stored =
        MultiByteToWideChar(code_page, 0, bytes.data(), static_cast<int>(bytes.size()), buffer, 64);
    return {buffer, static_cast<std::size_t>(stored)};
}

std::string narrow(unsigned code_page, const std::u16string &text) {
    char buffer[64];
    const int stored = WideCharToMultiByte(code_page, 0, text.data(), static_cast<int>(text.size()),
                                           buffer, 64, nullptr, nullptr);
    return {buffer, static_cast<std::size_t>(stored)};
}

TEST(CodePage, ConvertsBothWays) {
    const std::tuple<unsigned, const char *, const WCHAR *> cases[] = {
        {CP_UTF8, "\xEF\xBB\xBF\xF0\x9F\x98\x80", TEXT("\uFEFF\U0001F600")},
        {932, "\x83\x5C\x8A\xBF\xB1\x7E\x5C", TEXT("\u30BD\u6F22\uFF71~\\")},
        {51932, "\xA5\xBD\xB4\xC1\x8E\xB1", TEXT("\u30BD\u6F22\uFF71")},
        {50220, "\x1B$B%=\x1B(Ba", TEXT("\u30BDa")},
        {54936, "\x81\x30\x89\x33\x94\x39\xFC\x36", TEXT("\u00DA\U0001F600")},
        {1252, "\x80\x81\xE4", TEXT("\u20AC\u0081\u00E4")},
        {1047, "\x4A\x8C", TEXT("\u00A2\u00F0")},
        {65000, "+IKw-", TEXT("\u20AC")},
        // Bytes that ICU's tables leave undefined or give another character.
        {437, "\xE6\xE3", TEXT("\u00B5\u03C0")},
        {852, "\xAA", TEXT("\u00AC")},
        {874, "\xDB\xDE\xFC\xFF", TEXT("\uF8C1\uF8C4\uF8C5\uF8C8")},
        {932, "\x80\xA0\xFD\xFF", TEXT("\u0080\uF8F0\uF8F1\uF8F3")},
        {1253, "\xAA\xD2\xFF", TEXT("\uF8F9\uF8FA\uF8FB")},
        {1255, "\xCA\xD9\xDF\xFB\xFC\xFF", TEXT("\u05BA\uF88D\uF893\uF894\uF895\uF896")}};
    for (const auto &[code_page, bytes, text] : cases) {
        EXPECT_EQ(wide(code_page, bytes), text) << code_page;
        EXPECT_EQ(narrow(code_page, text), bytes) << code_page;
    }
    for (const unsigned code_page : {CP_ACP, CP_OEMCP, CP_THREAD_ACP}) {
        EXPECT_EQ(narrow(code_page, TEXT("\u30BD")), narrow(GetACP(), TEXT("\u30BD"))) << code_page;
    }
}

TEST(CodePage, ReplacesAndRefusesNothing) {
    EXPECT_EQ(narrow(CP_UTF8, u"\xDC00\xD800"), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(wide(932, "a\x83"), TEXT("a\uFFFD"));
    EXPECT_EQ(narrow(1252, TEXT("\uFF21\u30BD\U0001F600.")), "A??.");  // a fallback, then none
    EXPECT_EQ(narrow(932, u"\xD800\u0153\u200D."), "???.");
}

TEST(CodePage, WritesTheLookAlikeOfACharacter) {
    const std::tuple<unsigned, const WCHAR *, const char *> cases[] = {
        {932, TEXT("\u00A2\u00A5\u00A6\u00A9\u00E4\u3094"), "\x81\x91\\|ca\x83\x94"},
        {1252, TEXT("\u0141\u221E\u0110\u2017\u30FB"), "L8\xD0=\xB7"},
        {1253, TEXT("\u00B4\u2642\u00AA"), "/>?"},
        {1257, TEXT("\u00C0\uFF21"), "?A"}};
    for (const auto &[code_page, text, bytes] : cases) {
        EXPECT_EQ(narrow(code_page, text), bytes) << code_page;
    }
}

TEST(CodePage, AnswersWithSizesAndErrors) {
    WCHAR units[5] = u"xxxx";
    SetLastError(0);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC3\xA4z", -1, units, 3), 3);
    EXPECT_EQ(std::u16string(units, 4), std::u16string(u"\u00E4z\0x", 4));
    EXPECT_EQ(MultiByteToWideChar(932, 0, "a\0b", 3, units, 4), 3);  // no NUL is added
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"\u20ACz", -7, nullptr, 0, nullptr, nullptr), 5);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);

    const std::tuple<DWORD, const char *, int, WCHAR *, int, DWORD> wrong[] = {
        {0, "abc", -1, units, 3, ERROR_INSUFFICIENT_BUFFER},
        {8, "a", 1, units, 1, ERROR_INVALID_FLAGS},
        {0, "a", 0, units, 1, ERROR_INVALID_PARAMETER}};
    for (const auto &[flags, source, length, target, room, code] : wrong) {
        SCOPED_TRACE(PrintToString(std::tuple(flags, source, length, target, room)));
        for (const unsigned page : {CP_UTF8, 932u}) {
            EXPECT_EQ(MultiByteToWideChar(page, flags, source, length, target, room), 0);
            EXPECT_EQ(GetLastError(), code);
        }
    }
    for (const unsigned page : {1200u, 2u, 20437u}) {
        EXPECT_EQ(MultiByteToWideChar(page, 0, "a", 1, units, 1), 0) << page;
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
}

}  // namespace
