#include "ostrel/platform/process/spawn.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

// The host's clone under its other name. ThreadSanitizer wraps the one without underscores as if
// the child had memory of its own, and loses track of the parent's locks.
extern "C" int __clone(int (*run)(void *), void *stack, int flags, void *argument, ...);

namespace ostrel_platform {
namespace {

constexpr int kLastSignal = 64;
constexpr std::size_t kSignalSetSize = kLastSignal / 8;
constexpr unsigned kCloseOnExecution = 1 << 2;  // CLOSE_RANGE_CLOEXEC

struct Child {
    const SpawnRequest *request;
    int error;  // of what the child does before it executes the program
};

// Runs in the memory of the parent, on a stack of its own: calls nothing but the host, by numbers,
// because a sanitizer's wrapper of a call would note in the parent what the child does.
#define OSTREL_IN_CHILD __attribute__((no_sanitize("address", "thread", "undefined")))

OSTREL_IN_CHILD bool set_standard_descriptors(const int (&standard)[3]) {
    long above[3] = {-1, -1, -1};  // out of the way of each other
    for (int i = 0; i < 3; ++i) {
        if (standard[i] >= 0) {
            above[i] = syscall(SYS_fcntl, standard[i], F_DUPFD_CLOEXEC, 3);
            if (above[i] < 0) {
                return false;
            }
        }
    }
    for (int i = 0; i < 3; ++i) {
        if (above[i] >= 0 && syscall(SYS_dup3, above[i], i, 0) < 0) {
            return false;
        }
    }
    return true;
}

// Has the execution close all descriptors above 2.
OSTREL_IN_CHILD bool close_others_on_execution() {
    if (syscall(SYS_close_range, 3, ~0U, kCloseOnExecution) == 0) {
        return true;
    }
    // Hosts before Linux 5.11, and containers that refuse the call.
    const long folder =
        syscall(SYS_openat, AT_FDCWD, "/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    alignas(dirent64) char block[1024];
    long size;
    while ((size = syscall(SYS_getdents64, folder, block, sizeof block)) > 0) {
        for (long at = 0; at < size;) {
            const auto *const entry = reinterpret_cast<const dirent64 *>(block + at);
            at += entry->d_reclen;
            int descriptor = 0;
            for (const char *digit = entry->d_name; *digit >= '0' && *digit <= '9'; ++digit) {
                descriptor = 10 * descriptor + (*digit - '0');
            }
            if (descriptor > 2) {
                syscall(SYS_fcntl, descriptor, F_SETFD, FD_CLOEXEC);
            }
        }
    }
    return size == 0;
}

OSTREL_IN_CHILD int run_child(void *memory) {
    auto *const child = static_cast<Child *>(memory);
    const SpawnRequest &request = *child->request;
    // First the actions, then the mask: no handler of the parent may run here.
    const unsigned long default_action[8] = {};
    for (int signal = 1; signal <= kLastSignal; ++signal) {
        syscall(SYS_rt_sigaction, signal, default_action, nullptr, kSignalSetSize);
    }
    const unsigned long none = 0;
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, kSignalSetSize);
    // The directory may be open as one of the standard descriptors, where those were closed.
    if ((request.directory < 0 || syscall(SYS_fchdir, request.directory) == 0) &&
        set_standard_descriptors(request.standard) &&
        (!request.leads_group || syscall(SYS_setpgid, 0, 0) == 0) &&
        (request.keeps_descriptors || close_others_on_execution())) {
        syscall(SYS_execve, request.program, request.arguments, request.environment);
    }
    child->error = errno;
    syscall(SYS_exit_group, 127);
    return 0;
}

}  // namespace

int spawn(const SpawnRequest &request, pid_t *id, HostDescriptor *descriptor) noexcept {
    alignas(16) char stack[16384];
    Child child = {&request, 0};
    int pidfd = -1;
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    *id = __clone(run_child, stack + sizeof stack, CLONE_VM | CLONE_VFORK | CLONE_PIDFD | SIGCHLD,
                  &child, &pidfd);
    const int error = *id < 0 ? errno : child.error;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (*id < 0) {
        return error;
    }
    *descriptor = HostDescriptor(pidfd);
    if (error != 0) {
        siginfo_t end;
        while (waitid(P_PIDFD, static_cast<id_t>(pidfd), &end, WEXITED) != 0 && errno == EINTR) {
        }
    }
    return error;
}

}  // namespace ostrel_platform
