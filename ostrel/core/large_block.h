#ifndef OSTREL_CORE_LARGE_BLOCK_H
#define OSTREL_CORE_LARGE_BLOCK_H

// Internal. Heap blocks that may become very large, a little at a time.

#include <cstddef>

namespace OS::detail {

// As std::realloc: the block of `old_size` bytes, or null, grows to `size` bytes and keeps its
// content. Null on failure, the block is unchanged then. std::free releases the result.
//
// Many small steps cost little: a block of more than 64 KiB is given more than was asked for, up to
// four times as much to 64 MiB and twice as much from there, so that it moves a few times only.
// What is not written to takes no memory.
void *grow_block(void *block, std::size_t old_size, std::size_t size) noexcept;

}  // namespace OS::detail

#endif  // OSTREL_CORE_LARGE_BLOCK_H
