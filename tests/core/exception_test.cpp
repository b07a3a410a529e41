#include "ostrel/core/exception.h"

#include <gtest/gtest.h>

#include "ostrel/platform/error.h"
#include "support/text.h"

using OS::CException;
using OS::CSystemException;
using OS::CSystemExceptionImp;

namespace {

static_assert(!std::is_base_of_v<std::exception, CException>);
static_assert(!std::is_default_constructible_v<CSystemException>);

TEST(Exception, KeepsNameAndExtensionOfTheSourceFile) {
    for (const std::u16string folder : {u"d:\\a\\b\\", u"/a.b/c/", u""}) {
        for (const WCHAR *name : {TEXT("unit.ext"), TEXT("many.points.cpp"), TEXT("")}) {
            const CException failure(5, (folder + name).c_str(), 7);
            EXPECT_EQ(OS::x_wstring(failure.GetFilename()), name);
            EXPECT_EQ(failure.GetErrorMsgEx(),
                      *name == 0 ? TEXT("5") : formatted(TEXT("5, (5), [%s|7]"), name));
        }
    }
    const CException nowhere(5, nullptr, 7), too_long(5, std::u16string(256, u'n').c_str(), 7);
    EXPECT_EQ(nowhere.GetErrorMsg() + nowhere.GetErrorMsgEx(), TEXT("55"));
    EXPECT_TRUE(nowhere.GetFilename()[0] == 0 && nowhere.GetLineNumber() == 7);
    EXPECT_EQ(too_long.GetFilename()[0], 0);  // no half of a name
    EXPECT_EQ(OS::CTimeException().GetErrorMsg() + CException().GetErrorMsg(), TEXT("00"));
}

TEST(SystemException, PutsCodeAndPositionIntoItsText) {
    const std::tuple<int, int, const WCHAR *, const WCHAR *> cases[] = {
        {5, 12, TEXT("x\\unit.cpp"), TEXT("Access is denied.\r\n, (5), [unit.cpp|12]")},
        {5, 0, nullptr, TEXT("Access is denied.\r\n (5)")},
        {5, 3, TEXT(""), TEXT("Access is denied.\r\n, (5), [|3]")},
        // No text: the failure of the lookup stands in front, that of now and not of the raise.
        {424242, 0, nullptr, TEXT("(317, 424242)")},
        {-1, 3, TEXT("u.c"), TEXT("317, (-1), [u.c|3]")},
        // A text with an insert can't be had without its argument.
        {193, 0, nullptr, TEXT("(87, 193)")},
    };
    for (const auto &[code, line, file, text] : cases) {
        SetLastError(5);
        EXPECT_EQ(CSystemExceptionImp(code, file, line).GetErrorMsg(), text);
    }
    SetLastError(1223);
    EXPECT_EQ(CSystemException::GetLastError(), 1223);
    EXPECT_EQ(CSystemExceptionImp::GetLastError(), 1223);
}

TEST(SystemException, CopiesOutliveEachOther) {
    try {
        try {
            throw CSystemException(2, TEXT("a.cpp"), 1);
        } catch (const CSystemException &caught) {
            CSystemException later(3, TEXT("b.cpp"), 2);
            later = CSystemException(caught);
            throw CSystemException(later);
        }
    } catch (const CException &failure) {
        EXPECT_EQ(failure.GetErrorMsg(), CSystemExceptionImp(2, TEXT("a.cpp"), 1).GetErrorMsg());
        EXPECT_EQ(failure.GetErrorMsgEx(), failure.GetErrorMsg());
        EXPECT_EQ(failure.GetErrorCode(), 2);
        EXPECT_TRUE(failure.GetFilename()[0] == 0 && failure.GetLineNumber() == 0);
    }
}

}  // namespace
