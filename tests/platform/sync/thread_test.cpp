#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <deque>
#include <stdexcept>

#include "support/file_calls.h"
#include "support/signals.h"

namespace {

constexpr std::size_t kMiB = 1024 * 1024;

DWORD code_of(HANDLE thread) {
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    return code;
}

std::atomic<bool> destroyed;

struct Local {
    int used = 1;
    ~Local() {
        Sleep(1);
        destroyed = true;
    }
};

thread_local Local local;

TEST(Thread, EndsWithItsCodeWhenItsThreadLocalObjectsHave) {
    const std::pair<LPTHREAD_START_ROUTINE, DWORD> rows[] = {
        {[](LPVOID) -> DWORD { return static_cast<DWORD>(-local.used); }, 0xFFFFFFFF},
        {[](LPVOID) -> DWORD { pthread_exit(&local.used); }, 0}};
    for (const auto &[start, code] : rows) {
        SCOPED_TRACE(code);
        destroyed = false;
        const Handles thread{CreateThread(nullptr, 0, start, nullptr, 0, nullptr)};
        EXPECT_EQ(WaitForSingleObject(thread[0], INFINITE), WAIT_OBJECT_0);
        EXPECT_TRUE(destroyed);
        EXPECT_EQ(code_of(thread[0]), code);
    }
}

TEST(Thread, IsActiveUntilItReturns) {
    const Handles go_on{event(true)};
    const auto waits = [](void *handle) -> unsigned {
        return WaitForSingleObject(handle, INFINITE) + 7;
    };
    const Handles thread{
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, waits, go_on[0], 0, nullptr))};
    EXPECT_EQ(code_of(thread[0]), STILL_ACTIVE);
    EXPECT_EQ(test_each(thread), "0");
    SetEvent(go_on[0]);
    EXPECT_EQ(WaitForSingleObject(thread[0], INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(code_of(thread[0]), 7u);
}

TEST(Thread, HasTheStackAndTheIdThatTheCallNames) {
    static std::size_t found;
    const auto look = [](LPVOID) -> DWORD {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &found);
        pthread_attr_destroy(&attributes);
        return GetCurrentThreadId();
    };
    const std::tuple<std::size_t, DWORD, std::size_t, std::size_t> rows[] = {
        {0, 0, kMiB, 1024 * kMiB}, {kMiB / 2, STACK_SIZE_PARAM_IS_A_RESERVATION, kMiB / 2, kMiB}};
    for (const auto &[stack, flags, least, most] : rows) {
        DWORD id = 0;
        const Handles thread{CreateThread(nullptr, stack, look, nullptr, flags, &id)};
        EXPECT_EQ(WaitForSingleObject(thread[0], INFINITE), WAIT_OBJECT_0);
        EXPECT_EQ(code_of(thread[0]), id);
        EXPECT_TRUE(found >= least && found <= most) << stack << ' ' << found;
    }
}

BOOL create(LPTHREAD_START_ROUTINE start, DWORD flags, std::size_t stack = 0) {
    return CreateThread(nullptr, stack, start, nullptr, flags, nullptr) != nullptr;
}

TEST(Thread, RefusesWhatItCannotDo) {
    const auto start = [](LPVOID) -> DWORD { return 0; };
    EXPECT_EQ(error_of(create(nullptr, 0)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(error_of(create(start, CREATE_SUSPENDED)), ERROR_NOT_SUPPORTED);
    EXPECT_EQ(error_of(create(start, 0, SIZE_MAX)), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(error_of(TerminateThread(Handles{event(false)}[0], 1)), ERROR_INVALID_HANDLE);
    errno = 0;
    EXPECT_EQ(_beginthreadex(nullptr, 0, start, nullptr, CREATE_SUSPENDED, nullptr), 0u);
    EXPECT_EQ(errno, EINVAL);
}

// A thread that is terminated, and what it shares with the test.
struct Victim {
    explicit Victim(void (*does)(Victim &)) : act(does) {
        own = CreateThread(nullptr, 0, Run, this, 0, &id);
        Until(runs);
    }
    static DWORD Run(LPVOID memory) {
        auto *const victim = static_cast<Victim *>(memory);
        victim->act(*victim);
        victim->passed = true;
        return 1;
    }
    static void Until(const std::atomic<bool> &condition) {
        while (!condition) {
            std::this_thread::yield();
        }
    }
    void Await() {
        runs = true;
        Until(goes_on);
    }
    // Whether the host's thread is one that the layer has stopped: it blocks SIGTERM.
    bool IsStopped() const {
        const std::string facts = content_of("/proc/self/task/" + std::to_string(id) + "/status");
        const std::size_t blocked = facts.find("SigBlk:") + 8;
        return (std::stoull(facts.substr(blocked, 16), nullptr, 16) >> (SIGTERM - 1) & 1) != 0;
    }

    void (*const act)(Victim &);
    const HANDLE waited = event(false);
    CRITICAL_SECTION section = {};
    std::atomic<bool> runs{false};
    std::atomic<bool> goes_on{false};
    std::atomic<bool> passed{false};
    DWORD id = 0;
    std::atomic<HANDLE> own{nullptr};
};

TEST(Thread, TerminatedStopsWhereItHoldsNoSection) {
    struct Row {
        const char *name;
        void (*act)(Victim &);
        bool returns = false;
    };
    for (const Row &row :
         {Row{"in a wait for as many as can be",
              [](Victim &victim) {
                  victim.runs = true;
                  wait_on(std::vector(64, victim.waited), false, INFINITE);
              }},
          Row{"in Sleep",
              [](Victim &victim) {
                  victim.runs = true;
                  Sleep(INFINITE);
              }},
          Row{"before a wait",
              [](Victim &victim) {
                  victim.Await();
                  SetEvent(victim.waited);
                  WaitForSingleObject(victim.waited, 0);
              }},
          Row{"before a section",
              [](Victim &victim) {
                  victim.Await();
                  EnterCriticalSection(&victim.section);
              }},
          Row{"within a section, entered twice",
              [](Victim &victim) {
                  EnterCriticalSection(&victim.section);
                  EnterCriticalSection(&victim.section);
                  victim.Await();
                  Sleep(1);
                  WaitForSingleObject(victim.waited, 1);
                  LeaveCriticalSection(&victim.section);
                  Sleep(0);
                  LeaveCriticalSection(&victim.section);
              }},
          Row{"before it returns", [](Victim &victim) { victim.Await(); }, true}}) {
        SCOPED_TRACE(row.name);
        static auto *const victims = new std::deque<Victim>;  // stopped threads keep theirs
        Victim &victim = victims->emplace_back(row.act);
        const Handles thread{victim.own};
        EXPECT_TRUE(TerminateThread(thread[0], 9));
        EXPECT_EQ(test_each(thread), "1");
        EXPECT_TRUE(TerminateThread(thread[0], 10));
        EXPECT_EQ(code_of(thread[0]), 9u);
        victim.goes_on = true;
        while (!(row.returns ? victim.passed.load() : victim.IsStopped())) {
            std::this_thread::yield();
        }
        EXPECT_EQ(victim.passed, row.returns);
        EXPECT_TRUE(TryEnterCriticalSection(&victim.section));
        LeaveCriticalSection(&victim.section);
        EXPECT_EQ(code_of(thread[0]), 9u);
    }
}

TEST(Thread, TerminatesItself) {
    static Victim victim([](Victim &self) {
        self.Await();
        TerminateThread(self.own, 5);
    });
    victim.goes_on = true;
    EXPECT_EQ(WaitForSingleObject(victim.own, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(code_of(victim.own), 5u);
    while (!victim.IsStopped()) {
        std::this_thread::yield();
    }
}

TEST(Thread, EndsTheProcessByAnExceptionThatLeavesIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            create([](LPVOID) -> DWORD { throw std::runtime_error("lost"); }, 0);
            Sleep(INFINITE);
        },
        testing::KilledBySignal(SIGABRT), "lost");
}

}  // namespace
