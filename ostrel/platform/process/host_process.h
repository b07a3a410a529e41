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

// Stores the name of the file that a process executes, an empty one when the process has none.
// Returns 0 or an errno: EACCES when this user may not look into the process.
int read_image_name(pid_t id, std::string *name);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PROCESS_HOST_PROCESS_H
