#ifndef OSTREL_PLATFORM_BASE_ERRNO_CODE_H
#define OSTREL_PLATFORM_BASE_ERRNO_CODE_H

// Internal. Turns the host's errno into one of the system's error codes, by the table in
// error_codes.inc.

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Returns the code of an errno, or ERROR_GEN_FAILURE (31) for an errno that the table lacks.
DWORD code_of_errno(int error) noexcept;

// Returns the code of an errno of a call on a path. ENOENT gives ERROR_FILE_NOT_FOUND, or
// ERROR_PATH_NOT_FOUND when stat fails for the folder of the path. Only ENOENT makes the call look
// at the folder.
DWORD code_of_path(int error, const char *host_path) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_ERRNO_CODE_H
