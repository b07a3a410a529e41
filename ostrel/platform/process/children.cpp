#include "ostrel/platform/process/children.h"

#include <signal.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <utility>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/fork_generation.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/base/never_destroyed.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/sync.h"

namespace ostrel_platform {
namespace {

// Under the lock of processes. Objects of processes are destroyed without it.
struct Children {
    std::uint64_t generation = 0;  // of the process that the rest belongs to
    int epoll = -1;                // of the thread
    ChildEntry watched;            // those that the thread waits for
    ChildEntry unwatched;          // those that the host could not add to the epoll
};

Children &children() {
    static NeverDestroyed<Children> all;
    return *all;
}

// Takes the ends of the processes that have one, and moves them out of the list.
void take_ends(ChildEntry *list, ChildEntry *ended) noexcept {
    for (auto next = list->begin(); next != list->end();) {
        const auto child = next++;
        if ((*child)->HasEnded()) {
            ended->splice(ended->end(), *list, child);
        }
    }
}

void forget(const ChildEntry &ended) noexcept {
    for (const auto &child : ended) {
        DWORD code;
        child->ReadExitCode(&code);
    }
}

[[noreturn]] void wait_for_children(int epoll) noexcept {
    for (;;) {
        epoll_event event;
        if (epoll_wait(epoll, &event, 1, -1) <= 0) {
            continue;
        }
        ChildEntry ended;
        {
            const std::lock_guard lock(process_lock());
            ChildEntry &all = children().watched;
            const auto child = std::find_if(all.begin(), all.end(), [&event](const auto &each) {
                return each->Descriptor() == event.data.fd;
            });
            epoll_ctl(epoll, EPOLL_CTL_DEL, event.data.fd, nullptr);
            if (child != all.end()) {
                ended.splice(ended.end(), all, child);
            }
        }
        forget(ended);
    }
}

DWORD run_thread(LPVOID epoll) {
    wait_for_children(static_cast<int>(reinterpret_cast<std::intptr_t>(epoll)));
}

DWORD start_thread(int epoll) {
    sigset_t all, before;  // the host's signals are for the threads of the program
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const HANDLE thread =
        CreateThread(nullptr, 0, run_thread,
                     reinterpret_cast<LPVOID>(static_cast<std::intptr_t>(epoll)), 0, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (thread == nullptr) {
        return GetLastError();
    }
    CloseHandle(thread);
    return ERROR_SUCCESS;
}

}  // namespace

DWORD prepare_children() {
    ChildEntry of_parent, ended;  // destroyed without the lock
    DWORD code = ERROR_SUCCESS;
    {
        const std::lock_guard lock(process_lock());
        Children &all = children();
        if (all.generation != fork_generation()) {
            // What a fork has copied belongs to the parent, whose epoll must stay as it is.
            of_parent.splice(of_parent.end(), all.watched);
            of_parent.splice(of_parent.end(), all.unwatched);
            const HostDescriptor inherited(std::exchange(all.epoll, -1));
            HostDescriptor epoll(epoll_create1(EPOLL_CLOEXEC));
            code = epoll ? start_thread(epoll.Get()) : code_of_errno(errno);
            if (code == ERROR_SUCCESS) {
                all.epoll = epoll.Release();
                all.generation = fork_generation();
            }
        }
        take_ends(&all.unwatched, &ended);
    }
    forget(ended);
    return code;
}

void add_child(ChildEntry entry) noexcept {
    const std::lock_guard lock(process_lock());
    Children &all = children();
    const int descriptor = entry.front()->Descriptor();
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    const bool is_watched = epoll_ctl(all.epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
    ChildEntry &list = is_watched ? all.watched : all.unwatched;
    list.splice(list.end(), entry);
}

}  // namespace ostrel_platform
