// Strings in a program whose locale knows more than ASCII, and whose conversions fail in their
// second call: the first, which asks for the size, has succeeded.

#include "ostrel/core/convert.h"
#include "ostrel/platform/codepage.h"
#include "ostrel/platform/error.h"
#include "support/test.h"

static int answer(int capacity) {
    if (capacity == 0) {
        return 5;
    }
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return 0;
}

int MultiByteToWideChar(unsigned, DWORD, const char *, int, WCHAR *, int capacity) noexcept {
    return answer(capacity);
}
int WideCharToMultiByte(unsigned, DWORD, const WCHAR *, int, char *, int capacity, const char *,
                        BOOL *) noexcept {
    return answer(capacity);
}

// Take the place of the host's, which knows only the locales that the machine has.
extern "C" int toupper(int c) noexcept {
    return c == 0xE4 ? 0xC4 : c >= 'a' && c <= 'z' ? c - 0x20 : c;
}
extern "C" int isspace(int c) noexcept {
    return c == 0xA0 || c == '.' || c == ' ';
}

namespace {

// The address sanitizer finds a copy that is not released.
TEST(StringCallsReplaced, ThatFailLeaveTheTargetAndGiveTheEmptyString) {
    const OS::x_astring narrow("text");
    const OS::x_wstring wide(TEXT("text"));
    char kept[] = "kept";
    WCHAR wide_kept[] = TEXT("kept");
    char *target = kept;
    WCHAR *wide_target = wide_kept;
    SetLastError(ERROR_SUCCESS);
    wide.TransTo(target, nullptr);
    narrow.TransTo(wide_target, nullptr);
    EXPECT_TRUE(target == kept && wide_target == wide_kept);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(OS::CharToWChar(narrow, nullptr).GetLength(), 0u);
    EXPECT_EQ(OS::WCharToChar(wide, nullptr).GetLength(), 0u);
    EXPECT_EQ(OS::CharToUTF8Char(narrow, nullptr).GetLength(), 0u);
}

TEST(StringCallsReplaced, OfTheLocaleHaveNoEffectOnCaseAndWhiteSpace) {
    ASSERT_EQ(toupper(0xE4), 0xC4);
    OS::x_astring text("a\xE4z.\xA0"), upper(text);
    upper.ToUpper();
    text.TrimRight();
    EXPECT_STREQ(upper, "A\xE4Z.\xA0");
    EXPECT_STREQ(text, "a\xE4z.\xA0");
    EXPECT_EQ(text.CompareNoCase(upper), 0);
    text = "x.";
    text.TrimRight();
    EXPECT_STREQ(text, "x.");
}

}  // namespace
