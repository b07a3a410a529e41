// Many threads on the same objects. A wake-up that is lost leaves a test hanging, and a signal that
// ends two waits lets two threads at what one owns, which also a race detector sees.

#include <algorithm>
#include <array>
#include <atomic>
#include <random>

#include "ostrel/platform/error.h"
#include "support/signals.h"

namespace {

TEST(WaitThreads, PassATokenRoundWithoutLosingIt) {
    constexpr int kRounds = 3000;
    const Handles events{event(false, true), event(false), event(false), event(false)};
    const Handles never{event(true)};
    int turns = 0;  // of whoever has the token
    on_threads(events.size(), [&](std::size_t at) {
        for (int round = 0; round < kRounds; ++round) {
            // With and without a time-out that is bound to pass now and then.
            DWORD result = WAIT_TIMEOUT;
            while (result == WAIT_TIMEOUT) {
                result = round % 2 == 0 ? wait_on({never[0], events[at]}, false, 1)
                                        : WaitForSingleObject(events[at], INFINITE) + 1;
            }
            ASSERT_EQ(result, 1u);
            ++turns;
            SetEvent(events[(at + 1) % events.size()]);
        }
    });
    EXPECT_EQ(turns, 4 * kRounds);
}

// Each thread eats with two forks that it takes in one wait. Were one taken before the other, all
// would wait with one in hand. Thieves take single forks and give them back.
TEST(WaitThreads, ForAllAreAtomicBesideThieves) {
    constexpr std::size_t kForks = 5;
    constexpr int kMeals = 1500;
    Handles forks;
    for (std::size_t i = 0; i < kForks; ++i) {
        forks.push_back(i % 2 == 0 ? event(false, true) : semaphore(1, 1));
    }
    std::array<int, kForks> uses{};
    const auto use = [&](std::size_t fork) {
        ++uses[fork];
        ASSERT_TRUE(fork % 2 == 0 ? SetEvent(forks[fork])
                                  : ReleaseSemaphore(forks[fork], 1, nullptr));
    };
    std::atomic<int> eating{kForks};
    on_threads(kForks + 2, [&](std::size_t left) {
        for (std::size_t fork = 0; left >= kForks && eating > 0; fork = (fork + 1) % kForks) {
            if (WaitForSingleObject(forks[fork], left == kForks ? 0 : 1) == WAIT_OBJECT_0) {
                use(fork);
            }
        }
        const std::size_t right = (left + 1) % kForks;
        for (int meal = 0; left < kForks && meal < kMeals; ++meal) {
            ASSERT_EQ(wait_on({forks[left], forks[right]}, true, INFINITE), WAIT_OBJECT_0);
            use(left);
            use(right);
        }
        eating -= left < kForks ? 1 : 0;
    });
    EXPECT_EQ(test_each(forks), "11111");
    EXPECT_GE(*std::min_element(uses.begin(), uses.end()), 2 * kMeals);
}

TEST(WaitThreads, MeetHandlesThatOthersClose) {
    std::array<std::atomic<HANDLE>, 3> handles{event(false), event(false), event(false)};
    std::atomic<bool> ends{false};
    on_threads(6, [&](std::size_t i) {
        std::mt19937 random(static_cast<unsigned>(i));
        for (int round = 0; i < 2 ? round < 3000 : !ends; ++round) {
            std::atomic<HANDLE> &handle = handles[random() % 3];
            if (i < 2) {
                CloseHandle(handle.exchange(event(i == 1)));
            } else if (i == 2) {
                SetEvent(handle);
                ResetEvent(handle);
                SetEvent(handle);
            } else {
                const DWORD result = i == 3
                                         ? WaitForSingleObject(handle, 1)
                                         : wait_on({handles[0], handles[1], handles[2]}, i == 5, 1);
                ASSERT_TRUE(result < 3 || result == WAIT_TIMEOUT ||
                            (result == WAIT_FAILED && GetLastError() == ERROR_INVALID_HANDLE));
            }
        }
        ends = ends || i < 2;
    });
    const Handles closed{handles[0], handles[1], handles[2]};
}

}  // namespace
