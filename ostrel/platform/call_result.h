#ifndef OSTREL_PLATFORM_CALL_RESULT_H
#define OSTREL_PLATFORM_CALL_RESULT_H

// Internal. How a call of the platform tells its failure.

#include <new>

#include "ostrel/platform/error.h"

namespace platform {

// Runs the body of a call, which gives 0 or an error code. Result: TRUE, or FALSE with the last
// error; memory that is missing is such a failure.
template <class Body>
BOOL call_result(Body body) noexcept {
    DWORD code = ERROR_NOT_ENOUGH_MEMORY;
    try {
        code = body();
    } catch (const std::bad_alloc &) {
    }
    if (code != ERROR_SUCCESS) {
        SetLastError(code);
    }
    return code == ERROR_SUCCESS;
}

}  // namespace platform

#endif  // OSTREL_PLATFORM_CALL_RESULT_H
