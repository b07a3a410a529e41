#include "ostrel/core/large_block.h"

#include <bit>
#include <cstdlib>

namespace OS::detail {
namespace {

// What is asked of the heap. It depends on the size alone, so that nobody has to remember it.
std::size_t heap_size(std::size_t size) {
    constexpr std::size_t kExact = std::size_t{1} << 16;
    constexpr std::size_t kFourfold = std::size_t{1} << 26;
    if (size <= kExact) {
        return size;
    }
    const auto bits = static_cast<unsigned>(std::bit_width(size - 1));
    return std::size_t{1} << (size <= kFourfold ? bits + bits % 2 : bits);
}

}  // namespace

void *grow_block(void *block, std::size_t old_size, std::size_t size) noexcept {
    const std::size_t heap = heap_size(size);
    if (block != nullptr && heap == heap_size(old_size)) {
        return block;
    }
    return std::realloc(block, heap);
}

}  // namespace OS::detail
