#include "ostrel/platform/base/handle_table.h"

#include <memory>
#include <set>
#include <thread>

#include "ostrel/platform/handle.h"
#include "support/test.h"

namespace {

using Kind = ostrel_platform::HandleKind;

ostrel_platform::HandleTable &table = ostrel_platform::HandleTable::Instance();

TEST(HandleTable, TellsClosedAndForeignHandlesApart) {
    const auto object = std::make_shared<ostrel_platform::HandleObject>();
    const std::uintptr_t first = table.Open(Kind::kObject, object);
    EXPECT_EQ(table.Find(Kind::kFind, first), nullptr);
    EXPECT_FALSE(table.Close(Kind::kService, first));
    EXPECT_EQ(table.Find(Kind::kObject, first + 1), nullptr);
    // A call at work on the object keeps it.
    const std::shared_ptr<ostrel_platform::HandleObject> working = table.Find(Kind::kObject, first);
    EXPECT_TRUE(CloseHandle(reinterpret_cast<HANDLE>(first)));
    EXPECT_EQ(object.use_count(), 2);
    // The place is used again, the handle is not.
    std::set<std::uintptr_t> seen{0, first};
    for (int i = 0; i < 100; ++i) {
        const std::uintptr_t next = table.Open(Kind::kObject, object);
        EXPECT_TRUE(seen.insert(next).second);
        EXPECT_FALSE(table.Close(Kind::kObject, first));
        EXPECT_TRUE(table.Close(Kind::kObject, next));
    }
    EXPECT_EQ(object.use_count(), 2);
}

TEST(HandleTable, GivesTheShortcutOfAnOpenHandleOnly) {
    const auto object = std::make_shared<ostrel_platform::HandleObject>();
    int memory = 0;
    const std::uintptr_t handle = table.Open(Kind::kObject, object, {&memory, 7});
    EXPECT_EQ(table.FindShortcut(handle).memory, &memory);
    EXPECT_EQ(table.FindShortcut(handle).tag, 7u);
    for (const std::uintptr_t other :
         {std::uintptr_t{0}, ~std::uintptr_t{0}, handle + 1, handle + (std::uintptr_t{1} << 34),
          std::uintptr_t{0x3FFFFFFFC}}) {
        EXPECT_EQ(table.FindShortcut(other).memory, nullptr) << other;
    }
    EXPECT_TRUE(table.Close(Kind::kObject, handle));
    EXPECT_EQ(table.FindShortcut(handle).memory, nullptr);
    const std::uintptr_t next = table.Open(Kind::kObject, object);  // in the same place
    EXPECT_EQ(table.FindShortcut(handle).memory, nullptr);
    EXPECT_EQ(table.FindShortcut(next).memory, nullptr);
    EXPECT_TRUE(table.Close(Kind::kObject, next));
}

TEST(HandleTable, KeepsManyHandlesApart) {
    const auto object = std::make_shared<ostrel_platform::HandleObject>();
    std::vector<int> memory(1000);
    std::vector<std::uintptr_t> handles;
    for (int &place : memory) {
        handles.push_back(table.Open(Kind::kObject, object, {&place, 0}));
    }
    for (std::size_t i = 0; i < handles.size(); ++i) {
        EXPECT_EQ(table.FindShortcut(handles[i]).memory, &memory[i]);
        EXPECT_EQ(table.Find(Kind::kObject, handles[i]), object);
        EXPECT_TRUE(table.Close(Kind::kObject, handles[i]));
    }
}

TEST(HandleTable, ServesManyThreads) {
    const auto object = std::make_shared<ostrel_platform::HandleObject>();
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&object] {
            for (int round = 0; round < 1000; ++round) {
                const std::uintptr_t handle = table.Open(Kind::kFind, object);
                ASSERT_NE(table.Find(Kind::kFind, handle), nullptr);
                table.FindShortcut(handle);
                table.FindShortcut(4);  // the first place, which all use
                ASSERT_TRUE(table.Close(Kind::kFind, handle));
                ASSERT_FALSE(table.Close(Kind::kFind, handle));
            }
        });
    }
    threads.clear();
    EXPECT_EQ(object.use_count(), 1);
}

}  // namespace
