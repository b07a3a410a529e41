#include "ostrel/platform/registry/page_faults.h"

#include <sys/mman.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>

namespace ostrel_platform {
namespace {

struct Guarded {
    std::atomic<std::uintptr_t> address{0};
    std::atomic<std::size_t> size{0};
};

constinit Guarded s_guarded[1024];
constinit std::mutex s_mutex;
struct sigaction s_before;  // set before the handler is installed
bool s_installed = false;

bool replace_mapping(std::uintptr_t fault) noexcept {
    for (const Guarded &guarded : s_guarded) {
        const std::uintptr_t begin = guarded.address.load(std::memory_order_acquire);
        const std::size_t size = guarded.size.load(std::memory_order_acquire);
        if (begin != 0 && fault >= begin && fault < begin + size) {
            return mmap(reinterpret_cast<void *>(begin), size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
        }
    }
    return false;
}

void on_fault(int signal, siginfo_t *info, void *context) {
    const int saved_errno = errno;
    const bool is_replaced = replace_mapping(reinterpret_cast<std::uintptr_t>(info->si_addr));
    errno = saved_errno;
    if (is_replaced) {
        return;
    }
    if ((s_before.sa_flags & SA_SIGINFO) != 0) {
        s_before.sa_sigaction(signal, info, context);
    } else if (s_before.sa_handler != SIG_DFL && s_before.sa_handler != SIG_IGN) {
        s_before.sa_handler(signal);
    } else {
        std::signal(signal, SIG_DFL);  // the access faults again and ends the process
    }
}

// The handler must not outlive the library (dlclose).
struct HandlerScope {
    ~HandlerScope() { remove_fault_handler(); }
};
[[maybe_unused]] const HandlerScope s_scope;

}  // namespace

bool guard_mapping(void *address, std::size_t size) noexcept {
    const std::lock_guard lock(s_mutex);
    if (!s_installed) {
        struct sigaction action {};
        action.sa_sigaction = on_fault;
        action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
        sigemptyset(&action.sa_mask);
        s_installed =
            sigaction(SIGBUS, nullptr, &s_before) == 0 && sigaction(SIGBUS, &action, nullptr) == 0;
    }
    for (Guarded &guarded : s_guarded) {
        if (guarded.address.load(std::memory_order_relaxed) == 0) {
            guarded.size.store(size, std::memory_order_relaxed);
            guarded.address.store(reinterpret_cast<std::uintptr_t>(address),
                                  std::memory_order_release);
            return true;
        }
    }
    return false;
}

void remove_fault_handler() noexcept {
    const std::lock_guard lock(s_mutex);
    struct sigaction now {};
    if (s_installed && sigaction(SIGBUS, nullptr, &now) == 0 && (now.sa_flags & SA_SIGINFO) != 0 &&
        now.sa_sigaction == on_fault) {
        sigaction(SIGBUS, &s_before, nullptr);
        s_installed = false;
    }
}

}  // namespace ostrel_platform
