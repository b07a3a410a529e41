#include "ostrel/core/convert.h"

#include <new>

#include "ostrel/platform/codepage.h"
#include "support/test.h"

namespace {

using OS::x_astring;
using OS::x_wstring;

// Runs under UTF-8 and under 932.
TEST(Convert, GoesThroughTheCodePage) {
    const x_wstring text(TEXT("a\u30BD\u6F22\\"));
    const x_astring utf8("a\xE3\x82\xBD\xE6\xBC\xA2\\");
    const x_astring bytes(GetACP() == 932 ? "a\x83\x5C\x8A\xBF\\" : utf8.c_str());
    EXPECT_EQ(OS::CharToWChar(bytes, nullptr), text);
    EXPECT_EQ(OS::WCharToChar(text, "any"), bytes);
    EXPECT_EQ(OS::CharToUTF8Char(bytes, nullptr), utf8);
    EXPECT_EQ(OS::WCharToUTF8Char(text, ""), utf8);
    EXPECT_EQ(OS::UTF8CharToWChar(utf8, nullptr), text);
}

TEST(Convert, EndsAtTheFirstNulAndReplacesWhatIsBroken) {
    const x_wstring wide(std::u16string(u"\U0001F600\xD800\0z", 5));
    EXPECT_EQ(OS::WCharToUTF8Char(wide, nullptr).GetLength(), 7u);
    EXPECT_EQ(OS::UTF8CharToWChar("\xF0\x9F\x98\x80\xFF", nullptr), TEXT("\U0001F600\uFFFD"));
    EXPECT_EQ(OS::UTF8CharToWChar(std::string("a\0b", 3), nullptr).GetLength(), 1u);
}

// The pieces of a long text, of 4096 characters at most, end between two characters.
TEST(Convert, LongTextsBecomeWhatOneCallMakesOfThem) {
    for (const char *const middle : {"\xC3\xA9", "\xE6\xBC\xA2", "\xF0\x9F\x98\x80", "\xF0\x9F\x98",
                                     "\x80\x80\x80\x80\x80\x80\x80"}) {
        for (std::size_t front = 4089; front <= 4097; ++front) {
            const std::string bytes = std::string(front, 'a') + middle + std::string(5000, 'z');
            const auto length = static_cast<int>(bytes.size());
            std::u16string wide(bytes.size(), u'\0');
            wide.resize(static_cast<std::size_t>(
                MultiByteToWideChar(CP_UTF8, 0, bytes.data(), length, wide.data(), length)));
            EXPECT_EQ(OS::UTF8CharToWChar(bytes, nullptr), wide) << front << middle;
            std::string back(3 * wide.size(), '\0');
            back.resize(static_cast<std::size_t>(
                WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()),
                                    back.data(), static_cast<int>(back.size()), nullptr, nullptr)));
            EXPECT_EQ(OS::WCharToUTF8Char(wide, nullptr), back) << front << middle;
        }
    }
}

// Under a sanitizer: the buffer is as long as told, and operator delete is the one to release it.
template <class Char, class String>
std::basic_string<Char> handed_out(const String &text) {
    Char *buffer = nullptr;
    text.TransTo(buffer, nullptr);
    const std::basic_string<Char> copy(buffer);
    ::operator delete(buffer);
    return copy;
}

TEST(Convert, TransToHandsOutABuffer) {
    const x_astring narrow(std::string("text\0b", 6));
    const x_wstring wide(std::u16string(u"text\0b", 6));
    EXPECT_EQ(handed_out<WCHAR>(narrow) + handed_out<WCHAR>(wide), u"texttext");
    EXPECT_EQ(handed_out<char>(narrow) + handed_out<char>(wide), "texttext");
    EXPECT_EQ(handed_out<char>(x_wstring()) + handed_out<char>(x_astring()), "");
}

}  // namespace
