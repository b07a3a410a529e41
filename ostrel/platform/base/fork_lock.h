#ifndef OSTREL_PLATFORM_BASE_FORK_LOCK_H
#define OSTREL_PLATFORM_BASE_FORK_LOCK_H

// Internal. Makes the child of a fork find the process-wide locks of the layer free: the forking
// thread takes the locks before the fork, so no other thread is at work on what they guard.

#include <memory>

namespace ostrel_platform {

// The locks in the order in which code may nest them, the outermost first.
enum class ForkOrder {
    kStreams,
    kTimeForms,
    kZones,
    kValues,
    kRegistry,
    kModules,
    kProcesses,
    kHandles,
    kThreads,
    kSignals,
    kEnvironment,
    kCount
};

struct ForkOperations {
    void (*lock)(void *mutex);
    void (*unlock)(void *mutex);
    void (*renew)(void *mutex);  // in the child, where the owner has another thread id
};

template <class Mutex>
inline constexpr ForkOperations kForkOperations = {
    [](void *mutex) { static_cast<Mutex *>(mutex)->lock(); },
    [](void *mutex) { static_cast<Mutex *>(mutex)->unlock(); },
    [](void *mutex) { std::construct_at(static_cast<Mutex *>(mutex)); },
};

void register_fork_lock(ForkOrder order, void *mutex, const ForkOperations &operations) noexcept;

// Registers a mutex that lives as long as the process; one for each order.
template <class Mutex>
void register_fork_lock(ForkOrder order, Mutex *mutex) noexcept {
    register_fork_lock(order, mutex, kForkOperations<Mutex>);
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_FORK_LOCK_H
