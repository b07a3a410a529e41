#include "ostrel/platform/registry/watch.h"

#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <utility>

#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/registry.h"
#include "ostrel/platform/registry/shared_futex.h"
#include "ostrel/platform/sync.h"

namespace ostrel_platform {
namespace {

constexpr std::int64_t kPeriod = 500;  // milliseconds

std::uint64_t number_of(const SharedPage *page) {
    return page != nullptr ? page->Name().number : 0;
}

}  // namespace

// The thread, and the watches that it serves.
class WatchThread {
public:
    static WatchThread &Instance() {
        static auto *const thread = new WatchThread;  // never destroyed: the thread goes on
        return *thread;
    }

    std::mutex &Mutex() { return m_mutex; }

    // Needs the mutex. Throws std::bad_alloc and StoreFailure.
    void Add(const std::shared_ptr<Watch> &watch) {
        if (std::find(m_watches.begin(), m_watches.end(), watch) == m_watches.end()) {
            m_watches.push_back(watch);
            Wake();
        }
        if (!m_isRunning) {
            Start();
        }
    }
    void Remove(const Watch *watch) noexcept {
        std::erase_if(m_watches, [watch](const auto &other) { return other.get() == watch; });
    }
    void ForgetThread() noexcept { m_isRunning = false; }

private:
    // What the thread saw of a store.
    struct Followed {
        Store *store;
        const SharedPage *page = nullptr;
        std::uint32_t word = 0;       // of the changes
        std::uint32_t mark = 0;       // of a writer at work
        std::int64_t mark_since = 0;  // milliseconds
        bool is_mark_told = false;
        bool is_watched = false;
    };

    void Wake() noexcept {
        m_word.fetch_add(1, std::memory_order_acq_rel);
        wake_shared(m_word);
    }

    void Start() {
        // The host's signals are for the threads of the program; faults stay with their thread. The
        // host kills a process for a fault that is blocked, and page_faults.h handles SIGBUS.
        sigset_t all, before;
        sigfillset(&all);
        for (const int fault : {SIGBUS, SIGSEGV, SIGFPE, SIGILL}) {
            sigdelset(&all, fault);
        }
        pthread_sigmask(SIG_SETMASK, &all, &before);
        const HANDLE thread = CreateThread(
            nullptr, 0, [](LPVOID self) -> DWORD { static_cast<WatchThread *>(self)->Run(); }, this,
            0, nullptr);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        if (thread == nullptr) {
            throw StoreFailure{GetLastError()};
        }
        CloseHandle(thread);
        m_isRunning = true;
    }

    [[noreturn]] void Run() noexcept {
        Followed followed[] = {{&Store::Of(StoreKind::kMachine)}, {&Store::Of(StoreKind::kUser)}};
        for (;;) {
            const std::uint32_t word = m_word.load(std::memory_order_acquire);
            FindWatched(followed);
            bool is_changed[2] = {};
            for (std::size_t i = 0; i < 2; ++i) {
                is_changed[i] = followed[i].is_watched && Look(&followed[i]);
            }
            Show(followed, is_changed);
            WaitForChanges(followed, word);
        }
    }

    void FindWatched(Followed (&followed)[2]) noexcept {
        const std::lock_guard lock(m_mutex);
        for (Followed &one : followed) {
            one.is_watched =
                std::any_of(m_watches.begin(), m_watches.end(),
                            [&](const auto &watch) { return watch->m_key->store == one.store; });
        }
    }

    // Returns whether everything counts as changed.
    static bool Look(Followed *followed) noexcept {
        followed->page = followed->store->CurrentPage();
        if (followed->page == nullptr) {
            // Without a page nobody tells of changes; without a file there are none.
            return !followed->store->IsAlone();
        }
        followed->word = followed->page->ChangeWord().load(std::memory_order_acquire);
        const std::uint32_t mark = followed->page->Writing();
        const std::int64_t now = coarse_milliseconds();
        if (mark != followed->mark) {
            followed->mark = mark;
            followed->mark_since = now;
            followed->is_mark_told = false;
        }
        const bool is_left = mark != 0 && now - followed->mark_since >= kPeriod / 2;
        return is_left && !std::exchange(followed->is_mark_told, true);
    }

    void Show(const Followed (&followed)[2], const bool (&is_changed)[2]) noexcept {
        const std::lock_guard lock(m_mutex);
        for (const auto &watch : m_watches) {
            for (std::size_t i = 0; i < 2; ++i) {
                if (followed[i].is_watched && watch->m_key->store == followed[i].store) {
                    watch->Examine(followed[i].page, is_changed[i]);
                }
            }
        }
    }

    void WaitForChanges(const Followed (&followed)[2], std::uint32_t word) noexcept {
        SharedFutexes futexes;
        futexes.Add(m_word, word);
        bool is_marked = false;
        for (const Followed &one : followed) {
            if (one.is_watched && one.page != nullptr) {
                futexes.Add(one.page->ChangeWord(), one.word);
                is_marked |= one.mark != 0;
            }
        }
        futexes.Wait(is_marked ? kPeriod / 2 : kPeriod);
    }

    std::mutex m_mutex;
    std::vector<std::shared_ptr<Watch>> m_watches;
    bool m_isRunning = false;
    std::atomic<std::uint32_t> m_word{0};
};

// The watches that a thread has armed; its end signals their events.
class ThreadWatches {
public:
    ~ThreadWatches() {
        const std::thread::id self = std::this_thread::get_id();
        for (const std::weak_ptr<Watch> &watch : m_watches) {
            if (const std::shared_ptr<Watch> alive = watch.lock()) {
                const std::lock_guard lock(Watch::Mutex());
                alive->EndThread(self);
            }
        }
    }

    void Add(const std::shared_ptr<Watch> &watch) {
        std::erase_if(m_watches, [](const auto &other) { return other.expired(); });
        for (const std::weak_ptr<Watch> &other : m_watches) {
            if (!other.owner_before(watch) && !watch.owner_before(other)) {
                return;
            }
        }
        m_watches.push_back(watch);
    }

private:
    std::vector<std::weak_ptr<Watch>> m_watches;
};

Watch::Watch(KeyPointer key, bool has_subtree, DWORD filter)
    : m_key(std::move(key)), m_hasSubtree(has_subtree), m_filter(filter) {
    const SharedPage *const page = m_key->store->CurrentPage();
    m_page = number_of(page);
    m_position = page != nullptr ? page->Head() : 0;
}

void Watch::MakeThread() {
    WatchThread::Instance();
}

std::mutex &Watch::Mutex() noexcept {
    return WatchThread::Instance().Mutex();
}

void Watch::ForgetThread() noexcept {
    WatchThread::Instance().ForgetThread();
}

DWORD Watch::Arm(const std::shared_ptr<Watch> &watch, std::shared_ptr<Waitable> event,
                 bool ends_with_thread) {
    thread_local ThreadWatches t_watches;
    if (ends_with_thread) {
        t_watches.Add(watch);
    }
    const SharedPage *const page = watch->m_key->store->CurrentPage();
    const std::lock_guard lock(Mutex());
    if (watch->m_isEnded) {
        return ERROR_INVALID_HANDLE;
    }
    if (watch->m_armed.size() == kMaxEvents) {
        return ERROR_INVALID_PARAMETER;
    }
    watch->m_armed.reserve(watch->m_armed.size() + 1);
    WatchThread::Instance().Add(watch);
    watch->Examine(page, false);
    watch->m_armed.push_back(
        {std::move(event), ends_with_thread ? std::this_thread::get_id() : std::thread::id()});
    if (watch->m_hasUnreported) {
        watch->Report();
    }
    return ERROR_SUCCESS;
}

void Watch::End() noexcept {
    const std::lock_guard lock(Mutex());
    m_isEnded = true;
    Report();
    WatchThread::Instance().Remove(this);
}

bool Watch::Concerns(const Change &change) const {
    if ((change.kind & Change::kAnything) != 0) {
        return true;
    }
    if (change.key == m_key->id) {
        return (change.kind & (m_filter | Change::kDeleted)) != 0;
    }
    return m_hasSubtree && (change.kind & m_filter) != 0 &&
           std::find(change.ancestors.begin(), change.ancestors.end(), m_key->id) !=
               change.ancestors.end();
}

void Watch::Examine(const SharedPage *page, bool is_anything_changed) noexcept {
    if (number_of(page) != m_page) {
        m_page = number_of(page);
        m_position = page != nullptr ? page->Head() : 0;
        is_anything_changed = true;
    }
    const std::uint64_t head = page != nullptr ? page->Head() : 0;
    try {
        Change change;
        while (!is_anything_changed && m_position != head) {
            is_anything_changed = !page->ReadChange(m_position, &change) || Concerns(change);
            ++m_position;
        }
    } catch (const std::bad_alloc &) {
        is_anything_changed = true;
    }
    if (page != nullptr) {
        m_position = head;
    }
    if (is_anything_changed) {
        Report();
    }
}

void Watch::Report() noexcept {
    m_hasUnreported = m_armed.empty();
    for (const Armed &armed : m_armed) {
        armed.event->Signal();
    }
    m_armed.clear();
}

void Watch::EndThread(std::thread::id thread) noexcept {
    std::erase_if(m_armed, [thread](const Armed &armed) {
        const bool ends = armed.thread == thread;
        if (ends) {
            armed.event->Signal();
        }
        return ends;
    });
}

}  // namespace ostrel_platform
