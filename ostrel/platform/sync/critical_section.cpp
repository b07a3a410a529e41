// Critical sections: a futex with three states, and an owner.

#include <atomic>

#include "ostrel/platform/sync.h"
#include "ostrel/platform/sync/futex.h"
#include "ostrel/platform/sync/thread.h"

namespace {

using ostrel_platform::this_thread;
using ostrel_platform::ThreadState;

constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kHeld = 1;
constexpr std::uint32_t kWaitedFor = 2;

using State = std::atomic_ref<std::uint32_t>;
using Owner = std::atomic_ref<std::uint64_t>;

// The calling thread as an owner. Addresses and the host's ids come back for other threads; this
// number does not, and it is the same in the child of a fork.
std::uint64_t number_of(ThreadState &state) {
    static constinit std::atomic<std::uint64_t> last{0};
    if (state.number == 0) {
        state.number = last.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    return state.number;
}

// Nobody but the owner finds its own number there.
bool is_owner(const CRITICAL_SECTION &section, std::uint64_t number) {
    return Owner(const_cast<std::uint64_t &>(section.owner)).load(std::memory_order_relaxed) ==
           number;
}

bool try_hold(CRITICAL_SECTION &section) {
    std::uint32_t expected = kFree;
    return State(section.state)
        .compare_exchange_strong(expected, kHeld, std::memory_order_acquire,
                                 std::memory_order_relaxed);
}

void own(CRITICAL_SECTION &section, ThreadState &state) {
    Owner(section.owner).store(state.number, std::memory_order_relaxed);
    ++state.held_sections;
}

void release(CRITICAL_SECTION &section, ThreadState &state) {
    Owner(section.owner).store(0, std::memory_order_relaxed);
    --state.held_sections;
    if (State(section.state).exchange(kFree, std::memory_order_release) == kWaitedFor) {
        ostrel_platform::futex_wake(&section.state, 1);
    }
    stop_if_terminated(state);
}

}  // namespace

void InitializeCriticalSection(CRITICAL_SECTION *section) noexcept {
    *section = {};
}

void EnterCriticalSection(CRITICAL_SECTION *section) noexcept {
    ThreadState &state = this_thread();
    if (is_owner(*section, number_of(state))) {
        ++section->depth;
        return;
    }
    stop_if_terminated(state);
    if (!try_hold(*section)) {
        while (State(section->state).exchange(kWaitedFor, std::memory_order_acquire) != kFree) {
            ostrel_platform::futex_wait(&section->state, kWaitedFor);
        }
    }
    own(*section, state);
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION *section) noexcept {
    ThreadState &state = this_thread();
    if (is_owner(*section, number_of(state))) {
        ++section->depth;
        return TRUE;
    }
    stop_if_terminated(state);
    if (!try_hold(*section)) {
        return FALSE;
    }
    own(*section, state);
    return TRUE;
}

void LeaveCriticalSection(CRITICAL_SECTION *section) noexcept {
    ThreadState &state = this_thread();
    if (!is_owner(*section, number_of(state))) {
        return;
    }
    if (section->depth > 0) {
        --section->depth;
    } else {
        release(*section, state);
    }
}

void DeleteCriticalSection(CRITICAL_SECTION *section) noexcept {
    ThreadState &state = this_thread();
    if (is_owner(*section, number_of(state))) {
        section->depth = 0;
        release(*section, state);
    }
}
