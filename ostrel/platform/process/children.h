#ifndef OSTREL_PLATFORM_PROCESS_CHILDREN_H
#define OSTREL_PLATFORM_PROCESS_CHILDREN_H

// Internal. Takes the end of each process that CreateProcessW has started from the host, so that
// none stays as a zombie, whenever its handles are closed. A thread of the layer, which starts with
// the first such process, waits for the ends.

#include <list>
#include <memory>

#include "ostrel/platform/process/process_object.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// An entry for a process that is about to start.
using ChildEntry = std::list<std::shared_ptr<HostProcess>>;

// Starts the thread, when it does not run in this process. Returns 0 or an error code.
DWORD prepare_children();

// Has the thread wait for the process in the entry, which has one.
void add_child(ChildEntry entry) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PROCESS_CHILDREN_H
