#ifndef OSTREL_SERVICE_SERVICEMANAGER_H
#define OSTREL_SERVICE_SERVICEMANAGER_H

// Ends processes by their name.
//
//   if (!KillProcess(TEXT("agent.exe"))) {
//       Report("agent still runs, or did not run");
//   }

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

// Ends all processes whose program has the name `processName`, whatever its case, and waits for
// the command that does so, without a limit:
//
//   CMD.exe /C "taskkill /im "<processName>" /F "
//
// Returns true when the command exits with 0, which means that it has ended at least one process,
// and every process of that name that it found. Returns false when there was none, when one could
// not be ended, when the command could not be started, and when its exit code could not be read.
// Trace lines tell which; nothing is thrown.
//
// The name is not examined. A command line of more than 16383 characters is cut, and the command
// then refuses to work. A null `processName` is the name "(null)".
//
// Threads: the call may run on any thread.
// Platform: off Windows the layer's own programs do this (ostrel/platform/process.h). The name is
// that of a file with or without ".exe": for a script its interpreter's. Nothing in it has a
// meaning, whatever characters it holds. The calling process, its parents and process 1 are spared.
OSTREL_API bool KillProcess(const WCHAR *processName) noexcept;

#endif  // OSTREL_SERVICE_SERVICEMANAGER_H
