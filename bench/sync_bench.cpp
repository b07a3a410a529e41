// Signals and locks beside those of the host and of others.
//
//   SetWait...   signals an auto-reset event and waits for it, on one thread
//   PingPong...  two threads wake each other in turn: the time of one wake-up and back
//   Lock...      enters and leaves a lock that nobody else uses
//
// Futex is the least that an auto-reset event can be on this host: one exchange, and the host call
// where somebody sleeps. It checks no handle and waits for one thing only.

#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <QMutex>
#include <QSemaphore>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"

namespace {

class OstrelEvent {
public:
    ~OstrelEvent() { CloseHandle(m_event); }
    void Set() { SetEvent(m_event); }
    void Wait() { WaitForSingleObject(m_event, INFINITE); }

private:
    HANDLE m_event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
};

class OstrelSemaphore {
public:
    ~OstrelSemaphore() { CloseHandle(m_semaphore); }
    void Set() { ReleaseSemaphore(m_semaphore, 1, nullptr); }
    void Wait() { WaitForSingleObject(m_semaphore, INFINITE); }

private:
    HANDLE m_semaphore = CreateSemaphoreW(nullptr, 0, 1000, nullptr);
};

// A wait for one of three, as a service's threads do, where the first ends it.
class OstrelOneOfThree {
public:
    ~OstrelOneOfThree() {
        for (const HANDLE event : m_events) {
            CloseHandle(event);
        }
    }
    void Set() { SetEvent(m_events[0]); }
    void Wait() { WaitForMultipleObjects(3, m_events, FALSE, INFINITE); }

private:
    HANDLE m_events[3] = {CreateEventW(nullptr, FALSE, FALSE, nullptr),
                          CreateEventW(nullptr, TRUE, FALSE, nullptr),
                          CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

class Futex {
public:
    void Set() {
        if (m_word.exchange(1) == 2) {
            syscall(SYS_futex, &m_word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
        }
    }
    void Wait() {
        for (;;) {
            std::uint32_t word = 1;
            if (m_word.compare_exchange_strong(word, 0)) {
                return;
            }
            if (word == 2 || m_word.compare_exchange_strong(word, 2)) {
                syscall(SYS_futex, &m_word, FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr, 0);
            }
        }
    }

private:
    std::atomic<std::uint32_t> m_word{0};  // 1 signalled, 2 waited for
};

class Condition {
public:
    void Set() {
        {
            const std::lock_guard lock(m_mutex);
            m_isSet = true;
        }
        m_condition.notify_one();
    }
    void Wait() {
        std::unique_lock lock(m_mutex);
        m_condition.wait(lock, [this] { return m_isSet; });
        m_isSet = false;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_isSet = false;
};

class EventDescriptor {
public:
    ~EventDescriptor() { close(m_descriptor); }
    void Set() { eventfd_write(m_descriptor, 1); }
    void Wait() {
        eventfd_t count;
        eventfd_read(m_descriptor, &count);
    }

private:
    int m_descriptor = eventfd(0, EFD_CLOEXEC);
};

class Qt {
public:
    void Set() { m_semaphore.release(); }
    void Wait() { m_semaphore.acquire(); }

private:
    QSemaphore m_semaphore;
};

template <class Event>
void SetWait(benchmark::State &state) {
    Event event;
    for (auto _ : state) {
        event.Set();
        event.Wait();
    }
}

template <class Event>
void PingPong(benchmark::State &state) {
    Event ping;
    Event pong;
    std::atomic<bool> ends{false};
    std::thread other([&] {
        while (!ends) {
            ping.Wait();
            pong.Set();
        }
    });
    for (auto _ : state) {
        ping.Set();
        pong.Wait();
    }
    ends = true;
    ping.Set();
    other.join();
}

class Section {
public:
    Section() { InitializeCriticalSection(&m_section); }
    ~Section() { DeleteCriticalSection(&m_section); }
    void lock() { EnterCriticalSection(&m_section); }
    void unlock() { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section;
};

template <class Mutex>
void Lock(benchmark::State &state) {
    Mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}

BENCHMARK(SetWait<OstrelEvent>);
BENCHMARK(SetWait<OstrelSemaphore>);
BENCHMARK(SetWait<OstrelOneOfThree>);
BENCHMARK(SetWait<Futex>);
BENCHMARK(SetWait<Condition>);
BENCHMARK(SetWait<EventDescriptor>);
BENCHMARK(SetWait<Qt>);

BENCHMARK(PingPong<OstrelEvent>)->UseRealTime();
BENCHMARK(PingPong<OstrelSemaphore>)->UseRealTime();
BENCHMARK(PingPong<OstrelOneOfThree>)->UseRealTime();
BENCHMARK(PingPong<Futex>)->UseRealTime();
BENCHMARK(PingPong<Condition>)->UseRealTime();
BENCHMARK(PingPong<EventDescriptor>)->UseRealTime();
BENCHMARK(PingPong<Qt>)->UseRealTime();

BENCHMARK(Lock<Section>);
BENCHMARK(Lock<std::recursive_mutex>);
BENCHMARK(Lock<std::mutex>);
BENCHMARK(Lock<QRecursiveMutex>);

}  // namespace
