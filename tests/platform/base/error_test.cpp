#include "ostrel/platform/error.h"

#include <thread>

#include "support/test.h"

namespace {

TEST(Error, TheLastOneBelongsToTheThread) {
    SetLastError(5);
    std::thread([] { SetLastError(6); }).join();
    EXPECT_EQ(GetLastError(), 5u);
}

TEST(Error, FormatMessageGivesTheSystemsText) {
    const std::tuple<DWORD, DWORD, DWORD, DWORD, std::u16string> cases[] = {
        {0x1100, 0x80070005, 0x400, 0, u"Access is denied.\r\n"},
        {0x1300, 193, 0x400, 0, u"%1 is not a valid Win32 application.\r\n"},
        {0x1100, 5, 0x407, ERROR_RESOURCE_LANG_NOT_FOUND, u""}};
    WCHAR own[20];
    for (const auto &[flags, id, language, error, text] : cases) {
        SCOPED_TRACE(testing::Message() << flags << ' ' << id << ' ' << language);
        SetLastError(0);
        WCHAR *block = own;
        const auto out = reinterpret_cast<WCHAR *>(&block);
        EXPECT_EQ(FormatMessageW(flags, nullptr, id, language, out, 0, nullptr), text.size());
        EXPECT_EQ(GetLastError(), error);
        EXPECT_EQ(std::u16string(block != nullptr ? block : u""), text);
        LocalFree(block);
    }
    EXPECT_EQ(FormatMessageW(0x1000, nullptr, 5, 0, own, 20, nullptr), 19u);
    EXPECT_EQ(FormatMessageW(0x1000, nullptr, 5, 0, own, 19, nullptr), 0u);  // no room for the NUL
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

}  // namespace
