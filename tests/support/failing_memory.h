#ifndef TESTS_SUPPORT_FAILING_MEMORY_H
#define TESTS_SUPPORT_FAILING_MEMORY_H

// Allocation functions that fail when they are told to. They replace those of the whole program:
// for one file of a program of its own.

#include <cstddef>
#include <cstdlib>
#include <new>

namespace failing_memory {

// Which allocations fail behind the one that was told to.
enum class Rest { kNone, kAll };

inline thread_local int t_left = -1;
inline thread_local Rest t_rest = Rest::kNone;

inline void *allocate(std::size_t size) {
    const bool fails = t_left == 0 || (t_left < 0 && t_rest == Rest::kAll);
    t_left -= t_left >= 0 ? 1 : 0;
    return fails ? nullptr : std::malloc(size == 0 ? 1 : size);
}

// Lets `left` more allocations of this thread succeed and the one behind them fail, with the rest
// or alone; negative: none fails.
inline void fail_after(int left, Rest rest = Rest::kNone) {
    t_left = left;
    t_rest = rest;
}

// Whether that one has failed, or none was to fail.
inline bool has_failed() {
    return t_left < 0;
}

}  // namespace failing_memory

[[gnu::noinline]] void *operator new(std::size_t size) {
    void *const block = failing_memory::allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

[[gnu::noinline]] void *operator new[](std::size_t size) {
    return operator new(size);
}

[[gnu::noinline]] void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    return failing_memory::allocate(size);
}

[[gnu::noinline]] void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
    return failing_memory::allocate(size);
}

[[gnu::noinline]] void operator delete(void *block) noexcept {
    std::free(block);
}

[[gnu::noinline]] void operator delete[](void *block) noexcept {
    std::free(block);
}

[[gnu::noinline]] void operator delete(void *block, std::size_t) noexcept {
    std::free(block);
}

[[gnu::noinline]] void operator delete[](void *block, std::size_t) noexcept {
    std::free(block);
}

#endif  // TESTS_SUPPORT_FAILING_MEMORY_H
