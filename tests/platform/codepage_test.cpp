#include "ostrel/platform/codepage.h"

#include <gtest/gtest.h>

#include <string>

#include "ostrel/platform/error.h"

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
    const struct {
        unsigned code_page;
        const char *bytes;
        const WCHAR *text;
    } cases[] = {
        {CP_UTF8, "\xEF\xBB\xBF\xF0\x9F\x98\x80", TEXT("\uFEFF\U0001F600")},
        {932, "\x83\x5C\x8A\xBF\xB1\x7E\x5C", TEXT("\u30BD\u6F22\uFF71~\\")},
        {51932, "\xA5\xBD\xB4\xC1\x8E\xB1", TEXT("\u30BD\u6F22\uFF71")},
        {50220, "\x1B$B%=\x1B(Ba", TEXT("\u30BDa")},
        {936, "\xC4\xE3\xBA\xC3", TEXT("\u4F60\u597D")},
        {54936, "\x81\x30\x89\x33\x94\x39\xFC\x36", TEXT("\u00DA\U0001F600")},
        {949, "\xB0\xA1", TEXT("\uAC00")},
        {950, "\xA7\x41", TEXT("\u4F60")},
        {1252, "\x80\x81\xE4", TEXT("\u20AC\u0081\u00E4")},
        {1251, "\xCF", TEXT("\u041F")},
        {50222, "\x0E\x31\x0F", TEXT("\uFF71")},
        {437, "\x81", TEXT("\u00FC")},
        {1047, "\x4A\x8C", TEXT("\u00A2\u00F0")},
        {20273, "\x4A", TEXT("\u00C4")},
        {28605, "\xA4", TEXT("\u20AC")},
        {65000, "+IKw-", TEXT("\u20AC")},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(wide(c.code_page, c.bytes), c.text) << c.code_page;
        EXPECT_EQ(narrow(c.code_page, c.text), c.bytes) << c.code_page;
    }
    for (const unsigned code_page : {CP_ACP, CP_OEMCP, CP_THREAD_ACP}) {
        EXPECT_EQ(narrow(code_page, TEXT("\u30BD")), narrow(GetACP(), TEXT("\u30BD")));
    }
}

TEST(CodePage, ReplacesAndRefusesNothing) {
    EXPECT_EQ(wide(CP_UTF8, "\xE2\x82\x41\xC0\x80\xED\xA0\x80\xF0\x9F"),
              TEXT("\uFFFDA\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"));
    EXPECT_EQ(narrow(CP_UTF8, u"\xDC00\xD800"), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(wide(932, "a\x83"), TEXT("a\uFFFD"));
    EXPECT_EQ(narrow(1252, TEXT("\uFF21\u30BD\U0001F600.")), "A??.");  // a fallback, then none
    EXPECT_EQ(narrow(932, u"\xD800\u00E4\u200D."), "???.");
}

TEST(CodePage, AnswersWithSizesAndErrors) {
    WCHAR units[4] = {'x', 'x', 'x', 'x'};
    char bytes[7] = {'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    const auto to_wide = [&](unsigned page, DWORD flags, const char *source, int length,
                             WCHAR *target, int room) {
        SetLastError(0);
        return MultiByteToWideChar(page, flags, source, length, target, room);
    };
    const auto to_narrow = [&](const WCHAR *source, int length, char *target, int room,
                               const char *default_char = nullptr, BOOL *used = nullptr) {
        SetLastError(0);
        return WideCharToMultiByte(CP_UTF8, 0, source, length, target, room, default_char, used);
    };
    EXPECT_EQ(to_wide(CP_UTF8, 0, "\xC3\xA4z", -1, nullptr, 0), 3);
    EXPECT_EQ(to_wide(CP_UTF8, 0, "\xC3\xA4z", -1, units, 3), 3);
    EXPECT_EQ(std::u16string(units, 4), std::u16string(u"\u00E4z\0x", 4));
    EXPECT_EQ(to_wide(932, 0, "a\0b", 3, units, 4), 3);  // no NUL is added
    EXPECT_EQ(to_narrow(TEXT("\u20ACz"), -7, nullptr, 0), 5);
    EXPECT_EQ(to_narrow(TEXT("\u20ACz"), 2, bytes, 4), 4);
    EXPECT_EQ(std::string(bytes, 5), "\xE2\x82\xACzx");
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);

    const auto fails = [](int result, DWORD code) { return result == 0 && GetLastError() == code; };
    for (const unsigned page : {CP_UTF8, 932u}) {
        EXPECT_TRUE(fails(to_wide(page, 0, "abc", -1, units, 3), ERROR_INSUFFICIENT_BUFFER));
        EXPECT_TRUE(fails(to_wide(page, 0, "a", 1, nullptr, 1), ERROR_INSUFFICIENT_BUFFER));
        EXPECT_TRUE(fails(to_wide(page, 8, "a", 1, units, 1), ERROR_INVALID_FLAGS));
        EXPECT_TRUE(fails(to_wide(page, 0, nullptr, 1, units, 1), ERROR_INVALID_PARAMETER));
        EXPECT_TRUE(fails(to_wide(page, 0, "a", 0, units, 1), ERROR_INVALID_PARAMETER));
        EXPECT_TRUE(fails(to_wide(page, 0, "a", 1, units, -1), ERROR_INVALID_PARAMETER));
    }
    for (const unsigned page : {1200u, 12001u, 2u, 4711u, 20437u, 65002u}) {
        EXPECT_TRUE(fails(to_wide(page, 0, "a", 1, units, 1), ERROR_INVALID_PARAMETER)) << page;
    }
    BOOL used = 0;
    const auto *const same = reinterpret_cast<const WCHAR *>(bytes);
    EXPECT_TRUE(fails(to_narrow(same, 1, bytes, 7), ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(fails(to_narrow(TEXT("a"), 1, bytes, 7, "?"), ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(fails(to_narrow(TEXT("a"), 1, bytes, 7, nullptr, &used), ERROR_INVALID_PARAMETER));
}

}  // namespace
