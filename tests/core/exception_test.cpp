#include "ostrel/core/exception.h"

#include "ostrel/platform/error.h"
#include "support/text.h"

namespace {

using OS::CException;
using OS::CSystemException;
using OS::CSystemExceptionImp;

TEST(Exception, KeepsNameAndExtensionOfTheSourceFile) {
    const CException failure(5, TEXT("d:\\a.b/many.points.cpp"), 7), nowhere(5, nullptr, 7);
    EXPECT_EQ(OS::x_wstring(failure.GetFilename()), TEXT("many.points.cpp"));
    EXPECT_EQ(failure.GetErrorMsgEx(), TEXT("5, (5), [many.points.cpp|7]"));
    EXPECT_EQ(nowhere.GetErrorMsg() + nowhere.GetErrorMsgEx(), TEXT("55"));
    EXPECT_TRUE(nowhere.GetFilename()[0] == 0 && nowhere.GetLineNumber() == 7);
    const CException too_long(5, std::u16string(256, u'n').c_str(), 7);
    EXPECT_EQ(too_long.GetFilename()[0], 0);  // no half of a name
    EXPECT_EQ(OS::CTimeException().GetErrorMsg() + CException().GetErrorMsg(), TEXT("00"));
}

TEST(Exception, PutsCodeAndPositionIntoItsText) {
    const std::tuple<int, int, const WCHAR *, const WCHAR *> cases[] = {
        {5, 12, TEXT("x\\unit.cpp"), TEXT("Access is denied.\r\n, (5), [unit.cpp|12]")},
        {5, 0, nullptr, TEXT("Access is denied.\r\n (5)")},
        {5, 3, nullptr, TEXT("Access is denied.\r\n, (5), [|3]")},
        // No text: the failure of the lookup stands in front, that of now and not of the raise.
        {424242, 0, nullptr, TEXT("(317, 424242)")},
        {-1, 3, TEXT("u.c"), TEXT("317, (-1), [u.c|3]")},
        // A text with an insert can't be had without its argument.
        {193, 0, nullptr, TEXT("(87, 193)")}};
    for (const auto &[code, line, file, text] : cases) {
        SetLastError(5);
        EXPECT_EQ(CSystemExceptionImp(code, file, line).GetErrorMsg(), text) << code << ' ' << line;
    }
    SetLastError(1223);
    EXPECT_EQ(CSystemException::GetLastError() + CSystemExceptionImp::GetLastError(), 2 * 1223);
}

}  // namespace
