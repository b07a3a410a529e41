#include "ostrel/core/auto_ptr.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Counted {
    explicit Counted(int *alive) : m_alive(alive) { ++*m_alive; }
    ~Counted() { --*m_alive; }
    Counted(const Counted &) = delete;
    Counted &operator=(const Counted &) = delete;
    int *m_alive;
};

TEST(AutoPtr, HandsItsObjectOver) {
    int alive = 0;
    {
        const OS::CAutoPtr<Counted> first(new Counted(&alive));
        OS::CAutoPtr<Counted> second(first);
        EXPECT_FALSE(first);
        OS::CAutoPtr<Counted> third(new Counted(&alive));
        third = second;
        EXPECT_EQ(alive, 1);
        EXPECT_FALSE(second);
        const OS::CAutoPtr<Counted> &self = third;
        third = self;
        third.reset(third.get());
        EXPECT_EQ(alive, 1);
        EXPECT_EQ(third->m_alive, &alive);

        std::vector<OS::CAutoPtr<Counted>> many;
        for (int i = 0; i < 20; ++i) {
            many.push_back(OS::CAutoPtr<Counted>(new Counted(&alive)));
        }
        const std::vector<OS::CAutoPtr<Counted>> taken = many;
        many.clear();
        EXPECT_EQ(alive, 21);
        EXPECT_TRUE(taken.front());
    }
    EXPECT_EQ(alive, 0);
}

}  // namespace
