#ifndef OSTREL_PLATFORM_HANDLE_H
#define OSTREL_PLATFORM_HANDLE_H

// The end of the handles that have no call of their own family.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// Closes a handle. Result: TRUE, or FALSE with the last error ERROR_INVALID_HANDLE for a value that
// is no open handle of this kind; such a value does no harm. A call that is at work on the handle
// in another thread ends as if it were still open.
OSTREL_PLATFORM_API BOOL CloseHandle(HANDLE handle) noexcept;

#endif

#endif  // OSTREL_PLATFORM_HANDLE_H
