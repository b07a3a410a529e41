// What happens when the heap gives no block of more than 1 MiB. AddressSanitizer's can be told
// so; a build without it has nothing to test here.

#include <new>

#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/platform/stream.h"
#include "support/temp_dir.h"
#include "support/test.h"

#if defined(__has_feature)
#define OSTREL_LIMITED __has_feature(address_sanitizer)
#elif defined(__SANITIZE_ADDRESS__)
#define OSTREL_LIMITED 1
#endif

#if OSTREL_LIMITED

extern "C" const char *__asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=1";
}

namespace {

TEST(LowMemory, LeavesABufferThatCannotGrowAsItWas) {
    static unsigned char piece[65536] = {7}, large[2 << 20];
    CAccBuffer buffer(piece, sizeof piece), target(piece, 3);
    EXPECT_THROW(buffer.Append(large, sizeof large), std::bad_alloc);
    buffer.Append(piece, sizeof piece);
    EXPECT_EQ(buffer.BytesUsed(), 2 * sizeof piece);
    EXPECT_EQ(buffer.GetBuffer()[0] + buffer.GetBuffer()[sizeof piece], 14);
    // A copy needs the source's capacity; the target keeps what it held.
    EXPECT_THROW(target = CAccBuffer(large, sizeof large), std::bad_alloc);
    EXPECT_TRUE(target.IsContentTheSame(CAccBuffer(piece, 3)));
}

class Counter : public CINIReader::CIterateEachLineCallback {
public:
    void Begin(int count) override { EXPECT_TRUE(count > 50 && count < 200) << count; }
    void End() override {}
    bool operator()(int, const WCHAR *line) override {
        EXPECT_EQ(std::u16string_view(line).size(), 4001u);
        return true;
    }
};

TEST(LowMemory, ReaderKeepsTheLinesReadSoFarAndClosesTheFile) {
    const TempDir dir;
    std::ofstream file("file");
    for (int i = 0; i < 200; ++i) {
        file << std::string(4000, 'x') << std::endl;
    }
    CINIReader reader;
    EXPECT_THROW(reader.Parse(TEXT("file"), TEXT("r")), std::bad_alloc);
    EXPECT_EQ(_flushall(), 3);
    Counter counter;
    reader.Enumerate(counter);
}

}  // namespace

#endif
