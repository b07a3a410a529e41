#ifndef OSTREL_PLATFORM_BASE_FORK_GENERATION_H
#define OSTREL_PLATFORM_BASE_FORK_GENERATION_H

// Internal. Tells the child of a fork from its parent at the cost of two loads, for what must not
// exist in both.
//
// The number lies in a page that the kernel clears in the child of any fork, also one that runs no
// handler (_Fork, the host's clone call). Where the host has no such page, a handler of
// pthread_atfork clears the number.

#include <atomic>
#include <cstdint>

namespace ostrel_platform {

using ForkMark = std::atomic<std::uint64_t>;

extern constinit std::atomic<ForkMark *> fork_mark;

// Gives this process a number, when no other thread has done so yet.
std::uint64_t begin_fork_generation() noexcept;

// Returns a number that is never 0, stays the same while the process lives, and differs from those
// of all processes that it was forked from.
inline std::uint64_t fork_generation() noexcept {
    const std::uint64_t number =
        fork_mark.load(std::memory_order_acquire)->load(std::memory_order_relaxed);
    return number != 0 ? number : begin_fork_generation();
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_FORK_GENERATION_H
