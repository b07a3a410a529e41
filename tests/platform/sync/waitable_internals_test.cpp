#include "ostrel/platform/sync/waitable.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>
#include <vector>

#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"
#include "support/test.h"

namespace {

using namespace ostrel_platform;

HANDLE event(bool manual) {
    return CreateEventW(nullptr, manual, FALSE, nullptr);
}

// A thread in a wait, which the constructor has seen to be in the lists of its objects.
class Waiting {
public:
    Waiting(std::vector<HANDLE> handles, bool all = false, DWORD milliseconds = INFINITE)
        : m_thread([this, handles, all, milliseconds] {
              m_result = WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(),
                                                all, milliseconds);
          }) {
        for (const HANDLE handle : handles) {
            const auto object = find_waitable(handle);
            while ((object->Cell().word & kWaited) == 0) {
                std::this_thread::yield();
            }
        }
    }
    DWORD Result() {
        m_thread.join();
        return m_result;
    }

private:
    DWORD m_result = WAIT_FAILED;
    std::thread m_thread;
};

TEST(Waitable, GivesASignalToAThreadThatWaits) {
    const HANDLE first = event(false);
    const HANDLE second = CreateSemaphoreW(nullptr, 0, 9, nullptr);
    Waiting one({first});
    SetEvent(first);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_TIMEOUT);  // it is the other's, asleep or not
    EXPECT_EQ(one.Result(), 0u);
    Waiting any({first, second});
    EXPECT_TRUE(ReleaseSemaphore(second, 2, nullptr));
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_TIMEOUT);
    EXPECT_EQ(any.Result(), 1u);
    CloseHandle(first);
    CloseHandle(second);
}

TEST(Waitable, GivesAWaitForAllItsSignalsAtTheLast) {
    const HANDLE first = event(false);
    const HANDLE second = event(false);
    Waiting all({first, second}, true);
    SetEvent(first);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0);  // still for all
    SetEvent(second);
    SetEvent(first);
    EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObject(second, 0), WAIT_TIMEOUT);
    EXPECT_EQ(all.Result(), 0u);
    CloseHandle(first);
    CloseHandle(second);
}

TEST(Waitable, EndsEveryWaitByAManualEvent) {
    const HANDLE stop = event(true);
    std::vector<std::unique_ptr<Waiting>> threads;
    for (int i = 0; i < 40; ++i) {
        const HANDLE other = event(false);
        threads.push_back(i % 2 == 0 ? std::make_unique<Waiting>(std::vector{stop})
                                     : std::make_unique<Waiting>(std::vector{other, stop}));
        CloseHandle(other);
    }
    SetEvent(stop);
    for (std::size_t i = 0; i < threads.size(); ++i) {
        EXPECT_EQ(threads[i]->Result(), i % 2);
    }
    CloseHandle(stop);
}

TEST(Waitable, GoesOnWhenItsHandleIsClosed) {
    const HANDLE closed = event(false);
    const HANDLE open = event(false);
    const std::shared_ptr<Waitable> kept = find_event(closed);
    Waiting by_another({closed, open});
    const HANDLE also_closed = event(false);
    Waiting by_time({also_closed}, false, 30);
    EXPECT_TRUE(CloseHandle(closed) && CloseHandle(also_closed));
    EXPECT_FALSE(SetEvent(closed));
    EXPECT_EQ(WaitForSingleObject(closed, 0), WAIT_FAILED);
    EXPECT_EQ(by_time.Result(), WAIT_TIMEOUT);
    SetEvent(open);
    EXPECT_EQ(by_another.Result(), 1u);
    kept->Signal();  // whoever keeps the object can still signal it
    EXPECT_TRUE(kept->IsSignalled());
    CloseHandle(open);
}

TEST(Waitable, TellsTheNextObjectOfACellApart) {
    const HANDLE first = event(false);
    SignalCell &cell = find_event(first)->Cell();
    const SignalTag tag = find_event(first)->Tag();
    CloseHandle(first);
    std::vector<std::shared_ptr<Waitable>> next;
    while (next.empty() || &next.back()->Cell() != &cell) {
        next.push_back(std::make_shared<Waitable>(SignalKind::kAutoEvent));
    }
    EXPECT_EQ(add_signal(cell, tag, 1, true, nullptr), Added::kStale);
    EXPECT_FALSE(clear_signal(cell, tag));
    EXPECT_FALSE(next.back()->IsSignalled());
    next.back()->Signal();
    EXPECT_EQ(try_take(cell, tag), Taken::kUnknown);
    EXPECT_TRUE(next.back()->IsSignalled());
}

TEST(Waitable, LosesNoSignalToThreadsThatAForkLeftBehind) {
    const HANDLE waited = event(false);
    const HANDLE thread = CreateThread(
        nullptr, 0, [](LPVOID handle) -> DWORD { return WaitForSingleObject(handle, INFINITE); },
        waited, 0, nullptr);
    Waiting other({waited});
    const pid_t child = fork();
    if (child == 0) {
        DWORD code = 1;
        const bool good = SetEvent(waited) && WaitForSingleObject(waited, 0) == WAIT_OBJECT_0 &&
                          WaitForSingleObject(thread, 0) == WAIT_OBJECT_0 &&
                          GetExitCodeThread(thread, &code) && code == 0 && CloseHandle(waited) &&
                          CloseHandle(thread);
        _exit(good ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(WaitForSingleObject(thread, 0), WAIT_TIMEOUT);  // the parent's lives
    SetEvent(waited);
    SetEvent(waited);
    const HANDLE both[] = {thread, waited};
    while (WaitForMultipleObjects(2, both, FALSE, 1) != 0) {
        SetEvent(waited);
    }
    SetEvent(waited);
    other.Result();
    CloseHandle(thread);
    CloseHandle(waited);
}

// A process of the host that runs until it is killed.
class Process : public Waitable {
public:
    Process() : Waitable(SignalKind::kEnd), m_id(fork()) {
        if (m_id == 0) {
            for (;;) {
                pause();
            }
        }
        m_descriptor = static_cast<int>(syscall(SYS_pidfd_open, m_id, 0));
    }
    ~Process() override {
        Kill();
        close(m_descriptor);
    }
    void Kill() {
        if (m_id > 0) {
            kill(m_id, SIGKILL);
            waitpid(std::exchange(m_id, 0), nullptr, 0);
        }
    }
    int Descriptor() const noexcept override { return m_descriptor; }

private:
    pid_t m_id;
    int m_descriptor;
};

// Three processes and a manual-reset event.
struct Processes {
    Processes() {
        for (int i = 0; i < 3; ++i) {
            objects.push_back(std::make_shared<Process>());
            handles.push_back(open_handle(objects.back()));
        }
        handles.push_back(event(true));
    }
    ~Processes() {
        for (const HANDLE handle : handles) {
            CloseHandle(handle);
        }
    }
    std::vector<std::shared_ptr<Process>> objects;
    std::vector<HANDLE> handles;
};

TEST(Waitable, TakesDescriptorsAndEventsTogether) {
    struct Row {
        const char *name;
        bool all;
        DWORD milliseconds;
        std::function<void(Processes &)> act;
        DWORD result;  // of each of the threads
    };
    const auto kill_all = [](Processes &them) {
        for (const auto &process : them.objects) {
            process->Kill();
        }
    };
    for (const Row &row :
         {Row{"a process ends", false, INFINITE, [](Processes &them) { them.objects[1]->Kill(); },
              1},
          Row{"an event", false, INFINITE, [](Processes &them) { SetEvent(them.handles[3]); }, 3},
          Row{"all end, then the event", true, INFINITE,
              [&](Processes &them) {
                  kill_all(them);
                  SetEvent(them.handles[3]);
              },
              0},
          Row{"all but the event", true, 30, kill_all, WAIT_TIMEOUT},
          Row{"nothing happens", false, 30, [](Processes &) {}, WAIT_TIMEOUT}}) {
        SCOPED_TRACE(row.name);
        Processes them;
        EXPECT_EQ(WaitForMultipleObjects(4, them.handles.data(), row.all, 0), WAIT_TIMEOUT);
        std::vector<std::unique_ptr<Waiting>> threads;
        for (int i = 0; i < 3; ++i) {
            threads.push_back(std::make_unique<Waiting>(them.handles, row.all, row.milliseconds));
        }
        row.act(them);
        for (const auto &thread : threads) {
            EXPECT_EQ(thread->Result(), row.result);
        }
    }
}

TEST(Waitable, SeesAnEndThatNobodyWaitedFor) {
    const auto process = std::make_shared<Process>();
    const HANDLE handle = open_handle(process);
    EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_TIMEOUT);
    process->Kill();
    EXPECT_EQ(WaitForSingleObject(handle, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(handle, INFINITE), WAIT_OBJECT_0);
    EXPECT_FALSE(SetEvent(handle));
    CloseHandle(handle);
}

}  // namespace
