#ifndef OSTREL_PLATFORM_REGISTRY_SHARED_FUTEX_H
#define OSTREL_PLATFORM_REGISTRY_SHARED_FUTEX_H

// Internal. Waits on a word of memory that processes share (futex).

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
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

// Words that a thread waits on together.
class SharedFutexes {
public:
    // Up to kMax words, each with the value that it had.
    void Add(const std::atomic<std::uint32_t> &word, std::uint32_t value) noexcept {
        m_waits[m_count++] = {value, reinterpret_cast<std::uintptr_t>(&word), kSize32, 0};
    }

    // Waits until a word has another value, or for that long; may return early. On a host without
    // futex_waitv (Linux before 5.16) waits for at most kPause.
    void Wait(std::int64_t milliseconds) noexcept {
        constexpr std::int64_t kPause = 5'000'000;  // nanoseconds
        timespec until;
        clock_gettime(CLOCK_MONOTONIC, &until);
        const std::int64_t end = until.tv_nsec + milliseconds * 1'000'000;
        until = {until.tv_sec + end / 1'000'000'000, end % 1'000'000'000};
        if (syscall(kFutexWaitv, m_waits, m_count, 0, &until, CLOCK_MONOTONIC) < 0 &&
            errno != EAGAIN && errno != ETIMEDOUT && errno != EINTR) {
            const timespec pause{0, kPause};
            nanosleep(&pause, nullptr);
        }
    }

private:
    static constexpr unsigned kMax = 3;

    // struct futex_waitv of the host, which older headers lack.
    struct WaitEntry {
        std::uint64_t value, address;
        std::uint32_t flags, reserved;
    };

    static constexpr std::uint32_t kSize32 = 2;
    static constexpr long kFutexWaitv = 449;

    WaitEntry m_waits[kMax];
    unsigned m_count = 0;
};

// Milliseconds of a monotonic clock that all processes share, exact to some milliseconds. Costs
// some nanoseconds.
inline std::int64_t coarse_milliseconds() noexcept {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_SHARED_FUTEX_H
