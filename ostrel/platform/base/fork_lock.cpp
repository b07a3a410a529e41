#include "ostrel/platform/base/fork_lock.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>

namespace ostrel_platform {
namespace {

struct Slot {
    const ForkOperations *operations = nullptr;  // set before `mutex`
    std::atomic<void *> mutex{nullptr};          // null before it is registered
};

constinit std::array<Slot, static_cast<std::size_t>(ForkOrder::kCount)> slots;

// The slots that the forking thread has locked: a mutex registered during the fork is not.
constinit thread_local std::array<void *, slots.size()> t_locked{};

void before_fork() {
    for (std::size_t i = 0; i < slots.size(); ++i) {
        t_locked[i] = slots[i].mutex.load(std::memory_order_acquire);
        if (t_locked[i] != nullptr) {
            slots[i].operations->lock(t_locked[i]);
        }
    }
}

void in_parent() {
    for (std::size_t i = slots.size(); i-- > 0;) {
        if (t_locked[i] != nullptr) {
            slots[i].operations->unlock(t_locked[i]);
        }
    }
}

void in_child() {
    for (std::size_t i = 0; i < slots.size(); ++i) {
        if (t_locked[i] != nullptr) {
            slots[i].operations->renew(t_locked[i]);
        }
    }
}

[[maybe_unused]] const int registered = pthread_atfork(before_fork, in_parent, in_child);

}  // namespace

void register_fork_lock(ForkOrder order, void *mutex, const ForkOperations &operations) noexcept {
    Slot &slot = slots[static_cast<std::size_t>(order)];
    slot.operations = &operations;
    slot.mutex.store(mutex, std::memory_order_release);
}

}  // namespace ostrel_platform
