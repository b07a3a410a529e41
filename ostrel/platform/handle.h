#ifndef OSTREL_PLATFORM_HANDLE_H
#define OSTREL_PLATFORM_HANDLE_H

// Closes the handles whose family has no call of its own for that: those of files, events,
// semaphores, threads and processes.
//
//   const HANDLE file = CreateFileW(TEXT("list.txt"), GENERIC_READ, FILE_SHARE_READ, nullptr,
//                                   OPEN_EXISTING, 0, nullptr);  // file.h
//   if (file != INVALID_HANDLE_VALUE) {
//       CloseHandle(file);
//   }
//
// Implemented with close. A handle is an index into a table and a generation count, so the layer
// refuses a stale or foreign value.
//
// Forks. The child of a fork may use every call of the layer, also when the program has threads.
// The child must not use a file, search or stream that another thread was using at the fork. What
// the child closes stays open in the parent.
//
// Cancellation. No call of the layer is a cancellation point. A request of pthread_cancel waits for
// the end of the call, also of a ReadFile that waits for a FIFO's writer, and takes effect at the
// thread's next cancellation point: every call completes, and its locks are free afterwards. The
// thread's cancellation type must be the deferred one, which is the default. fread, fwrite, fclose
// and the host's other calls on a stream of _wfopen wait in the same way.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// Closes a handle of CreateFileW, CreateEventW, CreateSemaphoreW, CreateThread, _beginthreadex,
// CreateProcessW or OpenProcess. A call that already uses the handle on another thread completes
// normally, and the host's file is closed after it; sync.h says what becomes of a wait. An error of
// the host's close is not reported.
//
// Returns TRUE. For any other value, such as null, INVALID_HANDLE_VALUE, a closed handle or a
// handle of another family, has no effect, returns FALSE and sets the last error to
// ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API BOOL CloseHandle(HANDLE handle) noexcept;

#endif

#endif  // OSTREL_PLATFORM_HANDLE_H
