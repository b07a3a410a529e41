// What happens when the heap gives no block of more than 1 MiB. The sanitizers' allocators can be
// told so; a build without one has nothing to test here.

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/core/acc_buffer.h"
#include "ostrel/platform/file.h"
#include "support/temp_dir.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OSTREL_LIMITED 1
#elif defined(__has_feature)
#define OSTREL_LIMITED (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define OSTREL_LIMITED 0
#endif

#if OSTREL_LIMITED

extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=1";
}
extern "C" const char *__tsan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=1";
}

namespace {

// 64 KiB that are no allocation.
unsigned char g_piece[65536];

TEST(LowMemory, LeavesABufferThatCannotGrowAsItWas) {
    g_piece[0] = 7;
    CAccBuffer buffer(65536);
    std::uint32_t used = 0;
    try {
        for (;; used += sizeof g_piece) {
            buffer.Append(g_piece, sizeof g_piece);
            ASSERT_LT(used, 64u << 20);
        }
    } catch (const std::bad_alloc &) {
    }
    EXPECT_EQ(buffer.BytesUsed(), used);
    EXPECT_GT(used, 512u * 1024);
    for (std::uint32_t at = 0; at < used; at += sizeof g_piece) {
        ASSERT_EQ(buffer.GetBuffer()[at], 7);
    }
    // A copy cannot be had of a larger capacity than the heap gives; the target keeps what it held.
    CAccBuffer target;
    target.Append(g_piece, 3);
    static unsigned char large[2 << 20];
    const CAccBuffer wrapper(large, sizeof large);
    EXPECT_THROW(target = wrapper, std::bad_alloc);
    EXPECT_EQ(target.BytesUsed(), 3u);
    EXPECT_EQ(target.GetBuffer()[0], 7);
}

class Counter : public CINIReader::CIterateEachLineCallback {
public:
    void Begin(int count) override { m_count = count; }
    void End() override {}
    bool operator()(int, const WCHAR *line) override {
        EXPECT_EQ(std::u16string_view(line).size(), 4001u);
        return true;
    }
    int m_count = 0;
};

TEST(LowMemory, ReaderKeepsTheLinesReadSoFarAndClosesTheFile) {
    const TempDir dir;
    std::string content;
    for (int i = 0; i < 200; ++i) {
        content = std::string(4000, 'x') + "\n";
        std::ofstream("file", std::ios::app) << content;
    }
    CINIReader reader;
    EXPECT_THROW(reader.Parse(TEXT("file"), TEXT("r")), std::bad_alloc);
    EXPECT_EQ(_flushall(), 3);
    Counter counter;
    reader.Enumerate(counter);
    EXPECT_GT(counter.m_count, 50);
    EXPECT_LT(counter.m_count, 200);
}

}  // namespace

#endif
