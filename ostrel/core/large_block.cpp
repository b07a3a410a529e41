#include "ostrel/core/large_block.h"

#include <bit>
#include <cstdint>
#include <cstdlib>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace OS::detail {
namespace {

// What is asked of the heap. It depends on the size alone, so that nobody has to remember it.
std::size_t heap_size(std::size_t size) {
    constexpr std::size_t kExact = std::size_t{1} << 20;
    return size <= kExact ? size : std::bit_ceil(size);
}

// A block that is filled from one end is first touched page by page, and the system puts each page
// in place when it is. With large pages that happens once in 2 MiB.
void prefer_large_pages(void *block, std::size_t size) {
#ifdef __linux__
    // The whole of the block's mapping, its first page with the heap's own words included: a part
    // of it would become a mapping of its own, and the block could no longer move by its pages.
    constexpr std::uintptr_t kPage = 4096;
    constexpr std::size_t kLargePage = std::size_t{2} << 20;
    if (size >= kLargePage) {
        const std::uintptr_t first = reinterpret_cast<std::uintptr_t>(block) & ~(kPage - 1);
        const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(block) + size;
        const std::uintptr_t last = (end + kPage - 1) & ~(kPage - 1);
        madvise(reinterpret_cast<void *>(first), last - first, MADV_HUGEPAGE);  // a wish
    }
#else
    (void)block;
    (void)size;
#endif
}

}  // namespace

void *grow_block(void *block, std::size_t old_size, std::size_t size) noexcept {
    const std::size_t heap = heap_size(size);
    if (block != nullptr && heap == heap_size(old_size)) {
        return block;
    }
    void *const grown = std::realloc(block, heap);
    if (grown != nullptr) {
        prefer_large_pages(grown, heap);
    }
    return grown;
}

}  // namespace OS::detail
