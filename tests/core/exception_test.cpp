#include "ostrel/core/exception.h"

#include <gtest/gtest.h>

#include <memory>

#include "ostrel/platform/error.h"
#include "support/text.h"

using OS::CException;
using OS::CSystemException;
using OS::CSystemExceptionImp;
using OS::CTimeException;

namespace {

static_assert(!std::is_base_of_v<std::exception, CException>);
static_assert(!std::is_default_constructible_v<CSystemException>);

TEST(Exception, KeepsNameAndExtensionOfTheSourceFile) {
    struct Case {
        const WCHAR *path;
        const WCHAR *name;
        const WCHAR *message;
    };
    const Case cases[] = {
        {nullptr, TEXT(""), TEXT("5")},
        {TEXT(""), TEXT(""), TEXT("5")},
        {TEXT("d:\\a\\b\\unit.ext"), TEXT("unit.ext"), TEXT("5, (5), [unit.ext|7]")},
        {TEXT("/a.b/c/many.points.cpp"), TEXT("many.points.cpp"),
         TEXT("5, (5), [many.points.cpp|7]")},
        {TEXT(".\\cm_guid.cpp"), TEXT("cm_guid.cpp"), TEXT("5, (5), [cm_guid.cpp|7]")},
        {TEXT("d:\\folder\\"), TEXT(""), TEXT("5")},
    };
    for (const Case &c : cases) {
        const CException failure(5, c.path, 7);
        EXPECT_STREQ(narrow("%S", failure.GetFilename()), narrow("%S", c.name));
        EXPECT_EQ(failure.GetLineNumber(), 7);
        EXPECT_EQ(failure.GetErrorMsg(), TEXT("5"));
        EXPECT_EQ(failure.GetErrorMsgEx(), c.message);
    }
    // A part that is too long for the runtime leaves no half of a name.
    EXPECT_EQ(CException(5, std::u16string(256, u'n').c_str(), 7).GetFilename()[0], 0);
    EXPECT_EQ(CTimeException().GetErrorMsg(), TEXT("0"));
    EXPECT_EQ(CException().GetErrorCode(), 0);
}

TEST(SystemException, PutsCodeAndPositionIntoItsText) {
    const CSystemException failure(5, TEXT("x\\unit.cpp"), 12);
    EXPECT_EQ(failure.GetErrorMsg(), TEXT("Access is denied.\r\n, (5), [unit.cpp|12]"));
    EXPECT_EQ(failure.GetErrorMsgEx(), failure.GetErrorMsg());
    EXPECT_EQ(failure.GetErrorCode(), 5);
    EXPECT_EQ(failure.GetFilename()[0], 0);
    EXPECT_EQ(failure.GetLineNumber(), 0);

    EXPECT_EQ(CSystemExceptionImp(1060, nullptr, 0).GetErrorMsg(),
              TEXT("The specified service does not exist as an installed service.\r\n (1060)"));
    EXPECT_EQ(CSystemExceptionImp(5, TEXT(""), 3).GetErrorMsg(),
              TEXT("Access is denied.\r\n, (5), [|3]"));
    // No text: the failure of the lookup stands in front, and it is that of now, not of the raise.
    SetLastError(5);
    EXPECT_EQ(CSystemExceptionImp(424242, nullptr, 0).GetErrorMsg(), TEXT("(317, 424242)"));
    EXPECT_EQ(CSystemExceptionImp(-1, TEXT("u.c"), 3).GetErrorMsg(), TEXT("317, (-1), [u.c|3]"));
    // A text with an insert can't be had without its argument.
    EXPECT_EQ(CSystemExceptionImp(193, nullptr, 0).GetErrorMsg(), TEXT("(87, 193)"));

    SetLastError(1223);
    EXPECT_EQ(CSystemException::GetLastError(), 1223);
    EXPECT_EQ(CSystemExceptionImp::GetLastError(), 1223);
}

TEST(SystemException, CopiesOutliveEachOtherInAnyOrder) {
    auto first = std::make_unique<CSystemException>(2, TEXT("a.cpp"), 1);
    const OS::x_wstring text = first->GetErrorMsg();
    auto second = std::make_unique<CSystemException>(*first);
    CSystemException third(3, TEXT("b.cpp"), 2);
    third = *second;
    first.reset();
    EXPECT_EQ(second->GetErrorMsg(), text);
    second.reset();
    EXPECT_EQ(third.GetErrorMsg(), text);
    EXPECT_EQ(third.GetErrorCode(), 2);
    try {
        try {
            throw third;
        } catch (const CSystemException &caught) {
            throw CSystemException(caught);  // outlives the one it was copied from
        }
    } catch (const CException &failure) {
        EXPECT_EQ(failure.GetErrorMsg(), text);
        EXPECT_EQ(failure.GetErrorMsgEx(), text);
    }
}

}  // namespace
