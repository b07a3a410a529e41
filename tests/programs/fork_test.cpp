// A child that a program with busy threads forks can go on.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "ostrel/platform/module.h"
#include "ostrel/platform/sync.h"
#include "ostrel/platform/system.h"
#include "ostrel/platform/time.h"
#include "support/file_calls.h"
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
    const HANDLE file =
        CreateFileW(TEXT("file"), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_TRUE(CloseHandle(file));
    const HANDLE event = CreateEventW(nullptr, FALSE, TRUE, nullptr);
    EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 1), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_TRUE(FreeLibrary(LoadLibraryExW(TEXT(".\\file"), nullptr, LOAD_LIBRARY_AS_DATAFILE)));
    DBG::DebugLogEx(nullptr, DBG::kLevelValue, TEXT(""), 1, TEXT("turn %d"), turn);
}

// Takes locks and, for the sake of a sanitizer's allocator, no memory.
void take_locks() {
    WCHAR unit;
    CloseHandle(nullptr);
    FreeLibrary(nullptr);
    static const HANDLE never = CreateEventW(nullptr, FALSE, FALSE, nullptr);
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
    std::thread others[6];  // more than cores, so that some are interrupted while they hold a lock
    for (std::thread &other : others) {
        other = std::thread([&ends] {
            while (!ends) {
                take_locks();
            }
        });
    }
    int status = 0;
    for (int i = 0; i < 40 && status == 0; ++i) {
        use_everything(i);
        const pid_t child = fork();
        if (child == 0) {
            alarm(10);  // ends a child that waits for a lock
            use_everything(i);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        EXPECT_EQ(waitpid(child, &status, 0), child);
    }
    ends = true;
    for (std::thread &other : others) {
        other.join();
    }
    EXPECT_EQ(status, 0);
}

}  // namespace
