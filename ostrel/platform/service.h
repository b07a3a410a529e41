#ifndef OSTREL_PLATFORM_SERVICE_H
#define OSTREL_PLATFORM_SERVICE_H

// Handles of the system's services.
//
//   const SC_HANDLE service = nullptr;
//   if (CloseServiceHandle(service) == FALSE) {
//       report(GetLastError());  // error.h; ERROR_INVALID_HANDLE
//   }
//
// Implemented with the layer's table of handles; no host call.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// Closes a handle of the service manager or of a service. The layer has no call that opens such a
// handle. For a value that is no open handle of this kind, which is every value, has no effect,
// returns FALSE and sets the last error to ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API BOOL CloseServiceHandle(SC_HANDLE handle) noexcept;

#endif

#endif  // OSTREL_PLATFORM_SERVICE_H
