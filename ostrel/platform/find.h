#ifndef OSTREL_PLATFORM_FIND_H
#define OSTREL_PLATFORM_FIND_H

// Searches in directories.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <io.h>

#else

// Ends a search of FindFirstFileW. Result: TRUE, or FALSE with the last error ERROR_INVALID_HANDLE
// for a value that is no open search.
OSTREL_PLATFORM_API BOOL FindClose(HANDLE search) noexcept;

// Ends a search of the runtime's _wfindfirst family. Result: 0, or -1 with errno EINVAL for a value
// that is no open search.
OSTREL_PLATFORM_API int _findclose(std::intptr_t search) noexcept;

#endif

#endif  // OSTREL_PLATFORM_FIND_H
