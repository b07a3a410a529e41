#include "ostrel/core/critical_section.h"

#include "support/signals.h"

namespace {

using OS::CCriticalSection_local;

TEST(CriticalSection, IsHeldForTheScopeAndRecursively) {
    CCriticalSection_local lock;
    const auto other_enters = [&] {
        bool enters = false;
        on_threads(1, [&](std::size_t) { enters = lock.TryEnter(3); });
        return enters;
    };
    {
        const CCriticalSection_local::CHolder held(lock);
        { const CCriticalSection_local::CHolder again(lock); }
        EXPECT_FALSE(other_enters());
    }
    EXPECT_TRUE(other_enters());
}

}  // namespace
