#ifndef OSTREL_PLATFORM_REGISTRY_TIMED_LOCK_H
#define OSTREL_PLATFORM_REGISTRY_TIMED_LOCK_H

// Internal. A lock of the process that a thread waits for with a limit. std::timed_mutex would do,
// but ThreadSanitizer of g++ 12 does not see a timed wait acquire it.

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace ostrel_platform {

class TimedLock {
public:
    // Waits up to so long for the lock, by the monotonic clock. Returns whether the caller has it.
    bool TryLockFor(std::chrono::milliseconds limit) {
        std::unique_lock lock(m_mutex);
        if (!m_isFree.wait_for(lock, limit, [this] { return !m_isHeld; })) {
            return false;
        }
        m_isHeld = true;
        return true;
    }

    void Lock() noexcept {
        std::unique_lock lock(m_mutex);
        m_isFree.wait(lock, [this] { return !m_isHeld; });
        m_isHeld = true;
    }

    void Unlock() noexcept {
        {
            const std::lock_guard lock(m_mutex);
            m_isHeld = false;
        }
        m_isFree.notify_one();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_isFree;
    bool m_isHeld = false;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_TIMED_LOCK_H
