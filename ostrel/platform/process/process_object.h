#ifndef OSTREL_PLATFORM_PROCESS_PROCESS_OBJECT_H
#define OSTREL_PLATFORM_PROCESS_PROCESS_OBJECT_H

// Internal. The object behind a handle of a process. All handles of one process share its pidfd,
// which means that process even when the host gives its id to another.

#include <sys/types.h>

#include <memory>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/sync/waitable.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

class HostProcess {
public:
    // `descriptor` is the process's pidfd.
    HostProcess(pid_t id, HostDescriptor descriptor) noexcept
        : m_id(id), m_descriptor(std::move(descriptor)) {}

    pid_t Id() const noexcept { return m_id; }
    int Descriptor() const noexcept { return m_descriptor.Get(); }

    // Whether the process has ended; its parent may not have noticed yet.
    bool HasEnded() const noexcept;

private:
    const pid_t m_id;
    const HostDescriptor m_descriptor;
};

class Process : public Waitable {
public:
    Process(std::shared_ptr<HostProcess> process, DWORD access)
        : Waitable(SignalKind::kEnd), m_process(std::move(process)), m_access(access) {}

    int Descriptor() const noexcept override { return m_process->Descriptor(); }

    HostProcess &Host() const noexcept { return *m_process; }
    bool Allows(DWORD access) const noexcept { return (m_access & access) == access; }

private:
    const std::shared_ptr<HostProcess> m_process;
    const DWORD m_access;
};

// Stores the process of a handle that has an access. Returns 0 or an error code.
DWORD find_process(HANDLE handle, DWORD access, std::shared_ptr<Process> *process);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PROCESS_PROCESS_OBJECT_H
