#ifndef OSTREL_PLATFORM_REGISTRY_FUTEX_H
#define OSTREL_PLATFORM_REGISTRY_FUTEX_H

// Internal. Waits on a word of memory that processes share (futex).

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <ctime>

namespace ostrel_platform {

// Waits while the word has the value, at most that long.
inline void wait_on_shared(const std::atomic<std::uint32_t> &word, std::uint32_t value,
                           std::int64_t milliseconds) noexcept {
    const timespec limit{milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    syscall(SYS_futex, &word, FUTEX_WAIT, value, &limit, nullptr, 0);
}

inline void wake_shared(std::atomic<std::uint32_t> &word) noexcept {
    syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

// Milliseconds of a monotonic clock that all processes share, exact to some milliseconds. Costs
// some nanoseconds.
inline std::int64_t coarse_milliseconds() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_FUTEX_H
