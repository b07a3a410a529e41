#include "ostrel/platform/sync/thread.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"

namespace ostrel_platform {

namespace {

constinit thread_local ThreadState t_state;

// The objects of threads, for the child of a fork. Never destroyed: threads outlive main.
struct Threads {
    std::mutex mutex;
    Thread *first = nullptr;
};

constexpr ForkOperations kThreadOperations = {
    [](void *memory) { static_cast<Threads *>(memory)->mutex.lock(); },
    [](void *memory) { static_cast<Threads *>(memory)->mutex.unlock(); },
    [](void *memory) {
        std::construct_at(&static_cast<Threads *>(memory)->mutex);
        Thread::EndOthers();
    },
};

Threads &threads() {
    static Threads *const created = [] {
        auto *const made = new Threads;
        register_fork_lock(ForkOrder::kThreads, made, kThreadOperations);
        return made;
    }();
    return *created;
}

// What a new thread runs. `start` has the result type of CreateThread or of _beginthreadex, which
// are the same.
struct Start {
    std::shared_ptr<Thread> thread;
    LPTHREAD_START_ROUTINE start;
    LPVOID argument;
};

// Ends the thread's object when the thread's other thread_local objects are destroyed: the first
// one made is destroyed last, also by pthread_exit and pthread_cancel.
class EndOfThread {
public:
    ~EndOfThread() {
        if (m_thread != nullptr) {
            t_state.thread = nullptr;
            m_thread->End(m_code);
        }
    }
    void Begin(std::shared_ptr<Thread> thread) { m_thread = std::move(thread); }
    void SetCode(DWORD code) { m_code = code; }

private:
    std::shared_ptr<Thread> m_thread;
    DWORD m_code = 0;
};

thread_local EndOfThread t_end;

void *run(void *memory) {
    LPTHREAD_START_ROUTINE start = nullptr;
    LPVOID argument = nullptr;
    {
        const std::unique_ptr<Start> given(static_cast<Start *>(memory));
        start = given->start;
        argument = given->argument;
        given->thread->SetId(GetCurrentThreadId());
        t_state.thread = given->thread.get();
        t_end.Begin(std::move(given->thread));
    }
    t_end.SetCode(start(argument));
    return nullptr;
}

// Keeps the library loaded: a thread runs its code to the last.
void stay_loaded() {
    static const bool done = [] {
        Dl_info info;
        return dladdr(reinterpret_cast<const void *>(&run), &info) != 0 &&
               dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE) != nullptr;
    }();
    static_cast<void>(done);
}

// The attributes of a detached thread with this stack. Returns 0 or an errno.
class Attributes {
public:
    Attributes() : m_error(pthread_attr_init(&m_attributes)) {}
    ~Attributes() {
        if (m_error == 0) {
            pthread_attr_destroy(&m_attributes);
        }
    }
    Attributes(const Attributes &) = delete;
    Attributes &operator=(const Attributes &) = delete;

    int Set(std::size_t stack, bool exact) {
        constexpr std::size_t kUnit = 0x10000;
        std::size_t usual = 0;
        if (m_error != 0 || pthread_attr_getstacksize(&m_attributes, &usual) != 0) {
            return ENOMEM;
        }
        pthread_attr_setdetachstate(&m_attributes, PTHREAD_CREATE_DETACHED);
        if (stack == 0 || (!exact && stack <= usual)) {
            return 0;
        }
        const std::size_t least =
            static_cast<std::size_t>(std::max(sysconf(_SC_THREAD_STACK_MIN), 0L));
        const std::size_t size = std::max(stack, least);
        if (size > SIZE_MAX - kUnit) {
            return ENOMEM;
        }
        return pthread_attr_setstacksize(&m_attributes, (size + kUnit - 1) / kUnit * kUnit);
    }
    const pthread_attr_t *Get() const { return &m_attributes; }

private:
    pthread_attr_t m_attributes;
    const int m_error;
};

// Starts a thread and stores its handle. Returns 0 or an errno. Throws std::bad_alloc.
int start_thread(LPTHREAD_START_ROUTINE start, LPVOID argument, std::size_t stack, bool exact,
                 DWORD *id, HANDLE *handle) {
    Attributes attributes;
    const int refused = attributes.Set(stack, exact);
    if (refused != 0) {
        return refused;
    }
    stay_loaded();
    const auto thread = std::make_shared<Thread>();
    auto given = std::make_unique<Start>(Start{thread, start, argument});
    *handle = open_handle(thread);
    pthread_t host_thread;
    const int error = pthread_create(&host_thread, attributes.Get(), run, given.get());
    if (error != 0) {
        CloseHandle(*handle);
        return error;
    }
    given.release();
    if (id != nullptr) {
        *id = thread->Id();
    }
    return 0;
}

std::shared_ptr<Thread> find_thread(HANDLE handle) {
    auto thread = std::dynamic_pointer_cast<Thread>(find_waitable(handle));
    if (thread == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return thread;
}

}  // namespace

ThreadState &this_thread() noexcept {
    return t_state;
}

Thread::Thread() : Waitable(SignalKind::kEnd) {
    const std::lock_guard lock(threads().mutex);
    m_next = threads().first;
    if (m_next != nullptr) {
        m_next->m_previous = this;
    }
    threads().first = this;
}

Thread::~Thread() {
    const std::lock_guard lock(threads().mutex);
    (m_previous != nullptr ? m_previous->m_next : threads().first) = m_next;
    if (m_next != nullptr) {
        m_next->m_previous = m_previous;
    }
}

bool Thread::End(DWORD code) noexcept {
    std::uint64_t running = kRunning;
    if (!m_exit.compare_exchange_strong(running, code)) {
        return false;
    }
    Signal();
    return true;
}

DWORD Thread::ExitCode() const noexcept {
    const std::uint64_t code = m_exit.load();
    return code == kRunning ? STILL_ACTIVE : static_cast<DWORD>(code);
}

DWORD Thread::Id() const noexcept {
    std::uint32_t id = m_id.load(std::memory_order_acquire);
    for (; id == 0; id = m_id.load(std::memory_order_acquire)) {
        futex_wait(reinterpret_cast<const std::uint32_t *>(&m_id), 0);
    }
    return id;
}

void Thread::SetId(DWORD id) noexcept {
    m_id.store(id, std::memory_order_release);
    futex_wake(reinterpret_cast<const std::uint32_t *>(&m_id), 1);
}

void Thread::EndOthers() noexcept {
    for (Thread *thread = threads().first; thread != nullptr; thread = thread->m_next) {
        if (thread != t_state.thread) {
            std::uint64_t running = kRunning;
            thread->m_exit.compare_exchange_strong(running, 0);
            thread->Cell().word.fetch_or(1);  // nobody waits in the child
        }
    }
}

void stop_this_thread() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    const std::uint32_t never = 0;
    for (;;) {
        futex_wait(&never, 0);
    }
}

}  // namespace ostrel_platform

namespace {

using ostrel_platform::find_thread;
using ostrel_platform::start_thread;
using ostrel_platform::stop_this_thread;
using ostrel_platform::this_thread;

}  // namespace

HANDLE CreateThread(SECURITY_ATTRIBUTES * /*security*/, std::size_t stack,
                    LPTHREAD_START_ROUTINE start, LPVOID argument, DWORD flags,
                    DWORD *id) noexcept {
    HANDLE handle = nullptr;
    DWORD code = ERROR_NOT_ENOUGH_MEMORY;
    if ((flags & CREATE_SUSPENDED) != 0) {
        code = ERROR_NOT_SUPPORTED;
    } else if (start == nullptr || (flags & ~STACK_SIZE_PARAM_IS_A_RESERVATION) != 0) {
        code = ERROR_INVALID_PARAMETER;
    } else {
        try {
            if (start_thread(start, argument, stack, flags != 0, id, &handle) == 0) {
                return handle;
            }
        } catch (const std::bad_alloc &) {
        }
    }
    SetLastError(code);
    return nullptr;
}

std::uintptr_t _beginthreadex(void * /*security*/, unsigned stack, unsigned (*start)(void *),
                              void *argument, unsigned flags, unsigned *id) noexcept {
    if (start == nullptr || (flags & ~STACK_SIZE_PARAM_IS_A_RESERVATION) != 0) {
        errno = EINVAL;
        return start == nullptr ? ~std::uintptr_t{0} : 0;
    }
    HANDLE handle = nullptr;
    int error = ENOMEM;
    try {
        error = start_thread(start, argument, stack, flags != 0, id, &handle);
    } catch (const std::bad_alloc &) {
    }
    if (error != 0) {
        errno = error;
        return 0;
    }
    return reinterpret_cast<std::uintptr_t>(handle);
}

BOOL TerminateThread(HANDLE handle, DWORD code) noexcept {
    const auto thread = find_thread(handle);
    if (thread == nullptr) {
        return FALSE;
    }
    thread->End(code);
    if (thread.get() == this_thread().thread) {
        stop_this_thread();
    }
    return TRUE;
}

BOOL GetExitCodeThread(HANDLE handle, DWORD *code) noexcept {
    const auto thread = find_thread(handle);
    if (thread == nullptr) {
        return FALSE;
    }
    if (code == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *code = thread->ExitCode();
    return TRUE;
}

DWORD GetCurrentThreadId() noexcept {
    return static_cast<DWORD>(gettid());
}
