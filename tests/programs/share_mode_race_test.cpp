// Of opens or deletions of one moment that do not go together one wins, also when two threads take
// each step at the same time.

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdarg>
#include <functional>
#include <optional>
#include <thread>

#include "support/file_calls.h"

namespace {

std::atomic<unsigned> g_arrived{0};

// Waits for the other thread, for some milliseconds at most: it may have been refused already.
void meet() {
    constexpr std::chrono::milliseconds kPatience{3};
    const auto until = std::chrono::steady_clock::now() + kPatience;
    const unsigned mine = g_arrived.fetch_add(1);
    while (g_arrived.load() <= (mine | 1) && std::chrono::steady_clock::now() < until) {
        std::this_thread::yield();
    }
    if (g_arrived.load() <= (mine | 1)) {
        g_arrived.fetch_add(1);  // in the place of the one who did not come
    }
}

bool is_about_sharing(int command, const struct flock *lock) {
    constexpr off_t kFirst = 0x7000000000000000, kEnd = kFirst + 64;
    return (command == F_OFD_SETLK || command == F_OFD_GETLK) && lock->l_start >= kFirst &&
           lock->l_start < kEnd;
}

}  // namespace

extern "C" int fcntl(int file, int command, ...) {
    std::va_list arguments;
    va_start(arguments, command);
    void *const argument = va_arg(arguments, void *);
    va_end(arguments);
    const bool meets = is_about_sharing(command, static_cast<const struct flock *>(argument));
    const int result = static_cast<int>(syscall(SYS_fcntl, file, command, argument));
    if (meets) {
        meet();
    }
    return result;
}

namespace {

// Runs `act` on two threads at the same moment. Returns for how many it succeeded.
int winners(const std::function<bool()> &act) {
    g_arrived = 0;
    std::atomic<int> won{0};
    std::thread other([&] { won += act(); });
    won += act();
    other.join();
    return won;
}

TEST(ShareModeRace, LetsOneOpenIn) {
    const Planted dir("file=x");
    for (const DWORD access : {GENERIC_READ, GENERIC_WRITE, GENERIC_READ | GENERIC_WRITE}) {
        std::optional<Opened> files[2];  // kept open
        std::atomic<int> count{0};
        const auto act = [&] { return bool{files[count++].emplace(TEXT("file"), access, 0)}; };
        EXPECT_EQ(winners(act), 1) << access;
    }
}

TEST(ShareModeRace, LetsOneDeletionDelete) {
    const Planted dir("file=x");
    EXPECT_EQ(winners([] { return DeleteFileW(TEXT("file")) != FALSE; }), 1);
    EXPECT_EQ(tree(), "");
}

}  // namespace
