#ifndef OSTREL_PLATFORM_ERRNO_CODE_H
#define OSTREL_PLATFORM_ERRNO_CODE_H

// Internal. The one table from the host's errno to the system's error codes.

#include "ostrel/platform/types.h"

namespace platform {

// ERROR_GEN_FAILURE (31) for an errno that has no counterpart.
DWORD code_of_errno(int error) noexcept;

}  // namespace platform

#endif  // OSTREL_PLATFORM_ERRNO_CODE_H
