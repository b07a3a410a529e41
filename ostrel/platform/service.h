#ifndef OSTREL_PLATFORM_SERVICE_H
#define OSTREL_PLATFORM_SERVICE_H

// Control of the system's services.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// Closes a handle of the service manager or of a service. Result: TRUE, or FALSE with the last
// error ERROR_INVALID_HANDLE for a value that is no open handle of this kind.
OSTREL_PLATFORM_API BOOL CloseServiceHandle(SC_HANDLE handle) noexcept;

#endif

#endif  // OSTREL_PLATFORM_SERVICE_H
