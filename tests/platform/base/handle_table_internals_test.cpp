#include "ostrel/platform/base/handle_table.h"

#include <set>

#include "support/signals.h"

namespace {

using Kind = ostrel_platform::HandleKind;
using Object = ostrel_platform::HandleObject;

ostrel_platform::HandleTable &table = ostrel_platform::HandleTable::Instance();

TEST(HandleTable, TellsClosedAndForeignHandlesApart) {
    const auto object = std::make_shared<Object>();
    int memory = 0;
    const std::uintptr_t first = table.Open(Kind::kObject, object, {&memory, 7});
    EXPECT_EQ(table.Find(Kind::kFind, first), nullptr);
    EXPECT_FALSE(table.Close(Kind::kService, first));
    EXPECT_EQ(table.Find(Kind::kObject, first + 1), nullptr);
    EXPECT_EQ(table.FindShortcut(first).memory, &memory);
    EXPECT_EQ(table.FindShortcut(first).tag, 7u);
    for (const std::uintptr_t other :
         {std::uintptr_t{0}, ~std::uintptr_t{0}, first + 1, first + (std::uintptr_t{1} << 34),
          std::uintptr_t{0x3FFFFFFFC}}) {
        EXPECT_EQ(table.FindShortcut(other).memory, nullptr) << other;
    }
    // A call at work on the object keeps it.
    const std::shared_ptr<Object> working = table.Find(Kind::kObject, first);
    EXPECT_TRUE(CloseHandle(reinterpret_cast<HANDLE>(first)));
    EXPECT_EQ(table.FindShortcut(first).memory, nullptr);
    EXPECT_EQ(object.use_count(), 2);
    // The place is used again, the handle is not.
    std::set<std::uintptr_t> seen{0, first};
    for (int i = 0; i < 100; ++i) {
        const std::uintptr_t next = table.Open(Kind::kObject, object);
        EXPECT_TRUE(seen.insert(next).second);
        EXPECT_EQ(table.FindShortcut(first).memory, nullptr);
        EXPECT_FALSE(table.Close(Kind::kObject, first));
        EXPECT_TRUE(table.Close(Kind::kObject, next));
    }
    EXPECT_EQ(object.use_count(), 2);
}

TEST(HandleTable, ServesManyThreadsWithManyHandles) {
    const auto object = std::make_shared<Object>();
    on_threads(4, [&](std::size_t) {
        std::vector<int> memory(1000);
        std::vector<std::uintptr_t> handles;
        for (int &place : memory) {
            handles.push_back(table.Open(Kind::kFind, object, {&place, 0}));
            table.FindShortcut(4);  // the first place, which all use
        }
        for (std::size_t i = 0; i < handles.size(); ++i) {
            ASSERT_EQ(table.FindShortcut(handles[i]).memory, &memory[i]);
            ASSERT_EQ(table.Find(Kind::kFind, handles[i]), object);
            ASSERT_TRUE(table.Close(Kind::kFind, handles[i]));
            ASSERT_FALSE(table.Close(Kind::kFind, handles[i]));
        }
    });
    EXPECT_EQ(object.use_count(), 1);
}

}  // namespace
