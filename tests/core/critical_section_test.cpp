#include "ostrel/core/critical_section.h"

#include <thread>
#include <type_traits>

#include "support/test.h"

namespace {

using OS::CCriticalSection_local;
static_assert(!std::is_copy_constructible_v<CCriticalSection_local> &&
              !std::is_copy_assignable_v<CCriticalSection_local::CHolder>);

bool other_thread_enters(CCriticalSection_local *lock) {
    bool enters = false;
    std::thread([&] {
        if ((enters = lock->TryEnter(3))) {
            lock->Leave();
        }
    }).join();
    return enters;
}

TEST(CriticalSection, IsHeldForTheScopeAndRecursively) {
    CCriticalSection_local lock;
    {
        const CCriticalSection_local::CHolder held(lock);
        { const CCriticalSection_local::CHolder again(lock); }
        EXPECT_TRUE(lock.TryEnter(0));
        lock.Leave();
        EXPECT_FALSE(other_thread_enters(&lock));
    }
    EXPECT_TRUE(other_thread_enters(&lock));
}

}  // namespace
