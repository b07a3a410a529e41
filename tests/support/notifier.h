#ifndef TESTS_SUPPORT_NOTIFIER_H
#define TESTS_SUPPORT_NOTIFIER_H

// Callbacks of the registry's change notifier.

#include <array>
#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "ostrel/registry/reg_monitor_ex.h"
#include "support/registry.h"

using Callback = int (*)(const OS::x_wstring &);

// What the callbacks were called with, and what they do. Never destroyed: threads outlive main.
struct Calls {
    std::mutex mutex;
    std::string names;  // "number:name " for each call
    std::atomic<int> count{0};
    std::array<std::function<void(const OS::x_wstring &)>, 3> actions;

    static Calls &All() {
        static auto *const all = new Calls;
        return *all;
    }
    std::string Take() {
        const std::lock_guard lock(mutex);
        return std::exchange(names, "");
    }
};

template <int Number>
int callback(const OS::x_wstring &name) {
    Calls &calls = Calls::All();
    {
        const std::lock_guard lock(calls.mutex);
        calls.names += std::to_string(Number) + ':' + std::string(name.begin(), name.end()) + ' ';
    }
    ++calls.count;
    if (const auto action = calls.actions[Number]) {
        action(name);
    }
    return 0;
}

// Returns when the condition holds; the test's own time-out ends it otherwise.
template <class Condition>
void until(Condition condition) {
    while (!condition()) {
        std::this_thread::yield();
    }
}

inline OS::CRegMonitorEx &monitor() {
    return *OS::CRegMonitorEx::Instance();
}

#endif  // TESTS_SUPPORT_NOTIFIER_H
