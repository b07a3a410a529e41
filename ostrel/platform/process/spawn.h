#ifndef OSTREL_PLATFORM_PROCESS_SPAWN_H
#define OSTREL_PLATFORM_PROCESS_SPAWN_H

// Internal. Starts a program with one call of the host that also gives the pidfd, so that no
// handler of SIGCHLD can make the id another process's meanwhile. The new process shares the memory
// of this one until it executes the program, while the calling thread waits, so the time does not
// grow with the memory of this process.

#include <sys/types.h>

#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {

struct SpawnRequest {
    const char *program;
    char *const *arguments;
    char *const *environment;
    int directory = -1;              // an open directory, or -1 for the current one
    int standard[3] = {-1, -1, -1};  // descriptors for 0 to 2, or -1 for those of this process
    bool keeps_descriptors = false;  // those above 2 that are not closed on execution
    bool leads_group = false;
};

// Starts a program, with no signal blocked and all signals at their default actions. Stores the id
// and the pidfd. Returns 0 or an errno, that of the execution too.
int spawn(const SpawnRequest &request, pid_t *id, HostDescriptor *descriptor) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PROCESS_SPAWN_H
