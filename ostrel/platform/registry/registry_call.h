#ifndef OSTREL_PLATFORM_REGISTRY_REGISTRY_CALL_H
#define OSTREL_PLATFORM_REGISTRY_REGISTRY_CALL_H

// Internal. What the calls of registry.h share: how failures become codes, and rights of handles.

#include <cerrno>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/registry/key_handles.h"

namespace ostrel_platform {

inline constexpr DWORD kDelete = 0x10000;
inline constexpr DWORD kViewFlags = KEY_WOW64_64KEY | KEY_WOW64_32KEY;

// Runs the body of a call, which returns a code. Leaves errno as it is.
template <class Body>
LSTATUS registry_call(Body body) noexcept {
    const int saved_errno = errno;
    const DWORD code = code_of_call([&]() -> DWORD {
        try {
            return body();
        } catch (const StoreFailure &failure) {
            return failure.code;
        }
    });
    errno = saved_errno;
    return static_cast<LSTATUS>(code);
}

inline bool has_both_views(DWORD access) {
    return (access & kViewFlags) == kViewFlags;
}

// Stores what a fast read needs of a handle that has a right. Returns a code.
inline DWORD view_key(HKEY handle, DWORD right, KeyView *view) {
    if (!KeyHandles::Instance().View(handle, view)) {
        return ERROR_INVALID_HANDLE;
    }
    return (view->access & right) == right ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

// The same as registry_call above, for a body that takes what a fast read needs of a handle.
template <class Body>
LSTATUS registry_call(HKEY handle, DWORD right, Body body) noexcept {
    return registry_call([&]() -> DWORD {
        KeyView view;
        const DWORD code = view_key(handle, right, &view);
        return code != ERROR_SUCCESS ? code : body(view);
    });
}

// Stores what an operation on the store needs of a handle that has some rights. Returns a code.
inline DWORD find_open_key(HKEY handle, DWORD rights, OpenKey *open) {
    if (!KeyHandles::Instance().Find(handle, open)) {
        return ERROR_INVALID_HANDLE;
    }
    return (open->access & rights) == rights ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

// Ends an operation on a key that has been deleted in the store.
inline DWORD check_exists(Database &database, const Key &key) {
    return key_exists(database, key.id) ? ERROR_SUCCESS : ERROR_KEY_DELETED;
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_REGISTRY_CALL_H
