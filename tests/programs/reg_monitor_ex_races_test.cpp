// The change notifier, step by step: the test signals changes itself, and stops threads where they
// meet others.

#include <dlfcn.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"
#include "support/failing_memory.h"
#include "support/notifier.h"

namespace {

struct Watched {
    HKEY key;
    HANDLE event;
    bool has_subtree;
};

// What the watchers ask of the platform. Never destroyed.
struct Platform {
    std::mutex mutex;
    std::vector<Watched> units;  // in the order of their first arming
    std::atomic<int> arms{0};
    std::function<void(const Watched &)> arming;  // uses no variables of a test's scope
    std::atomic<bool> has_no_time{false};         // Sleep returns at once
    std::atomic<int> sleeps{0};
    std::atomic<bool> is_terminated{false};
    std::atomic<int> refused_counts{0};
    std::function<void()> at_section;
};
// Where the thread calls at_section next.
enum class Stop { kNowhere, kBeforeSection, kInSection };
thread_local Stop t_stop = Stop::kNowhere;
Platform &platform() {
    static auto *const made = new Platform;
    return *made;
}

void set_arming(std::function<void(const Watched &)> arming) {
    const std::lock_guard lock(platform().mutex);
    platform().arming = std::move(arming);
}

std::size_t unit_count() {
    const std::lock_guard lock(platform().mutex);
    return platform().units.size();
}

// The layer's own call.
template <class Call>
Call next_call(const char *name) {
    return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

}  // namespace

LSTATUS RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event,
                                BOOL asynchronous) noexcept {
    EXPECT_TRUE(filter == 5 && asynchronous == TRUE);
    const Watched unit = {key, event, subtree != FALSE};
    std::function<void(const Watched &)> arming;
    {
        const std::lock_guard lock(platform().mutex);
        auto &units = platform().units;
        if (std::none_of(units.begin(), units.end(),
                         [&](auto &known) { return known.event == event; })) {
            units.push_back(unit);
        }
        arming = platform().arming;
    }
    if (arming) {
        arming(unit);
    }
    ++platform().arms;
    return 0;
}

void Sleep(DWORD milliseconds) noexcept {
    ++platform().sleeps;
    std::this_thread::sleep_for(
        std::chrono::milliseconds(platform().has_no_time ? 0 : milliseconds));
}

BOOL TerminateThread(HANDLE thread, DWORD code) noexcept {
    const BOOL result = next_call<BOOL (*)(HANDLE, DWORD)>("_Z15TerminateThreadPvj")(thread, code);
    platform().is_terminated = true;
    return result;
}

BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG *previous) noexcept {
    static const auto next = next_call<BOOL (*)(HANDLE, LONG, LONG *)>("_Z16ReleaseSemaphorePviPi");
    return --platform().refused_counts < 0 && next(semaphore, count, previous);
}

void EnterCriticalSection(CRITICAL_SECTION *section) noexcept {
    static const auto next =
        next_call<void (*)(CRITICAL_SECTION *)>("_Z20EnterCriticalSectionP16CRITICAL_SECTION");
    const Stop stop = std::exchange(t_stop, Stop::kNowhere);
    if (stop == Stop::kBeforeSection) {
        platform().at_section();
    }
    next(section);
    if (stop == Stop::kInSection) {
        platform().at_section();
    }
}

namespace {

const OS::x_wstring kFirst = TEXT("SOFTWARE\\First");
const OS::x_wstring kSecond = TEXT("SOFTWARE\\Second");

bool is_closed(HKEY key) {
    return RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr, nullptr, nullptr) == ERROR_INVALID_HANDLE;
}

class RegMonitorExRaces : public testing::Test {
protected:
    RegMonitorExRaces() {
        alarm(100);  // for what waits for ever
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        RegistryFolder::OfProcess();
        for (const auto &name : {kFirst, kSecond}) {
            created(HKEY_LOCAL_MACHINE, name);
        }
    }
    ~RegMonitorExRaces() override {
        set_arming(nullptr);
        for (const auto &name : {kFirst, kSecond}) {
            for (const Callback each : {callback<0>, callback<1>, callback<2>}) {
                monitor().Unregister(name, false, each);
                monitor().Unregister(name, true, each);
            }
        }
        for (std::size_t i = 0; i < 3; ++i) {
            Calls::All().Set(i, nullptr);
        }
        until(AllAreClosed);
        const std::lock_guard lock(platform().mutex);
        platform().units.clear();
        platform().arms = 0;
        Calls::All().Take();
        Calls::All().count = 0;
    }
    static bool AllAreClosed() {
        const std::lock_guard lock(platform().mutex);
        const auto &units = platform().units;
        return std::all_of(units.begin(), units.end(),
                           [](auto &unit) { return is_closed(unit.key); });
    }
};

// Registers a callback for a new unit and returns the unit, armed.
Watched watch(const OS::x_wstring &name, Callback call, bool has_subtree = false) {
    const int arms = platform().arms;
    EXPECT_TRUE(monitor().RegisterRegNotify(name, has_subtree, call, false));
    until([arms] { return platform().arms > arms; });
    const std::lock_guard lock(platform().mutex);
    return platform().units.back();
}

// Signals a change; the dispatcher has its item when the call returns.
void signal_change(const Watched &unit) {
    const int arms = platform().arms;
    EXPECT_TRUE(SetEvent(unit.event));
    until([arms] { return platform().arms > arms; });
}

void until_called(int count) {
    until([count] { return Calls::All().count >= count; });
}

[[noreturn]] void wait_for_ever() {
    for (;;) {
        pause();
    }
}

TEST_F(RegMonitorExRaces, MakesUnitsOfNamesAndFlags) {
    const auto add = [](const WCHAR *name, bool has_subtree, Callback call, bool now) {
        return monitor().RegisterRegNotify(name, has_subtree, call, now);
    };
    EXPECT_FALSE(add(TEXT(""), false, callback<0>, true));
    EXPECT_FALSE(add(TEXT("SOFTWARE\\None"), false, callback<0>, true));
    EXPECT_EQ(Calls::All().Take(), "");
    const Watched unit = watch(kFirst, callback<0>);
    const Watched tree = watch(kFirst, callback<0>, true);
    EXPECT_TRUE(!unit.has_subtree && tree.has_subtree);
    EXPECT_TRUE(add(TEXT("software\\FIRST"), false, callback<0>, true));
    EXPECT_TRUE(add(TEXT("software\\FIRST\\"), false, callback<1>, true));
    EXPECT_EQ(Calls::All().Take(), "1:software\\FIRST\\ ");
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kFirst), 0);
    EXPECT_TRUE(add(kFirst, false, callback<2>, false));
    monitor().Unregister(kFirst, true, callback<2>);
    Calls::All().count = 0;
    signal_change(unit);
    until_called(3);
    const std::string calls = Calls::All().Take();
    for (const std::string number : {"0", "1", "2"}) {
        EXPECT_NE(calls.find(number + ":SOFTWARE\\First "), calls.npos) << calls;
    }
    monitor().Unregister(kFirst, false, callback<0>);
    monitor().Unregister(kFirst, false, callback<1>);
    monitor().Unregister(kFirst, false, callback<1>);
    EXPECT_FALSE(is_closed(unit.key));
    monitor().Unregister(kFirst, false, callback<2>);
    until([&] { return is_closed(unit.key); });
    EXPECT_FALSE(SetEvent(unit.event) || is_closed(tree.key));
    EXPECT_EQ(unit_count(), 2u);
}

TEST_F(RegMonitorExRaces, CallsForEachSignalAndForNoneOfAUnitThatHasGone) {
    const Watched first = watch(kFirst, callback<0>), second = watch(kSecond, callback<1>);
    static std::atomic<bool> goes_on{false};
    Calls::All().Set(0, [&](const OS::x_wstring &) {
        until([&] { return goes_on.load(); });
        monitor().Unregister(kSecond, false, callback<1>);
    });
    signal_change(first);
    until_called(1);
    signal_change(second);
    for (std::size_t i = 0; i < 3; ++i) {
        signal_change(first);
    }
    goes_on = true;
    until_called(4);
    EXPECT_EQ(Calls::All().Take(),
              "0:SOFTWARE\\First 0:SOFTWARE\\First 0:SOFTWARE\\First 0:SOFTWARE\\First ");
}

// UnregisterOne, while the watcher is between two waits.
TEST_F(RegMonitorExRaces, KeepsHandlesForTheWatcherThatUsesThem) {
    const Watched unit = watch(kFirst, callback<0>);
    static std::atomic<bool> is_inside{false}, goes_on{false}, has_handles{false};
    set_arming([&](const Watched &inside) {
        is_inside = true;
        until([&] { return goes_on.load(); });
        has_handles = !is_closed(inside.key) && SetEvent(inside.event);
    });
    SetEvent(unit.event);
    until([&] { return is_inside.load(); });
    monitor().Unregister(kFirst, false, callback<0>);
    goes_on = true;
    until([&] { return is_closed(unit.key); });
    EXPECT_TRUE(has_handles);
    EXPECT_FALSE(SetEvent(unit.event));
}

TEST_F(RegMonitorExRaces, EndsAWatcherWhoseChangesNeverPause) {
    const Watched unit = watch(kFirst, callback<0>);
    set_arming([](const Watched &inside) { SetEvent(inside.event); });
    signal_change(unit);
    until_called(2);
    monitor().Unregister(kFirst, false, callback<0>);
    until([&] { return is_closed(unit.key); });
}

TEST_F(RegMonitorExRaces, LetsCallbacksThrowRegisterAndUnregister) {
    const Watched unit = watch(kFirst, callback<0>);
    Calls::All().Set(0, [](const OS::x_wstring &) { throw 1; });
    signal_change(unit);
    signal_change(unit);
    until_called(2);  // goes on
    // Of its own unit, whose name it uses afterwards.
    static std::atomic<bool> is_done{false};
    Calls::All().Set(0, [&](const OS::x_wstring &name) {
        EXPECT_TRUE(monitor().RegisterRegNotify(kSecond, false, callback<1>, true));
        monitor().Unregister(name, false, callback<0>);
        EXPECT_EQ(name, kFirst);
        is_done = true;
    });
    signal_change(unit);
    until([&] { return is_done && is_closed(unit.key); });
    EXPECT_EQ(Calls::All().Take(),
              "0:SOFTWARE\\First 0:SOFTWARE\\First 0:SOFTWARE\\First "
              "1:SOFTWARE\\Second ");
}

// The immediate call, which comes before the callback is added (to an old unit) or before its
// watcher starts (of a new unit).
TEST_F(RegMonitorExRaces, LetsImmediateCallsThrowAndUnregister) {
    const auto throws = [](const OS::x_wstring &name) {
        return [name](const OS::x_wstring &) {
            monitor().Unregister(name, false, callback<1>);
            throw 1;
        };
    };
    const Watched unit = watch(kFirst, callback<1>);
    Calls::All().Set(0, throws(kFirst));
    EXPECT_THROW(monitor().RegisterRegNotify(kFirst, false, callback<0>, true), int);
    until([&] { return is_closed(unit.key); });
    for (int i = 0; i < 2; ++i) {  // nothing has stayed
        EXPECT_THROW(monitor().RegisterRegNotify(kSecond, false, callback<0>, true), int);
    }
    Calls::All().Set(0, [](const OS::x_wstring &) {
        monitor().Unregister(kFirst, false, callback<0>);  // of the new unit
        monitor().Unregister(kFirst, false, callback<1>);  // of the old one
    });
    EXPECT_TRUE(monitor().RegisterRegNotify(kFirst, false, callback<0>, true));
    EXPECT_EQ(unit_count(), 1u);  // none of them was armed
    const Watched other = watch(kFirst, callback<1>);
    EXPECT_TRUE(monitor().RegisterRegNotify(kFirst, false, callback<0>, true));
    until([&] { return is_closed(other.key) && unit_count() == 3; });
}

TEST_F(RegMonitorExRaces, WaitsForMemoryInItsThreads) {
    const Watched unit = watch(kFirst, callback<0>);
    set_arming([](const Watched &) { failing_memory::fail_after(0); });
    for (int i = 0; i < 200; ++i) {
        signal_change(unit);
    }
    until_called(200);
}

// The semaphore has its maximum.
TEST_F(RegMonitorExRaces, CallsForSignalsThatTheSemaphoreDoesNotCount) {
    static std::atomic<bool> goes_on{false};
    Calls::All().Set(0, [](const OS::x_wstring &) { until([] { return goes_on.load(); }); });
    const Watched unit = watch(kFirst, callback<0>);
    signal_change(unit);
    until_called(1);
    platform().refused_counts = 3;
    for (int i = 0; i < 4; ++i) {
        signal_change(unit);
    }
    goes_on = true;
    until_called(5);
}

[[noreturn]] void leave() {
    std::exit(7);
}

void at_exit_of_the_child(void (*handler)()) {
    std::atexit(handler);  // before the object exists, so after its end
}

// What the destructors of static objects do.
void expect_no_effect() {
    monitor().Unregister(kFirst, false, callback<0>);
    if (monitor().RegisterRegNotify(kFirst, false, callback<1>, true)) {
        _exit(1);
    }
}

[[noreturn]] void expect_exit_of_fork(bool has_dispatcher) {
    _exit(exit_of_child([has_dispatcher]() -> int {
        alarm(50);
        platform().sleeps = 0;
        if (!has_dispatcher) {
            expect_no_effect();
        }
        leave();
    }));
}

struct Exit {
    const char *name;
    void (*run)();
};

const Exit kExits[] = {
    {"a callback never returns",
     [] {
         at_exit_of_the_child(expect_no_effect);
         Calls::All().Set(0, [](const OS::x_wstring &) { wait_for_ever(); });
         signal_change(watch(kFirst, callback<0>));
         until_called(1);
         leave();
     }},
    {"a callback returns late",
     [] {
         static Watched unit;
         at_exit_of_the_child([] { _exit(is_closed(unit.key) ? 7 : 1); });
         Calls::All().Set(0, [](const OS::x_wstring &) {
             until([] { return platform().is_terminated.load(); });
         });
         signal_change(unit = watch(kFirst, callback<0>));
         until_called(1);
         leave();
     }},
    {"a callback calls exit",
     [] {
         at_exit_of_the_child(expect_no_effect);
         Calls::All().Set(0, [](const OS::x_wstring &) { leave(); });
         signal_change(watch(kFirst, callback<0>));
         wait_for_ever();
     }},
    {"an immediate call never returns",
     [] {
         watch(kFirst, callback<1>);
         Calls::All().Set(0, [](const OS::x_wstring &) { wait_for_ever(); });
         std::thread([] {
             monitor().RegisterRegNotify(kFirst, false, callback<0>, true);
         }).detach();
         until_called(1);
         leave();
     }},
    {"an immediate call calls exit, and the dispatcher waits for it",
     [] {
         at_exit_of_the_child([] { _exit(platform().sleeps < 1000 ? 7 : 1); });
         static const Watched kUnit = watch(kFirst, callback<1>);
         Calls::All().Set(0, [](const OS::x_wstring &) {
             signal_change(kUnit);
             leave();
         });
         monitor().RegisterRegNotify(kSecond, false, callback<0>, true);
     }},
    {"signals wait",
     [] {
         at_exit_of_the_child([] {
             if (Calls::All().count != 9) {
                 _exit(1);
             }
         });
         static std::atomic<bool> goes_on{false};
         Calls::All().Set(0, [](const OS::x_wstring &) { until([] { return goes_on.load(); }); });
         const Watched unit = watch(kFirst, callback<0>);
         for (int i = 0; i < 9; ++i) {
             signal_change(unit);
         }
         goes_on = true;
         leave();
     }},
    {"a watcher is about to use the queue",
     [] {
         static std::atomic<bool> is_inside{false}, goes_on{false};
         static Watched unit;
         at_exit_of_the_child([] {
             goes_on = true;
             until([] { return is_closed(unit.key); });
         });
         unit = watch(kFirst, callback<0>);
         platform().has_no_time = true;
         platform().at_section = [] {
             is_inside = true;
             until([] { return goes_on.load(); });
         };
         set_arming([](const Watched &) { t_stop = Stop::kBeforeSection; });
         signal_change(unit);
         SetEvent(unit.event);
         until([] { return is_inside.load(); });
         leave();
     }},
    {"the dispatcher is inside the queue",
     [] {
         static std::atomic<bool> is_inside{false}, goes_on{false};
         at_exit_of_the_child([] {
             goes_on = true;
             sched_yield();
         });
         platform().at_section = [] {
             is_inside = true;
             until([] { return goes_on.load(); });
         };
         Calls::All().Set(0, [](const OS::x_wstring &) { t_stop = Stop::kInSection; });
         const Watched unit = watch(kFirst, callback<0>);
         signal_change(unit);
         signal_change(unit);
         until([] { return is_inside.load(); });
         leave();
     }},
};

const Exit kForks[] = {
    {"the child of a fork during a callback",
     [] {
         at_exit_of_the_child([] { _exit(platform().sleeps == 0 ? 7 : 1); });
         Calls::All().Set(0, [](const OS::x_wstring &) { wait_for_ever(); });
         signal_change(watch(kFirst, callback<0>));
         until_called(1);
         expect_exit_of_fork(false);
     }},
    {"the child of a fork by a callback",
     [] {
         at_exit_of_the_child([] { _exit(platform().sleeps == 0 ? 7 : 1); });
         Calls::All().Set(0, [](const OS::x_wstring &) { expect_exit_of_fork(true); });
         signal_change(watch(kFirst, callback<0>));
         wait_for_ever();
     }},
};

TEST_F(RegMonitorExRaces, LetsTheProcessExitWhile) {
    for (const auto &row : kExits) {
        EXPECT_EXIT(row.run(), testing::ExitedWithCode(7), "") << row.name;
    }
}

TEST_F(RegMonitorExRaces, LetsForksExit) {
    for (const auto &row : kForks) {
        EXPECT_EXIT(row.run(), testing::ExitedWithCode(7), "") << row.name;
    }
}

}  // namespace
