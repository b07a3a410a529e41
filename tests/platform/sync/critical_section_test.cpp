#include <thread>
#include <vector>

#include "ostrel/platform/sync.h"
#include "support/test.h"

namespace {

// Runs `body` on a thread of its own, to its end.
template <class Body>
void elsewhere(Body body) {
    std::thread(body).join();
}

TEST(CriticalSection, LetsOneThreadIn) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&section, &count] {
            for (int round = 0; round < 10000; ++round) {
                EnterCriticalSection(&section);
                if (round % 2 == 0 && TryEnterCriticalSection(&section)) {
                    ++count;
                    LeaveCriticalSection(&section);
                } else {
                    ++count;
                }
                LeaveCriticalSection(&section);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 40000);
    DeleteCriticalSection(&section);
}

TEST(CriticalSection, IgnoresWrongUse) {
    CRITICAL_SECTION section = {};  // initialised, too
    LeaveCriticalSection(&section);
    EnterCriticalSection(&section);
    EnterCriticalSection(&section);
    elsewhere([&section] {
        LeaveCriticalSection(&section);
        DeleteCriticalSection(&section);
        EXPECT_FALSE(TryEnterCriticalSection(&section));
    });
    LeaveCriticalSection(&section);
    elsewhere([&section] { EXPECT_FALSE(TryEnterCriticalSection(&section)); });
    LeaveCriticalSection(&section);
    LeaveCriticalSection(&section);
    elsewhere([&section] {
        EXPECT_TRUE(TryEnterCriticalSection(&section));
        EXPECT_TRUE(TryEnterCriticalSection(&section));
        DeleteCriticalSection(&section);  // all of its own at once
    });
    elsewhere([&section] { EnterCriticalSection(&section); });  // and ends
    elsewhere([&section] { EXPECT_FALSE(TryEnterCriticalSection(&section)); });
    EXPECT_FALSE(TryEnterCriticalSection(&section));
}

}  // namespace
