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

// What the callbacks were called with, and what they do, which uses no variables of a test's scope.
// Never destroyed: threads outlive main.
struct Calls {
    using Action = std::function<void(const OS::x_wstring &)>;

    std::mutex mutex;
    std::string names;  // "number:name " for each call
    std::atomic<int> count{0};
    std::array<Action, 3> actions;

    static Calls &All() {
        static auto *const all = new Calls;
        return *all;
    }
    void Set(std::size_t number, Action action) {
        const std::lock_guard lock(mutex);
        actions[number] = std::move(action);
    }
    std::string Take() {
        const std::lock_guard lock(mutex);
        return std::exchange(names, "");
    }
};

template <int Number>
int callback(const OS::x_wstring &name) {
    Calls &calls = Calls::All();
    Calls::Action action;
    {
        const std::lock_guard lock(calls.mutex);
        calls.names += std::to_string(Number) + ':' + std::string(name.begin(), name.end()) + ' ';
        action = calls.actions[Number];
    }
    ++calls.count;
    if (action) {
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
