// Escapes for markup and for literals.

#include "ostrel/core/x_string.h"

#include "support/test.h"

using OS::x_astring;
using OS::x_wstring;

namespace {

TEST(Escape, PreparesMarkupAndLiterals) {
    EXPECT_EQ(x_wstring(TEXT("a&b it's")).EscapeSpecialCharacters().EscapeSpecialCharacters(),
              TEXT("a&amp;amp;b it&amp;#039;s"));
    EXPECT_EQ(x_astring("it's <\r\n>").EscapeSpecialCharacters(), "it's &lt;&#x0D;&#x0A;&gt;");
    EXPECT_EQ(x_wstring(TEXT(" \t &\u0120")).EscapeSpecialSpaceAndTab(),
              TEXT("&nbsp;&nbsp;&nbsp;&\u0120"));
    EXPECT_EQ(x_wstring(TEXT("\\\"'\n")).EscapeSpecialCharactersForCString(),
              TEXT("\\\\\\\"\\'\n"));
    EXPECT_EQ(x_astring("'").EscapeSpecialCharactersForCString(), "\\'");
    // Blocks of 64 characters, and what is left.
    const std::u16string plain(63, u'x');
    EXPECT_EQ(x_wstring(plain + u"<" + plain + u"&\">").EscapeSpecialCharacters(),
              plain + u"&lt;" + plain + u"&amp;&quot;&gt;");
}

TEST(Escape, LeavesWhatTheNarrowBoundLeaves) {
    x_astring text(std::string(6000, '&') + std::string(5000, '<'));
    text.EscapeSpecialCharacters();
    EXPECT_EQ(text.GetLength(), 4999u * 5 + 1001 + 4999 * 4 + 1);
    x_astring slashes(std::string(5001, '\\'));
    EXPECT_EQ(slashes.EscapeSpecialCharactersForCString().GetLength(), 10000u);
    EXPECT_EQ(x_wstring(std::u16string(6000, u'&')).EscapeSpecialCharacters().GetLength(), 30000u);
}

}  // namespace
