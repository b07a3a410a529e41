#ifndef OSTREL_PLATFORM_SYNC_THREAD_H
#define OSTREL_PLATFORM_SYNC_THREAD_H

// Internal. Threads of CreateThread, and what each thread of the process knows about itself.
//
// TerminateThread signals the object of a thread. The thread looks at its own object where it holds
// no critical section, and each of its waits is for its own object too.

#include <cstdint>
#include <memory>

#include "ostrel/platform/sync/waitable.h"

namespace ostrel_platform {

class Thread : public Waitable {
public:
    Thread();
    ~Thread() override;

    // Signals the object with an exit code. Returns false when the thread has ended before.
    bool End(DWORD code) noexcept;
    DWORD ExitCode() const noexcept;
    bool HasEnded() const noexcept { return IsSignalled(); }

    // The id of the host's thread, once it runs.
    DWORD Id() const noexcept;
    void SetId(DWORD id) noexcept;

    // Declares every thread but the caller's own ended, in the child of a fork.
    static void EndOthers() noexcept;

private:
    static constexpr std::uint64_t kRunning = ~std::uint64_t{0};

    std::atomic<std::uint64_t> m_exit{kRunning};  // or the exit code
    std::atomic<std::uint32_t> m_id{0};
    Thread *m_previous = nullptr;
    Thread *m_next = nullptr;
};

struct ThreadState {
    Thread *thread = nullptr;         // null in a thread that CreateThread did not make
    std::uint64_t number = 0;         // of the thread as an owner, or 0 before it needs one
    std::uint32_t held_sections = 0;  // critical sections that the thread owns
};

// A function, because the compiler would look the variable up at each use: EnterCriticalSection and
// LeaveCriticalSection would take half as long again.
ThreadState &this_thread() noexcept;

// Stops the calling thread for ever.
[[noreturn]] void stop_this_thread() noexcept;

// Stops the calling thread if it has been terminated and holds no critical section.
inline void stop_if_terminated(const ThreadState &state) noexcept {
    if (state.thread != nullptr && state.held_sections == 0 && state.thread->HasEnded()) {
        stop_this_thread();
    }
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_SYNC_THREAD_H
