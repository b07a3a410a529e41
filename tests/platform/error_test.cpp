#include "ostrel/platform/error.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "ostrel/platform/find.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/service.h"

namespace {

TEST(LastError, BelongsToTheThread) {
    SetLastError(5);
    DWORD other = 99;
    std::thread([&other] {
        other = GetLastError();
        SetLastError(6);
    }).join();
    EXPECT_EQ(other, ERROR_SUCCESS);
    EXPECT_EQ(GetLastError(), 5u);
}

TEST(FormatMessage, GivesTheSystemsText) {
    struct Case {
        DWORD flags, id, language, error;
        std::u16string text;
    };
    const Case cases[] = {
        {0x1100, 5, 0x400, 0, u"Access is denied.\r\n"},
        {0x1100, 0, 0, 0, u"The operation completed successfully.\r\n"},
        {0x1000, 1824, 0x409, 0,
         u"A UUID that is valid only on this computer has been allocated.\r\n"},
        {0x1100, 0x80070005, 0x400, 0, u"Access is denied.\r\n"},
        {0x1300, 193, 0x400, 0, u"%1 is not a valid Win32 application.\r\n"},
        {0x1100, 193, 0x400, ERROR_INVALID_PARAMETER, u""},
        {0x1100, 7, 0x400, ERROR_MR_MID_NOT_FOUND, u""},
        {0x1100, 0xFFFFFFFF, 0x400, ERROR_MR_MID_NOT_FOUND, u""},
        {0x1100, 5, 0x407, ERROR_RESOURCE_LANG_NOT_FOUND, u""},
        {0x1500, 5, 0x400, ERROR_INVALID_PARAMETER, u""},  // a text of the caller's: not offered
    };
    for (const Case &c : cases) {
        SetLastError(0);
        WCHAR own[200] = {};
        WCHAR *block = own;
        const bool allocates = (c.flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
        WCHAR *const buffer = allocates ? reinterpret_cast<WCHAR *>(&block) : own;
        const DWORD length = FormatMessageW(c.flags, nullptr, c.id, c.language, buffer,
                                            allocates ? 0 : 200, nullptr);
        EXPECT_EQ(length, c.text.size()) << c.id;
        EXPECT_EQ(GetLastError(), c.error) << c.id;
        if (allocates) {
            EXPECT_EQ(block != nullptr, length != 0);
        }
        if (length != 0) {
            EXPECT_EQ(std::u16string(block), c.text);
        }
        if (allocates) {
            EXPECT_EQ(LocalFree(block), nullptr);
        }
    }
    WCHAR small[19] = {u'?'};  // "Access is denied." CR LF has 19 characters
    EXPECT_EQ(FormatMessageW(0x1000, nullptr, 5, 0, small, 19, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(FormatMessageW(0x1000, nullptr, 5, 0, nullptr, 19, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(CloseHandles, RefuseWhatIsNoHandle) {
    for (const std::intptr_t value : {0, -1, 4, 5, 0x12345678}) {
        SetLastError(0);
        EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(value)));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        EXPECT_FALSE(FindClose(reinterpret_cast<HANDLE>(value)));
        EXPECT_FALSE(CloseServiceHandle(reinterpret_cast<SC_HANDLE>(value)));
        EXPECT_FALSE(FreeLibrary(reinterpret_cast<HMODULE>(value)));
        errno = 0;
        EXPECT_EQ(_findclose(value), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_FALSE(DisableThreadLibraryCalls(reinterpret_cast<HMODULE>(value)));
    }
}

}  // namespace
