#include "ostrel/core/acc_buffer.h"

#include <malloc.h>

#include <stdexcept>

#include "support/test.h"

namespace {

std::string content(const CAccBuffer &buffer) {
    return std::string(reinterpret_cast<const char *>(buffer.GetBuffer()), buffer.BytesUsed());
}

void append(CAccBuffer *buffer, const std::string &text) {
    buffer->Append(reinterpret_cast<const unsigned char *>(text.data()),
                   static_cast<std::uint32_t>(text.size()));
}

// The heap knows the size of a block, to a few bytes.
bool holds(const CAccBuffer &buffer, std::size_t capacity) {
    const std::size_t size = malloc_usable_size(buffer.GetBuffer());
    return size >= capacity && size < capacity + 24;
}

TEST(AccBuffer, GrowsByTheRule) {
    const std::uint32_t cases[][4] = {
        {32768, 32700, 68, 32768}, {0, 32768, 0, 65536}, {900, 100, 1000, 2700}};
    for (const auto &[unit, first, second, capacity] : cases) {
        CAccBuffer buffer(unit);
        append(&buffer, std::string(first, 'x'));
        append(&buffer, std::string(second, 'y'));
        const std::string expected = std::string(first, 'x') + std::string(second, 'y');
        SCOPED_TRACE(PrintToString(std::tuple(unit, first, second)));
        EXPECT_TRUE(holds(buffer, capacity));
        EXPECT_THROW(buffer.Append(buffer.GetBuffer(), 0xFFFFFFF0), std::length_error);
        // Its own bytes: they fit now and then, and the block grows now and then.
        buffer.Append(buffer.GetBuffer() + 9, buffer.BytesUsed() - 9);
        EXPECT_EQ(content(buffer), expected + expected.substr(9));
    }
}

TEST(AccBuffer, LeavesAWrappedBlockToItsOwner) {
    const unsigned char block[] = {'1', '2', '3', '4', '5', 0};
    CAccBuffer wrapper(block, 5), freed(block, 5);
    const CAccBuffer copy(wrapper);
    EXPECT_TRUE(wrapper.GetBuffer() == block && copy.GetBuffer() != block);
    // Room for more than is there, of which a part is used.
    *wrapper.Prepare(100) = '6';
    wrapper.Commit(1);
    EXPECT_TRUE(holds(wrapper, 32768));
    freed.FreeBuffer();
    append(&freed, "again");
    EXPECT_EQ(block[5], 0);
    EXPECT_EQ(content(wrapper) + content(freed) + content(copy), "123456again12345");
}

TEST(AccBuffer, AssignsContentButNotTheUnit) {
    CAccBuffer small(100), target;
    append(&small, "abc");
    append(&target, "old");
    target = small;
    EXPECT_TRUE(holds(target, 100));
    append(&target, std::string(98, 'd'));
    EXPECT_TRUE(holds(target, 32768));
    const CAccBuffer &self = target;
    target = self;
    EXPECT_EQ(content(target), "abc" + std::string(98, 'd'));
}

TEST(AccBuffer, ResetsToZerosAndCompares) {
    CAccBuffer buffer(16), other;
    buffer.ResetBuffer();
    EXPECT_TRUE(buffer.GetBuffer() == nullptr && buffer.IsContentTheSame(other));
    append(&buffer, "abc");
    buffer.ResetBuffer();
    EXPECT_EQ(std::string(buffer.GetBuffer(), buffer.GetBuffer() + 16), std::string(16, '\0'));
    EXPECT_TRUE(buffer.IsContentTheSame(other));
    append(&buffer, "abc");
    for (const char *text : {"ab", "d"}) {
        append(&other, text);
        EXPECT_FALSE(other.IsContentTheSame(buffer)) << text;
    }
}

}  // namespace
