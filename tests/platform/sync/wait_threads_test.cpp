// Many threads on the same objects. A wake-up that is lost leaves a test hanging, and a signal that
// ends two waits lets two threads at what one owns, which also a race detector sees.

#include <algorithm>
#include <array>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"
#include "support/test.h"

namespace {

// Events or semaphores, closed with the object.
struct Handles : std::vector<HANDLE> {
    ~Handles() {
        for (const HANDLE handle : *this) {
            CloseHandle(handle);
        }
    }
};

HANDLE event(bool manual, bool initial = false) {
    return CreateEventW(nullptr, manual, initial, nullptr);
}

// Runs body(0), body(1), ... on threads of their own, to their end.
template <class Body>
void on_threads(int count, Body body) {
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(body, i);
    }
}

TEST(WaitThreads, PassATokenRoundWithoutLosingIt) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 3000;
    Handles events;
    for (int i = 0; i < kThreads; ++i) {
        events.push_back(event(false, i == 0));
    }
    const HANDLE never = event(true);
    int turns = 0;  // of whoever has the token
    on_threads(kThreads, [&](int own) {
        const auto at = static_cast<std::size_t>(own);
        for (int round = 0; round < kRounds; ++round) {
            const HANDLE pair[] = {never, events[at]};
            // With and without a time-out that is bound to pass now and then.
            DWORD result = WAIT_TIMEOUT;
            while (result == WAIT_TIMEOUT) {
                result = round % 2 == 0 ? WaitForMultipleObjects(2, pair, FALSE, 1)
                                        : WaitForSingleObject(events[at], INFINITE) + 1;
            }
            ASSERT_EQ(result, 1u);
            ++turns;
            SetEvent(events[(at + 1) % kThreads]);
        }
    });
    EXPECT_EQ(turns, kThreads * kRounds);
    CloseHandle(never);
}

// Each thread eats with two forks that it takes in one wait. Were one taken before the other, all
// would wait with one in hand. Thieves take single forks and give them back.
TEST(WaitThreads, ForAllAreAtomicBesideThieves) {
    constexpr std::size_t kForks = 5;
    constexpr int kMeals = 1500;
    Handles forks;
    for (std::size_t i = 0; i < kForks; ++i) {
        forks.push_back(i % 2 == 0 ? event(false, true) : CreateSemaphoreW(nullptr, 1, 1, nullptr));
    }
    std::array<int, kForks> uses{};
    const auto put_back = [&](std::size_t fork) {
        if (fork % 2 == 0) {
            SetEvent(forks[fork]);
        } else {
            LONG previous = 9;
            ASSERT_TRUE(ReleaseSemaphore(forks[fork], 1, &previous));
            ASSERT_EQ(previous, 0);
        }
    };
    std::atomic<int> eating{kForks};
    on_threads(kForks + 2, [&](int i) {
        if (i >= static_cast<int>(kForks)) {  // a thief
            for (std::size_t fork = 0; eating > 0; fork = (fork + 1) % kForks) {
                if (WaitForSingleObject(forks[fork], i == kForks ? 0 : 1) == WAIT_OBJECT_0) {
                    ++uses[fork];
                    put_back(fork);
                }
            }
            return;
        }
        const auto left = static_cast<std::size_t>(i);
        const std::size_t right = (left + 1) % kForks;
        const HANDLE pair[] = {forks[left], forks[right]};
        for (int meal = 0; meal < kMeals; ++meal) {
            ASSERT_EQ(WaitForMultipleObjects(2, pair, TRUE, INFINITE), WAIT_OBJECT_0);
            ++uses[left];
            ++uses[right];
            put_back(left);
            put_back(right);
        }
        --eating;
    });
    for (const HANDLE fork : forks) {
        EXPECT_EQ(WaitForSingleObject(fork, 0), WAIT_OBJECT_0);
    }
    EXPECT_GE(*std::min_element(uses.begin(), uses.end()), 2 * kMeals);
}

TEST(WaitThreads, TakeEachReleaseOfOverlappingSetsOnce) {
    constexpr int kThreads = 4;
    constexpr int kReleases = 2000;  // of each producer
    Handles handles;
    for (int i = 0; i < 63; ++i) {
        handles.push_back(CreateSemaphoreW(nullptr, 0, 2 * kReleases, nullptr));
    }
    const HANDLE stop = event(true);
    std::atomic<int> taken{0};
    std::atomic<int> producers{2};
    on_threads(kThreads + 2, [&](int i) {
        std::mt19937 random(static_cast<unsigned>(i));
        if (i >= kThreads) {
            for (int release = 0; release < kReleases; ++release) {
                ASSERT_TRUE(ReleaseSemaphore(handles[random() % handles.size()], 1, nullptr));
            }
            if (--producers == 0) {
                SetEvent(stop);
            }
            return;
        }
        // Half or all of the semaphores in an order of this thread, and the end.
        std::vector<HANDLE> own(handles);
        std::shuffle(own.begin(), own.end(), random);
        own.resize(i % 2 == 0 ? 63 : 31);
        own.push_back(stop);
        const auto count = static_cast<DWORD>(own.size());
        for (;;) {
            const DWORD result = WaitForMultipleObjects(count, own.data(), FALSE, INFINITE);
            ASSERT_LT(result, count);
            if (result == count - 1) {
                return;  // the lowest index: nothing was left
            }
            ++taken;
        }
    });
    EXPECT_EQ(taken, 2 * kReleases);
    CloseHandle(stop);
}

TEST(WaitThreads, NeverReleaseASemaphoreAboveItsMaximum) {
    const HANDLE semaphore = CreateSemaphoreW(nullptr, 0, 2, nullptr);
    std::atomic<int> count{0};
    std::atomic<int> producers{2};
    on_threads(4, [&](int i) {
        const LONG release = 1 + i / 2;
        for (int round = 0; i % 2 == 0 && round < 5000; ++round) {
            LONG previous = 0;
            if (ReleaseSemaphore(semaphore, release, &previous)) {
                ASSERT_LE(previous + release, 2);
                count += release;
            } else {
                ASSERT_EQ(GetLastError(), ERROR_TOO_MANY_POSTS);
            }
        }
        producers -= i % 2 == 0 ? 1 : 0;
        while (i % 2 == 1 && producers > 0) {
            if (WaitForSingleObject(semaphore, static_cast<DWORD>(i / 2)) == WAIT_OBJECT_0) {
                --count;
            }
        }
    });
    int left = 0;
    while (WaitForSingleObject(semaphore, 0) == WAIT_OBJECT_0) {
        ++left;
    }
    EXPECT_EQ(left, count);
    CloseHandle(semaphore);
}

TEST(WaitThreads, MeetHandlesThatOthersClose) {
    constexpr std::size_t kHandles = 3;
    std::array<std::atomic<HANDLE>, kHandles> handles;
    for (auto &handle : handles) {
        handle = event(false);
    }
    std::atomic<bool> ends{false};
    on_threads(6, [&](int i) {
        std::mt19937 random(static_cast<unsigned>(i));
        for (int round = 0; i < 2 ? round < 3000 : !ends; ++round) {
            std::atomic<HANDLE> &handle = handles[random() % kHandles];
            const HANDLE all[] = {handles[0], handles[1], handles[2]};
            if (i < 2) {
                CloseHandle(handle.exchange(i == 0 ? event(false) : event(true)));
            } else if (i == 2) {
                SetEvent(handle);
                ResetEvent(handle);
                SetEvent(handle);
            } else {
                const DWORD result = i == 3   ? WaitForSingleObject(handle, 1)
                                     : i == 4 ? WaitForMultipleObjects(3, all, FALSE, 1)
                                              : WaitForMultipleObjects(3, all, TRUE, 1);
                ASSERT_TRUE(result < 3 || result == WAIT_TIMEOUT ||
                            (result == WAIT_FAILED && GetLastError() == ERROR_INVALID_HANDLE));
            }
        }
        ends = ends || i < 2;
    });
    for (const auto &handle : handles) {
        EXPECT_TRUE(CloseHandle(handle));
    }
}

}  // namespace
