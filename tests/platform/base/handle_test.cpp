#include "ostrel/platform/handle.h"

#include <cerrno>

#include "ostrel/platform/error.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/service.h"
#include "support/test.h"

namespace {

TEST(Handle, ClosingRefusesWhatIsNoHandle) {
    for (const std::intptr_t value : {0, -1, 5, 0x12345678}) {
        SCOPED_TRACE(value);
        EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(value)) ||
                     FindClose(reinterpret_cast<HANDLE>(value)) ||
                     CloseServiceHandle(reinterpret_cast<SC_HANDLE>(value)) ||
                     DisableThreadLibraryCalls(reinterpret_cast<HMODULE>(value)));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        EXPECT_EQ(_findclose(value), -1);
        EXPECT_EQ(errno, EINVAL);
    }
}

}  // namespace
