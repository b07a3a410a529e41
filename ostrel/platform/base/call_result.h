#ifndef OSTREL_PLATFORM_BASE_CALL_RESULT_H
#define OSTREL_PLATFORM_BASE_CALL_RESULT_H

// Internal. How a call of the platform reports its failure. Each helper runs the body of a call,
// which returns 0 or an error, without cancellation; std::bad_alloc becomes the family's code for
// missing memory.

#include <cerrno>
#include <new>

#include "ostrel/platform/base/no_cancellation.h"
#include "ostrel/platform/error.h"

namespace ostrel_platform {

// Runs a body that returns an error code of the system. Returns that code.
template <class Body>
DWORD code_of_call(Body body) noexcept {
    const NoCancellation uncancelled;
    try {
        return body();
    } catch (const std::bad_alloc &) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

// The same for a call of the system. Returns TRUE. On failure returns FALSE and sets the last
// error.
template <class Body>
BOOL call_result(Body body) noexcept {
    const DWORD code = code_of_call(body);
    if (code != ERROR_SUCCESS) {
        SetLastError(code);
    }
    return code == ERROR_SUCCESS;
}

// Runs a body that returns an errno, for a call of the runtime. Returns 0. On failure returns -1
// and sets errno.
template <class Body>
int crt_result(Body body) noexcept {
    const NoCancellation uncancelled;
    const int saved_errno = errno;
    int error = ENOMEM;
    try {
        error = body();
    } catch (const std::bad_alloc &) {
    }
    errno = error != 0 ? error : saved_errno;
    return error == 0 ? 0 : -1;
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_CALL_RESULT_H
