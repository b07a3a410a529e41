#include "ostrel/platform/process/process_object.h"

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>

#include <cstdint>
#include <map>
#include <new>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/base/never_destroyed.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/process/host_process.h"
#include "ostrel/platform/sync.h"

extern "C" {  // which older hosts leave out
#include <sys/pidfd.h>
}

namespace ostrel_platform {
namespace {

// The processes that have an object. An entry is removed by the destructor of its object.
std::map<pid_t, std::weak_ptr<HostProcess>> &processes() {
    static NeverDestroyed<std::map<pid_t, std::weak_ptr<HostProcess>>> table;
    return *table;
}

// What the host tells of the process of a pidfd (Linux 6.15, linux/pidfd.h).
struct PidfdInfo {
    std::uint64_t mask;
    std::uint64_t cgroup;
    std::uint32_t ids[11];
    std::int32_t exit_status;
};
constexpr std::uint64_t kInfoOfExit = 1 << 3;
constexpr unsigned long kGetInfo = _IOWR(0xFF, 11, PidfdInfo);

// Stores the wait status of a process that somebody else has waited for. Returns false when the
// host does not tell.
bool read_taken_status(int descriptor, int *status) {
    PidfdInfo info = {};
    info.mask = kInfoOfExit;
    if (ioctl(descriptor, kGetInfo, &info) != 0 || (info.mask & kInfoOfExit) == 0) {
        return false;
    }
    *status = info.exit_status;
    return true;
}

bool was_forgotten(int descriptor) {
    return pidfd_send_signal(descriptor, 0, nullptr, 0) != 0 && errno == ESRCH;
}

int status_of(const siginfo_t &end) {
    return end.si_code == CLD_EXITED ? (end.si_status & 0xFF) << 8 : end.si_status & 0x7F;
}

}  // namespace

std::mutex &process_lock() {
    static NeverDestroyed<std::mutex> mutex;
    [[maybe_unused]] static const bool registered =
        (register_fork_lock(ForkOrder::kProcesses, &*mutex), true);
    return *mutex;
}

std::shared_ptr<HostProcess> HostProcess::Of(pid_t id, HostDescriptor descriptor) {
    auto created = std::make_shared<HostProcess>(id, std::move(descriptor));
    std::shared_ptr<HostProcess> known;  // whose destructor needs the lock
    const std::lock_guard lock(process_lock());
    std::weak_ptr<HostProcess> &entry = processes()[id];
    known = entry.lock();
    // An id stays with a process until the host forgets the process.
    if (known != nullptr && !was_forgotten(known->Descriptor())) {
        return known;
    }
    entry = created;
    return created;
}

void HostProcess::Begin(const std::shared_ptr<HostProcess> &process, pid_t id,
                        HostDescriptor descriptor) noexcept {
    const std::lock_guard lock(process_lock());
    process->m_id = id;
    process->m_descriptor = std::move(descriptor);
    try {
        processes()[id] = process;
    } catch (const std::bad_alloc &) {
        // OpenProcess then makes an object of its own, without the code of TerminateProcess.
    }
}

HostProcess::~HostProcess() {
    const std::lock_guard lock(process_lock());
    const auto entry = processes().find(m_id);
    if (entry != processes().end() && entry->second.expired()) {
        processes().erase(entry);
    }
}

bool HostProcess::HasEnded() const noexcept {
    pollfd end = {m_descriptor.Get(), POLLIN, 0};
    return poll(&end, 1, 0) > 0;
}

DWORD HostProcess::ReadExitCode(DWORD *code) noexcept {
    const std::lock_guard lock(process_lock());
    const bool has_ended = HasEnded();  // before the look, which must find an end by then
    Look();
    if (m_state == State::kKnown) {
        *code = m_code;
        return ERROR_SUCCESS;
    }
    if (m_state == State::kRunning && !has_ended) {
        *code = STILL_ACTIVE;
        return ERROR_SUCCESS;
    }
    *code = m_terminated.value_or(0);
    return m_terminated ? ERROR_SUCCESS : ERROR_NOT_FOUND;
}

DWORD HostProcess::Terminate(DWORD code) noexcept {
    const std::lock_guard lock(process_lock());
    if (HasEnded()) {
        return ERROR_ACCESS_DENIED;
    }
    if (pidfd_send_signal(m_descriptor.Get(), SIGKILL, nullptr, 0) != 0) {
        return errno == ESRCH ? ERROR_ACCESS_DENIED : code_of_errno(errno);
    }
    m_terminated = m_terminated.value_or(code);
    return ERROR_SUCCESS;
}

// Takes the end of the process, if it has ended, into the object.
void HostProcess::Look() noexcept {
    if (m_state != State::kRunning) {
        return;
    }
    siginfo_t end = {};
    const int options = WEXITED | WNOHANG | (m_isOwn ? 0 : WNOWAIT);
    if (waitid(P_PIDFD, static_cast<id_t>(m_descriptor.Get()), &end, options) == 0) {
        if (end.si_pid != 0) {
            SetStatus(status_of(end));
        }
        return;
    }
    // No child of this process, or no more: somebody else has waited for it, or nobody had to.
    if (!HasEnded()) {
        return;
    }
    // The host tells a moment after it has given the end to the one who waits.
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const bool is_last = was_forgotten(m_descriptor.Get());
        int status = 0;
        if (read_taken_status(m_descriptor.Get(), &status)) {
            SetStatus(status);
            return;
        }
        if (is_last) {
            m_state = State::kUnknown;
        }
        if (is_last || !m_isOwn) {
            return;
        }
        sched_yield();
    }
}

void HostProcess::SetStatus(int status) noexcept {
    m_state = State::kKnown;
    if (WIFEXITED(status)) {
        m_code = static_cast<DWORD>(WEXITSTATUS(status));
    } else if (WTERMSIG(status) == SIGKILL && m_terminated) {
        m_code = *m_terminated;
    } else {
        m_code = code_of_signal(WTERMSIG(status));
    }
}

DWORD code_of_signal(int signal) noexcept {
    switch (signal) {
        case SIGSEGV:
        case SIGBUS:
            return 0xC0000005;  // an access violation
        case SIGILL:
            return 0xC000001D;  // an illegal instruction
        case SIGFPE:
            return 0xC0000094;  // a division by zero
        case SIGINT:
            return 0xC000013A;  // Ctrl-C
        default:
            return 0xE0000000 + static_cast<DWORD>(signal);
    }
}

int Process::ReadName(bool must_run, std::string *name) const {
    if (!must_run && m_isNameSure.load(std::memory_order_acquire)) {
        *name = *m_name;
        return 0;
    }
    if (m_name) {
        *name = *m_name;
    } else if (const int error = read_image_name(m_process->Id(), name)) {
        return error;
    }
    // An id that belongs to another process by now is that of a process which has ended.
    if (m_process->HasEnded()) {
        name->clear();
    } else if (m_name) {
        m_isNameSure.store(true, std::memory_order_release);
    }
    return 0;
}

DWORD find_process(HANDLE handle, DWORD access, std::shared_ptr<Process> *process) {
    *process = std::dynamic_pointer_cast<Process>(find_waitable(handle));
    if (*process == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    return (*process)->Allows(access) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

}  // namespace ostrel_platform
