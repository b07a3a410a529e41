#ifndef OSTREL_PLATFORM_SYNC_FUTEX_H
#define OSTREL_PLATFORM_SYNC_FUTEX_H

// Internal. The host's futexes, between the threads of one process.
//
// Waking a word that no longer exists has no effect but a spurious wake-up of whoever waits at its
// address now, so a word need not outlive its wake-up.

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <ctime>

namespace ostrel_platform {

// A moment of the monotonic clock in nanoseconds.
using Deadline = std::int64_t;

inline constexpr Deadline kNoDeadline = INT64_MAX;

inline std::int64_t monotonic_now() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

// Waits while the word has this value. Returns false when the deadline has passed, and true after a
// wake-up, which may be spurious.
inline bool futex_wait(const std::uint32_t *word, std::uint32_t value,
                       Deadline deadline = kNoDeadline) noexcept {
    const timespec until{deadline / 1'000'000'000, deadline % 1'000'000'000};
    const long result =
        syscall(SYS_futex, word, FUTEX_WAIT_BITSET_PRIVATE, value,
                deadline == kNoDeadline ? nullptr : &until, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

inline void futex_wake(const std::uint32_t *word, int count) noexcept {
    syscall(SYS_futex, word, FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_SYNC_FUTEX_H
