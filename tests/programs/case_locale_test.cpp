// Case and white space of the strings in a program whose locale knows more than ASCII.

#include "ostrel/core/x_string.h"
#include "support/test.h"

// Take the place of the host's, which knows only the locales that the machine has.
extern "C" int toupper(int c) noexcept {
    return c == 0xE4 ? 0xC4 : c >= 'a' && c <= 'z' ? c - 0x20 : c;
}
extern "C" int isspace(int c) noexcept {
    return c == 0xA0 || c == '.' || c == ' ';
}

namespace {

TEST(CaseLocale, HasNoEffectOnStrings) {
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
