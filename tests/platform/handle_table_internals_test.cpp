#include "ostrel/platform/handle_table.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"

namespace {

using platform::HandleKind;
using platform::HandleObject;
using platform::HandleTable;

struct Counted : HandleObject {
    explicit Counted(std::atomic<int> *alive) : m_alive(alive) { ++*m_alive; }
    ~Counted() override { --*m_alive; }
    std::atomic<int> *m_alive;
};

TEST(HandleTable, TellsClosedAndForeignHandlesApart) {
    HandleTable &table = HandleTable::Instance();
    std::atomic<int> alive = 0;
    const std::uintptr_t first = table.Open(HandleKind::kObject, std::make_shared<Counted>(&alive));
    EXPECT_EQ(first % 4, 0u);
    EXPECT_NE(first, 0u);
    EXPECT_NE(table.Find(HandleKind::kObject, first), nullptr);

    EXPECT_EQ(table.Find(HandleKind::kFind, first), nullptr);  // of another kind
    EXPECT_FALSE(table.Close(HandleKind::kService, first));
    EXPECT_EQ(table.Find(HandleKind::kObject, first + 1), nullptr);
    EXPECT_EQ(alive, 1);

    // A call at work on the object keeps it.
    const std::shared_ptr<HandleObject> working = table.Find(HandleKind::kObject, first);
    EXPECT_TRUE(CloseHandle(reinterpret_cast<HANDLE>(first)));
    EXPECT_EQ(alive, 1);

    // The place is used again, the handle is not.
    std::set<std::uintptr_t> seen{first};
    for (int i = 0; i < 100; ++i) {
        const std::uintptr_t next =
            table.Open(HandleKind::kObject, std::make_shared<Counted>(&alive));
        EXPECT_TRUE(seen.insert(next).second);
        SetLastError(0);
        EXPECT_FALSE(table.Close(HandleKind::kObject, first));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
        EXPECT_TRUE(table.Close(HandleKind::kObject, next));
    }
    EXPECT_EQ(alive, 1);
}

TEST(HandleTable, ServesManyThreads) {
    std::atomic<int> alive = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&alive] {
            HandleTable &table = HandleTable::Instance();
            for (int i = 0; i < 1000; ++i) {
                const std::uintptr_t one =
                    table.Open(HandleKind::kObject, std::make_shared<Counted>(&alive));
                const std::uintptr_t two =
                    table.Open(HandleKind::kFind, std::make_shared<Counted>(&alive));
                ASSERT_NE(table.Find(HandleKind::kFind, two), nullptr);
                ASSERT_TRUE(table.Close(HandleKind::kObject, one));
                ASSERT_FALSE(table.Close(HandleKind::kObject, one));
                ASSERT_TRUE(table.Close(HandleKind::kFind, two));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(alive, 0);
}

}  // namespace
