#include "ostrel/platform/sync/waitable.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <deque>

#include "ostrel/platform/error.h"
#include "support/child.h"
#include "support/signals.h"

namespace {

using namespace ostrel_platform;

// A thread in a wait, which the constructor has seen to be in the lists of its objects.
class Waiting {
public:
    explicit Waiting(std::vector<HANDLE> handles, bool all = false, DWORD milliseconds = INFINITE)
        : m_thread([=, this] { m_result = wait_on(handles, all, milliseconds); }) {
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
    const Handles own{event(false), semaphore(0, 9)};
    Waiting one({own[0]});
    SetEvent(own[0]);
    EXPECT_EQ(test_each(own), "00");  // it is the other's, asleep or not
    EXPECT_EQ(one.Result(), 0u);
    Waiting any(own);
    EXPECT_FALSE(ReleaseSemaphore(own[1], 10, nullptr));
    EXPECT_TRUE(ReleaseSemaphore(own[1], 2, nullptr));
    EXPECT_EQ(test_each({own[1], own[1]}), "10");
    EXPECT_EQ(any.Result(), 1u);
    Waiting ended(own);
    SetEvent(own[0]);
    EXPECT_TRUE(ReleaseSemaphore(own[1], 1, nullptr));  // which the wait no longer takes
    EXPECT_EQ(ended.Result(), 0u);
    EXPECT_EQ(test_each(own), "01");
}

TEST(Waitable, GivesAWaitForAllItsSignalsAtTheLast) {
    const Handles own{event(false), event(false)};
    Waiting all(own, true);
    SetEvent(own[0]);
    const auto object = find_event(own[0]);
    EXPECT_EQ(try_take(object->Cell(), object->Tag()), Taken::kUnknown);  // only under the lock
    EXPECT_EQ(test_each(own), "10");
    SetEvent(own[1]);
    SetEvent(own[0]);
    EXPECT_EQ(test_each(own), "00");
    EXPECT_EQ(all.Result(), 0u);
}

TEST(Waitable, EndsEveryWaitByAManualEvent) {
    const Handles stop{event(true)};
    std::deque<Waiting> threads;
    for (int i = 0; i < 45; ++i) {  // more than a signal wakes at once
        const Handles other{event(false)};
        threads.emplace_back(i % 9 == 0 ? std::vector{stop[0]} : std::vector{other[0], stop[0]});
    }
    SetEvent(stop[0]);
    for (std::size_t i = 0; i < threads.size(); ++i) {
        EXPECT_EQ(threads[i].Result(), i % 9 == 0 ? 0u : 1u);
    }
}

TEST(Waitable, GoesOnWhenItsHandleIsClosed) {
    const HANDLE closed = event(false);
    const Handles open{event(false)};
    const std::shared_ptr<Waitable> kept = find_event(closed);
    Waiting by_another({closed, open[0]});
    const HANDLE also_closed = event(false);
    Waiting by_time({also_closed}, false, 30);
    EXPECT_TRUE(CloseHandle(closed) && CloseHandle(also_closed));
    EXPECT_FALSE(SetEvent(closed));
    EXPECT_EQ(WaitForSingleObject(closed, 0), WAIT_FAILED);
    EXPECT_EQ(by_time.Result(), WAIT_TIMEOUT);
    SetEvent(open[0]);
    EXPECT_EQ(by_another.Result(), 1u);
    kept->Signal();  // whoever keeps the object can still signal it
    EXPECT_TRUE(kept->IsSignalled());
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
    EXPECT_FALSE(next.back()->IsSignalled());
    next.back()->Signal();
    EXPECT_FALSE(clear_signal(cell, tag));
    EXPECT_EQ(try_take(cell, tag), Taken::kUnknown);
    EXPECT_TRUE(next.back()->IsSignalled());
}

TEST(Waitable, LosesNoSignalToThreadsThatAForkLeftBehind) {
    const Handles waited{event(false)};
    const auto waits = [](LPVOID handle) -> DWORD { return WaitForSingleObject(handle, INFINITE); };
    const Handles thread{CreateThread(nullptr, 0, waits, waited[0], 0, nullptr)};
    Waiting other(waited);
    const pid_t child = started([&] {
        DWORD code = 1;
        EXPECT_TRUE(SetEvent(waited[0]) && test_each({waited[0], thread[0]}) == "11" &&
                    WaitForSingleObject(waited[0], 1) == WAIT_TIMEOUT && SetEvent(waited[0]) &&
                    test_each(waited) == "1" && GetExitCodeThread(thread[0], &code) && code == 0);
    });
    EXPECT_TRUE(has_succeeded(child));
    EXPECT_EQ(test_each(thread), "0");  // the parent's lives
    while (WaitForSingleObject(thread[0], 1) == WAIT_TIMEOUT) {
        SetEvent(waited[0]);
    }
    SetEvent(waited[0]);
    other.Result();
}

// An object that the host signals through a descriptor.
class Hosted : public Waitable {
public:
    Hosted() : Waitable(SignalKind::kEnd) {}
    ~Hosted() override { close(m_descriptor); }
    void End() const { EXPECT_EQ(eventfd_write(m_descriptor, 1), 0); }
    int Descriptor() const noexcept override { return m_descriptor; }

private:
    const int m_descriptor = eventfd(0, EFD_CLOEXEC);
};

TEST(Waitable, TakesDescriptorsAndEventsTogether) {
    const auto first = std::make_shared<Hosted>(), second = std::make_shared<Hosted>();
    const Handles own{open_handle(first), open_handle(second), event(false)};
    EXPECT_EQ(wait_on(own, false, 0), WAIT_TIMEOUT);
    Waiting any(own), another(own), all(own, true);
    second->End();
    EXPECT_EQ(any.Result(), 1u);
    EXPECT_EQ(another.Result(), 1u);
    first->End();
    EXPECT_EQ(wait_on(own, true, 30), WAIT_TIMEOUT);
    SetEvent(own[2]);
    EXPECT_EQ(all.Result(), 0u);
    EXPECT_EQ(test_each(own), "110");
}

}  // namespace
