#include "ostrel/platform/process/process_object.h"

#include <poll.h>

#include "ostrel/platform/error.h"

namespace ostrel_platform {

bool HostProcess::HasEnded() const noexcept {
    pollfd end = {m_descriptor.Get(), POLLIN, 0};
    return poll(&end, 1, 0) > 0;
}

DWORD find_process(HANDLE handle, DWORD access, std::shared_ptr<Process> *process) {
    *process = std::dynamic_pointer_cast<Process>(find_waitable(handle));
    if (*process == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    return (*process)->Allows(access) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

}  // namespace ostrel_platform
