#include "support/signals.h"

namespace {

TEST(CriticalSection, LetsOneThreadIn) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    int count = 0;
    on_threads(4, [&](std::size_t) {
        for (int round = 0; round < 10000; ++round) {
            EnterCriticalSection(&section);
            const bool twice = round % 2 == 0 && TryEnterCriticalSection(&section);
            ++count;
            if (twice) {
                LeaveCriticalSection(&section);
            }
            LeaveCriticalSection(&section);
        }
    });
    EXPECT_EQ(count, 40000);
}

TEST(CriticalSection, IgnoresWrongUse) {
    CRITICAL_SECTION section = {};  // initialised, too
    LeaveCriticalSection(&section);
    EnterCriticalSection(&section);
    EnterCriticalSection(&section);
    const auto other_tries = [&] {
        bool entered = false;
        on_threads(1, [&](std::size_t) {
            LeaveCriticalSection(&section);
            DeleteCriticalSection(&section);
            entered = TryEnterCriticalSection(&section) != FALSE;
        });
        return entered;
    };
    EXPECT_FALSE(other_tries());
    DeleteCriticalSection(&section);  // leaves as often as it has entered
    EXPECT_TRUE(other_tries());       // and that thread ends
    EXPECT_FALSE(TryEnterCriticalSection(&section));
}

}  // namespace
