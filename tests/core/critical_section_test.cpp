#include "ostrel/core/critical_section.h"

#include <thread>

#include "support/test.h"

namespace {

TEST(CriticalSection, IsHeldForAScope) {
    OS::CCriticalSection_local lock;
    const auto is_free = [&lock] {
        bool entered = false;
        std::thread([&] {
            entered = lock.TryEnter();
            lock.Leave();
        }).join();
        return entered;
    };
    {
        const OS::CCriticalSection_local::CHolder outer(lock);
        { const OS::CCriticalSection_local::CHolder inner(lock); }
        EXPECT_FALSE(is_free());
        EXPECT_TRUE(lock.TryEnter());
        lock.Leave();
    }
    EXPECT_TRUE(is_free());
}

}  // namespace
