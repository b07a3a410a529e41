#ifndef OSTREL_PLATFORM_PROCESS_PROCESS_OBJECT_H
#define OSTREL_PLATFORM_PROCESS_PROCESS_OBJECT_H

// Internal. The object behind a handle of a process. All handles of one process share its pidfd,
// which means that process even when the host gives its id to another, and its exit code.

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/sync/waitable.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Threads: every call may run on any thread.
class HostProcess {
public:
    // Returns the object of a process, the one that exists or a new one. `descriptor` is a pidfd of
    // the process. Throws std::bad_alloc.
    static std::shared_ptr<HostProcess> Of(pid_t id, HostDescriptor descriptor);

    HostProcess(pid_t id, HostDescriptor descriptor) noexcept
        : m_id(id), m_descriptor(std::move(descriptor)) {}

    // An object for a process that is about to start, whose end the object takes from the host.
    HostProcess() noexcept : m_isOwn(true) {}
    // Gives such an object its process, once.
    static void Begin(const std::shared_ptr<HostProcess> &process, pid_t id,
                      HostDescriptor descriptor) noexcept;

    ~HostProcess();
    HostProcess(const HostProcess &) = delete;
    HostProcess &operator=(const HostProcess &) = delete;

    pid_t Id() const noexcept { return m_id; }
    int Descriptor() const noexcept { return m_descriptor.Get(); }

    // Whether the process has ended; its parent may not have noticed yet.
    bool HasEnded() const noexcept;

    // Stores the exit code, STILL_ACTIVE while the process runs. Returns 0 or an error code. For a
    // process that CreateProcessW has started, also lets the host forget a process that has ended.
    DWORD ReadExitCode(DWORD *code) noexcept;

    // Kills the process and keeps the code. Returns 0 or an error code.
    DWORD Terminate(DWORD code) noexcept;

private:
    enum class State { kRunning, kKnown, kUnknown };

    void Look() noexcept;
    void SetStatus(int status) noexcept;

    pid_t m_id = 0;
    HostDescriptor m_descriptor;
    const bool m_isOwn = false;

    // Under the lock of processes.
    State m_state = State::kRunning;
    DWORD m_code = 0;
    std::optional<DWORD> m_terminated;  // the code of TerminateProcess
};

// The lock of what this room knows of processes.
std::mutex &process_lock();

// Returns the exit code that stands for a signal (process.h).
DWORD code_of_signal(int signal) noexcept;

class Process : public Waitable {
public:
    // `name` is the process's name, if it is known.
    Process(std::shared_ptr<HostProcess> process, DWORD access,
            std::optional<std::string> name = std::nullopt)
        : Waitable(SignalKind::kEnd),
          m_process(std::move(process)),
          m_access(access),
          m_name(std::move(name)) {}

    int Descriptor() const noexcept override { return m_process->Descriptor(); }

    HostProcess &Host() const noexcept { return *m_process; }
    bool Allows(DWORD access) const noexcept { return (m_access & access) == access; }

    // Stores the name of the process, an empty one when the process has no program, or has ended
    // and the name is not sure or `must_run` is set. Returns 0 or an errno.
    int ReadName(bool must_run, std::string *name) const;

private:
    const std::shared_ptr<HostProcess> m_process;
    const DWORD m_access;
    const std::optional<std::string> m_name;
    // Whether `m_name`, which was found by the id, is known to be that of the process.
    mutable std::atomic<bool> m_isNameSure{false};
};

// Stores the process of a handle that has an access. Returns 0 or an error code.
DWORD find_process(HANDLE handle, DWORD access, std::shared_ptr<Process> *process);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PROCESS_PROCESS_OBJECT_H
