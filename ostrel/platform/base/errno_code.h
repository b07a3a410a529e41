#ifndef OSTREL_PLATFORM_BASE_ERRNO_CODE_H
#define OSTREL_PLATFORM_BASE_ERRNO_CODE_H

// Internal. The one table from the host's errno to the system's error codes.

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// ERROR_GEN_FAILURE (31) for an errno that has no counterpart.
DWORD code_of_errno(int error) noexcept;

// The same for a call on a path: a missing file is ERROR_FILE_NOT_FOUND, and ERROR_PATH_NOT_FOUND
// when the folder that it would be in is missing too. That is looked at only here.
DWORD code_of_path(int error, const char *host_path) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_ERRNO_CODE_H
