#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"
#include "support/test.h"

namespace {

DWORD result_of(LPTHREAD_START_ROUTINE start, LPVOID argument = nullptr) {
    const HANDLE thread = CreateThread(nullptr, 0, start, argument, 0, nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code) && CloseHandle(thread));
    return code;
}

TEST(Thread, TellsItsExitCode) {
    EXPECT_EQ(result_of([](LPVOID) -> DWORD { return 0xFFFFFFFF; }), 0xFFFFFFFF);
    EXPECT_EQ(result_of([](LPVOID) -> DWORD { pthread_exit(nullptr); }), 0u);
    const HANDLE go_on = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const auto waits = [](void *handle) -> unsigned {
        return WaitForSingleObject(handle, INFINITE);
    };
    const auto thread =
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, waits, go_on, 0, nullptr));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, STILL_ACTIVE);
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(go_on));
    const HANDLE both[] = {go_on, thread};
    EXPECT_EQ(WaitForMultipleObjects(2, both, TRUE, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_OBJECT_0);  // and stays so
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(thread) && CloseHandle(go_on));
}

TEST(Thread, HasEndedWhenItsThreadLocalObjectsHave) {
    static std::atomic<bool> destroyed;
    struct Local {
        ~Local() {
            Sleep(1);
            destroyed = true;
        }
    };
    for (const LPTHREAD_START_ROUTINE start : {LPTHREAD_START_ROUTINE{[](LPVOID) -> DWORD {
                                                   thread_local Local local;
                                                   static_cast<void>(&local);
                                                   return 0;
                                               }},
                                               LPTHREAD_START_ROUTINE{[](LPVOID) -> DWORD {
                                                   thread_local Local local;
                                                   static_cast<void>(&local);
                                                   pthread_exit(nullptr);
                                               }}}) {
        destroyed = false;
        result_of(start);
        EXPECT_TRUE(destroyed);
    }
}

TEST(Thread, HasTheStackAndTheIdThatTheCallNames) {
    struct Found {
        std::size_t stack;
        DWORD id;
    };
    const auto look = [](LPVOID memory) -> DWORD {
        auto *const found = static_cast<Found *>(memory);
        found->id = GetCurrentThreadId();
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &found->stack);
        pthread_attr_destroy(&attributes);
        return 0;
    };
    constexpr std::size_t kMiB = 1024 * 1024;
    for (const auto &[stack, flags, least, most] :
         {std::tuple<std::size_t, DWORD, std::size_t, std::size_t>{0, 0, kMiB, 1024 * kMiB},
          {1, 0, kMiB, 1024 * kMiB},
          {100 * kMiB, 0, 100 * kMiB, 1024 * kMiB},
          {0, STACK_SIZE_PARAM_IS_A_RESERVATION, kMiB, 1024 * kMiB},
          {kMiB / 2, STACK_SIZE_PARAM_IS_A_RESERVATION, kMiB / 2, kMiB}}) {
        SCOPED_TRACE(stack);
        Found found{};
        DWORD id = 0;
        const HANDLE thread = CreateThread(nullptr, stack, look, &found, flags, &id);
        EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
        EXPECT_TRUE(CloseHandle(thread));
        EXPECT_EQ(found.id, id);
        EXPECT_NE(id, GetCurrentThreadId());
        EXPECT_GE(found.stack, least);
        EXPECT_LE(found.stack, most);
    }
}

TEST(Thread, RefusesWhatItCannotDo) {
    const auto start = [](LPVOID) -> DWORD { return 0; };
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    DWORD code = 0;
    struct Row {
        const char *call;
        bool failed;
        DWORD code;
        DWORD expected;
    };
#define FAILED(call, code)                                          \
    Row {                                                           \
#call, (SetLastError(0), (call) == 0), GetLastError(), code \
    }
    for (const Row &row :
         {FAILED(CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr), ERROR_INVALID_PARAMETER),
          FAILED(CreateThread(nullptr, 0, start, nullptr, 1, nullptr), ERROR_INVALID_PARAMETER),
          FAILED(CreateThread(nullptr, 0, start, nullptr, CREATE_SUSPENDED, nullptr),
                 ERROR_NOT_SUPPORTED),
          FAILED(CreateThread(nullptr, SIZE_MAX, start, nullptr, 0, nullptr),
                 ERROR_NOT_ENOUGH_MEMORY),
          FAILED(GetExitCodeThread(event, &code), ERROR_INVALID_HANDLE),
          FAILED(GetExitCodeThread(nullptr, nullptr), ERROR_INVALID_HANDLE),
          FAILED(TerminateThread(event, 1), ERROR_INVALID_HANDLE),
          FAILED(TerminateThread(nullptr, 1), ERROR_INVALID_HANDLE)}) {
        SCOPED_TRACE(row.call);
        EXPECT_TRUE(row.failed);
        EXPECT_EQ(row.code, row.expected);
    }
#undef FAILED
    errno = 0;
    EXPECT_EQ(_beginthreadex(nullptr, 0, start, nullptr, CREATE_SUSPENDED, nullptr), 0u);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(_beginthreadex(nullptr, 0, nullptr, nullptr, 0, nullptr), ~std::uintptr_t{0});
    EXPECT_EQ(errno, EINVAL);
    CloseHandle(event);
}

// What a thread that is terminated does, and what it shares with the test.
struct Victim {
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CRITICAL_SECTION section = {};
    std::atomic<bool> runs{false};
    std::atomic<bool> goes_on{false};  // ends a loop of the thread
    std::atomic<bool> passed{false};   // where the thread must not come to

    void Await() {
        runs = true;
        while (!goes_on) {
            std::this_thread::yield();
        }
    }
};

// Returns whether the host's thread is one that the layer has stopped: it blocks SIGTERM.
bool is_stopped(DWORD id) {
    std::ifstream status("/proc/self/task/" + std::to_string(id) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigBlk:", 0) == 0) {
            return (std::stoull(line.substr(8), nullptr, 16) & (1ull << (SIGTERM - 1))) != 0;
        }
    }
    return false;
}

TEST(Thread, TerminatedStopsWhereItHoldsNoSection) {
    struct Row {
        const char *name;
        LPTHREAD_START_ROUTINE start;
    };
    for (const Row &row : {Row{"in a wait",
                               [](LPVOID memory) -> DWORD {
                                   auto *const victim = static_cast<Victim *>(memory);
                                   victim->runs = true;
                                   WaitForSingleObject(victim->event, INFINITE);
                                   victim->passed = true;
                                   return 1;
                               }},
                           Row{"in Sleep",
                               [](LPVOID memory) -> DWORD {
                                   auto *const victim = static_cast<Victim *>(memory);
                                   victim->runs = true;
                                   Sleep(INFINITE);
                                   victim->passed = true;
                                   return 1;
                               }},
                           Row{"before a wait",
                               [](LPVOID memory) -> DWORD {
                                   auto *const victim = static_cast<Victim *>(memory);
                                   victim->Await();
                                   SetEvent(victim->event);
                                   WaitForSingleObject(victim->event, 0);
                                   victim->passed = true;
                                   return 1;
                               }},
                           Row{"before a section",
                               [](LPVOID memory) -> DWORD {
                                   auto *const victim = static_cast<Victim *>(memory);
                                   victim->Await();
                                   EnterCriticalSection(&victim->section);
                                   victim->passed = true;
                                   return 1;
                               }},
                           Row{"within a section, entered twice", [](LPVOID memory) -> DWORD {
                                   auto *const victim = static_cast<Victim *>(memory);
                                   EnterCriticalSection(&victim->section);
                                   EnterCriticalSection(&victim->section);
                                   victim->Await();
                                   Sleep(1);
                                   WaitForSingleObject(victim->event, 1);
                                   LeaveCriticalSection(&victim->section);
                                   Sleep(0);
                                   LeaveCriticalSection(&victim->section);
                                   victim->passed = true;
                                   return 1;
                               }}}) {
        SCOPED_TRACE(row.name);
        static std::vector<Victim *> victims;  // stopped threads keep theirs
        auto *const victim = victims.emplace_back(new Victim);
        DWORD id = 0;
        const HANDLE thread = CreateThread(nullptr, 0, row.start, victim, 0, &id);
        while (!victim->runs) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(TerminateThread(thread, 9));
        EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_OBJECT_0);
        DWORD code = 0;
        EXPECT_TRUE(TerminateThread(thread, 10) && GetExitCodeThread(thread, &code));
        EXPECT_EQ(code, 9u);
        victim->goes_on = true;
        while (!is_stopped(id)) {
            std::this_thread::yield();
        }
        EXPECT_FALSE(victim->passed);
        EXPECT_TRUE(TryEnterCriticalSection(&victim->section));
        LeaveCriticalSection(&victim->section);
        CloseHandle(thread);
    }
}

TEST(Thread, TerminatedBeforeItReturnsEndsAsUsual) {
    static Victim victim;
    const HANDLE thread = CreateThread(
        nullptr, 0,
        [](LPVOID) -> DWORD {
            victim.Await();
            victim.passed = true;
            return 1;
        },
        nullptr, 0, nullptr);
    while (!victim.runs) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(TerminateThread(thread, 9));
    victim.goes_on = true;
    while (!victim.passed) {
        std::this_thread::yield();
    }
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code) && CloseHandle(thread));
    EXPECT_EQ(code, 9u);
    CloseHandle(victim.event);
}

TEST(Thread, TerminatesItself) {
    static std::atomic<HANDLE> own{nullptr};
    const HANDLE thread = CreateThread(
        nullptr, 0,
        [](LPVOID) -> DWORD {
            while (own == nullptr) {
                std::this_thread::yield();
            }
            TerminateThread(own, 5);
            return 1;
        },
        nullptr, 0, nullptr);
    own = thread;
    EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code) && CloseHandle(thread));
    EXPECT_EQ(code, 5u);
}

TEST(Thread, EndsTheProcessByAnExceptionThatLeavesIt) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(result_of([](LPVOID) -> DWORD { throw std::runtime_error("lost"); }),
                testing::KilledBySignal(SIGABRT), "lost");
}

}  // namespace
