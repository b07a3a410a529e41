// What happens when the heap gives no block of more than 1 MiB. AddressSanitizer's can be told
// so; a build without it has nothing to test here.

#include <new>

#include "ostrel/core/acc_buffer.h"
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
    static unsigned char large[2 << 20] = {7};
    CAccBuffer buffer(large, 3);
    EXPECT_THROW(buffer.Append(large, sizeof large), std::bad_alloc);
    EXPECT_THROW(buffer = CAccBuffer(large, sizeof large), std::bad_alloc);
    EXPECT_TRUE(buffer.IsContentTheSame(CAccBuffer(large, 3)));
}

}  // namespace

#endif
