#ifndef OSTREL_PLATFORM_PROCESS_HOST_PROCESS_H
#define OSTREL_PLATFORM_PROCESS_HOST_PROCESS_H

// Internal. What /proc says of a process.

#include <sys/types.h>

#include <span>
#include <string>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Stores the ids of the processes, as many as fit, and their number. Returns 0 or an errno.
int list_processes(std::span<DWORD> ids, std::size_t *count) noexcept;

// The path of a file below /proc/<id>/.
class ProcessFile {
public:
    ProcessFile(pid_t id, const char *name) noexcept;
    operator const char *() const noexcept { return m_path; }

private:
    char m_path[32];
};

// Whether this user may look into a process. Returns 0 or an errno. Not the process's own state but
// the host's permission counts: a process without a program is fine.
int check_process_read(pid_t id) noexcept;

// Stores the name of the file that a process executes. Returns 0 or an errno: ENOENT when the
// process has none.
int read_image_name(pid_t id, std::string *name);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PROCESS_HOST_PROCESS_H
