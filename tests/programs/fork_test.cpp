// A child that a program with busy threads forks can go on.

#include <atomic>

#include "ostrel/platform/module.h"
#include "ostrel/platform/system.h"
#include "ostrel/platform/time.h"
#include "support/child.h"
#include "support/file_calls.h"
#include "support/signals.h"
#include "wexlog/wexlog.h"

namespace {

// What takes the locks of the layer, one after the other.
void use_everything(int turn) {
    _putenv_s("TZ", turn % 2 == 0 ? "Europe/Berlin" : "America/New_York");
    EXPECT_NE(_wgetenv(TEXT("TZ")), nullptr);
    const std::int64_t now = _time64(nullptr);
    WCHAR text[100];
    EXPECT_NE(wcsftime(text, 100, TEXT("%x"), _localtime64(&now)), 0u);
    std::FILE *const stream = _wfopen(TEXT("file"), TEXT("r"));
    EXPECT_NE(stream, nullptr);
    std::fclose(stream);
    EXPECT_TRUE(Opened(TEXT("file"), GENERIC_READ));
    const Handles signalled{event(false, true)};
    EXPECT_EQ(test_each(signalled), "1");
    EXPECT_EQ(WaitForSingleObject(signalled[0], 1), WAIT_TIMEOUT);
    EXPECT_TRUE(FreeLibrary(LoadLibraryExW(TEXT(".\\file"), nullptr, LOAD_LIBRARY_AS_DATAFILE)));
    DBG::DebugLogEx(nullptr, DBG::kLevelValue, TEXT(""), 1, TEXT("turn %d"), turn);
}

// Takes locks and, for the sake of a sanitizer's allocator, no memory.
void take_locks() {
    WCHAR unit;
    CloseHandle(nullptr);
    FreeLibrary(nullptr);
    static const HANDLE never = event(false);
    const HANDLE pair[] = {never, never};
    WaitForMultipleObjects(2, pair, FALSE, 0);
    _putenv_s("NONE", "");
    fgetws(&unit, 1, stdin);
    DBG::DebugLogEx(nullptr, DBG::kLevelValue, TEXT(""), 1, TEXT("x"));
}

TEST(Fork, LeavesTheChildEveryLock) {
    const Planted dir("file=x");
    DBG::AddSink([](const DBG::Line &) {});
    std::atomic<bool> ends{false};
    // More than cores, so that some are interrupted while they hold a lock.
    std::thread others([&ends] {
        on_threads(6, [&ends](std::size_t) {
            while (!ends) {
                take_locks();
            }
        });
    });
    int code = 0;
    for (int i = 0; i < 40 && code == 0; ++i) {
        use_everything(i);
        code = exit_of_child([i] {
            alarm(10);  // ends a child that waits for a lock
            use_everything(i);
            return testing::Test::HasFailure() ? 1 : 0;
        });
    }
    ends = true;
    others.join();
    EXPECT_EQ(code, 0);
}

}  // namespace
