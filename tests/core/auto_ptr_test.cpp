#include "ostrel/core/auto_ptr.h"

#include <memory>

#include "support/test.h"

namespace {

TEST(AutoPtr, HandsItsObjectOver) {
    // Each object holds a share, so that the count tells how many there are.
    using Share = std::shared_ptr<int>;
    const Share count = std::make_shared<int>();
    {
        const OS::CAutoPtr<Share> first(new Share(count));
        OS::CAutoPtr<Share> second(first), third(new Share(count));
        third = second;
        EXPECT_TRUE(!first && !second && count.use_count() == 2);
        const OS::CAutoPtr<Share> &self = third;
        third = self;
        third.reset(third.get());
        EXPECT_EQ(*third, count);
    }
    EXPECT_EQ(count.use_count(), 1);
}

}  // namespace
