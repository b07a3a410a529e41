#include "ostrel/core/acc_buffer.h"

#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const unsigned char *bytes(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

std::string content(const CAccBuffer &buffer) {
    return std::string(reinterpret_cast<const char *>(buffer.GetBuffer()), buffer.BytesUsed());
}

void append(CAccBuffer *buffer, const std::string &text) {
    buffer->Append(bytes(text), static_cast<std::uint32_t>(text.size()));
}

// The capacity can be seen through ResetBuffer, which fills all of it, and through the next growth.
// Here: whether `count` more bytes fit where the block stands.
bool fits(CAccBuffer *buffer, std::uint32_t count) {
    const CAccBuffer before(*buffer);
    const unsigned char *const block = buffer->GetBuffer();
    append(buffer, std::string(count, 'f'));
    return buffer->GetBuffer() == block && !buffer->IsContentTheSame(before);
}

TEST(AccBuffer, StartsEmptyAndTakesNothing) {
    CAccBuffer buffer;
    EXPECT_EQ(buffer.BytesUsed(), 0u);
    EXPECT_EQ(buffer.GetBuffer(), nullptr);
    buffer.ResetBuffer();
    buffer.FreeBuffer();
    buffer.Append(nullptr, 0);
    EXPECT_EQ(buffer.GetBuffer(), nullptr);
    EXPECT_TRUE(buffer.IsContentTheSame(CAccBuffer(10)));
}

TEST(AccBuffer, GrowsByTheRule) {
    struct Case {
        std::uint32_t unit, first, room;  // bytes that still fit behind the first append
    };
    const Case cases[] = {
        {32768, 100, 32668},    // one unit
        {32768, 32767, 1},      //
        {32768, 32768, 32768},  // a multiple gets a unit more
        {10, 25, 5},            //
        {10, 30, 10},           //
        {0, 100, 32668},        // 0 stands for the default
    };
    for (const Case &c : cases) {
        CAccBuffer buffer(c.unit);
        append(&buffer, std::string(c.first, 'x'));
        EXPECT_TRUE(fits(&buffer, c.room)) << c.unit << " " << c.first;
        EXPECT_EQ(buffer.BytesUsed(), c.first + c.room);
    }
    // The sum starts from the capacity: 10 + 11 bytes give 30, of which 9 are used already.
    CAccBuffer buffer(10);
    append(&buffer, "123456789");
    append(&buffer, std::string(11, 'b'));
    EXPECT_TRUE(fits(&buffer, 10));
    EXPECT_EQ(content(buffer), "123456789" + std::string(11, 'b') + std::string(10, 'f'));
}

TEST(AccBuffer, AppendsItsOwnBytes) {
    CAccBuffer buffer(10);
    append(&buffer, "abcdefg");
    std::string expected = "abcdefg";
    for (int i = 0; i < 12; ++i) {  // fits now and then, and grows now and then
        buffer.Append(buffer.GetBuffer() + 2, buffer.BytesUsed() - 3);
        expected += expected.substr(2, expected.size() - 3);
    }
    EXPECT_EQ(content(buffer), expected);
}

TEST(AccBuffer, LeavesAWrappedBlockToItsOwner) {
    const std::string block = "12345";
    {
        CAccBuffer wrapper(bytes(block), 5);
        EXPECT_EQ(wrapper.GetBuffer(), bytes(block));
        const CAccBuffer copy(wrapper);
        EXPECT_NE(copy.GetBuffer(), bytes(block));
        EXPECT_TRUE(copy.IsContentTheSame(wrapper));
        append(&wrapper, "6");
        EXPECT_NE(wrapper.GetBuffer(), bytes(block));
        EXPECT_EQ(content(wrapper), "123456");
        EXPECT_TRUE(fits(&wrapper, 32768 - 6));
    }
    CAccBuffer wrapper(bytes(block), 5);
    wrapper.FreeBuffer();
    EXPECT_EQ(wrapper.GetBuffer(), nullptr);
    append(&wrapper, "again");
    EXPECT_EQ(content(wrapper), "again");
    EXPECT_EQ(block, "12345");
}

TEST(AccBuffer, AssignsContentButNotTheUnit) {
    CAccBuffer small(10);
    append(&small, "abc");
    CAccBuffer target;
    append(&target, "old");
    target = small;
    EXPECT_EQ(content(target), "abc");
    EXPECT_TRUE(fits(&target, 7));  // the source's capacity
    append(&target, "x");           // (10 + 1) / 32768 + 1 units
    EXPECT_TRUE(fits(&target, 32768 - 11));
    const CAccBuffer &self = target;
    target = self;
    EXPECT_EQ(target.BytesUsed(), 32768u);
    target = CAccBuffer();
    EXPECT_EQ(target.GetBuffer(), nullptr);
}

TEST(AccBuffer, ResetsToZeros) {
    CAccBuffer buffer(16);
    append(&buffer, "abc");
    unsigned char *const block = buffer.GetBuffer();
    buffer.ResetBuffer();
    EXPECT_EQ(buffer.BytesUsed(), 0u);
    EXPECT_EQ(buffer.GetBuffer(), block);
    EXPECT_EQ(std::accumulate(block, block + 16, 0), 0);
    CAccBuffer other;
    EXPECT_TRUE(buffer.IsContentTheSame(other));
    append(&buffer, "abc");
    append(&other, "abd");
    EXPECT_FALSE(buffer.IsContentTheSame(other));
    append(&other, "d");
    EXPECT_FALSE(buffer.IsContentTheSame(other));
}

TEST(AccBuffer, KeepsItsContentWhenTheSizeIsTooLarge) {
    CAccBuffer buffer;
    append(&buffer, "abc");
    EXPECT_THROW(buffer.Append(buffer.GetBuffer(), 0xFFFFFFF0), std::length_error);
    EXPECT_EQ(content(buffer), "abc");
}

}  // namespace
