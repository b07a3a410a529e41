// RegNotifyChangeKeyValue.

#include "ostrel/platform/handle.h"
#include "ostrel/platform/registry/registry_call.h"
#include "ostrel/platform/registry/watch.h"
#include "ostrel/platform/sync.h"

namespace ostrel_platform {
namespace {

constexpr DWORD kFilters = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_ATTRIBUTES |
                           REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_CHANGE_SECURITY;

// Whether the key behind a handle still exists, from the cache where possible.
DWORD check_not_deleted(HKEY handle, const KeyPointer &key) {
    KeyView view;
    if (const DWORD code = view_key(handle, 0, &view)) {
        return code;
    }
    KeyPointer found;
    DWORD code = ERROR_SUCCESS;
    return find_cached_key(view, {}, &found, &code) ? code : find_key(key, {}, &found);
}

// A root is watched for as long as the process lives: it cannot be closed.
std::shared_ptr<Watch> watch_of_root(const KeyPointer &root,
                                     const std::shared_ptr<Watch> &candidate) {
    static auto *const watches = new std::vector<std::pair<KeyPointer, std::shared_ptr<Watch>>>;
    const std::lock_guard lock(Watch::Mutex());
    for (const auto &[known, watch] : *watches) {
        if (known == root) {
            return watch;
        }
    }
    watches->emplace_back(root, candidate);
    return candidate;
}

DWORD arm(HKEY handle, bool has_subtree, DWORD filter, std::shared_ptr<Waitable> event) {
    OpenKey open;
    if (const DWORD code = find_open_key(handle, KEY_NOTIFY, &open)) {
        return code;
    }
    const auto candidate = std::make_shared<Watch>(open.key, has_subtree, filter & kFilters);
    // After the watch begins, so that a deletion is either seen here or reported.
    if (const DWORD code = check_not_deleted(handle, open.key)) {
        return code;
    }
    const std::shared_ptr<Watch> watch = open.is_root
                                             ? watch_of_root(open.key, candidate)
                                             : KeyHandles::Instance().WatchOf(handle, candidate);
    return watch == nullptr
               ? ERROR_INVALID_HANDLE
               : Watch::Arm(watch, std::move(event), (filter & REG_NOTIFY_THREAD_AGNOSTIC) == 0);
}

DWORD arm_and_wait(HKEY handle, bool has_subtree, DWORD filter) {
    const DWORD last_error = GetLastError();
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (event == nullptr) {
        SetLastError(last_error);
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    DWORD code = ERROR_NOT_ENOUGH_MEMORY;
    try {
        code = arm(handle, has_subtree, filter, find_event(event));
    } catch (...) {
        CloseHandle(event);
        throw;
    }
    if (code == ERROR_SUCCESS && WaitForSingleObject(event, INFINITE) != WAIT_OBJECT_0) {
        code = GetLastError();
    }
    CloseHandle(event);
    return code;
}

}  // namespace
}  // namespace ostrel_platform

using namespace ostrel_platform;

LSTATUS RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event,
                                BOOL asynchronous) noexcept {
    return registry_call(key, KEY_NOTIFY, [&](const KeyView &) -> DWORD {
        if ((filter & kFilters) == 0 || (filter & ~(kFilters | REG_NOTIFY_THREAD_AGNOSTIC)) != 0 ||
            (asynchronous != FALSE && event == nullptr)) {
            return ERROR_INVALID_PARAMETER;
        }
        if (asynchronous == FALSE) {
            return arm_and_wait(key, subtree != FALSE, filter);
        }
        const DWORD last_error = GetLastError();
        std::shared_ptr<Waitable> found = find_event(event);
        SetLastError(last_error);
        return found == nullptr ? ERROR_INVALID_HANDLE
                                : arm(key, subtree != FALSE, filter, std::move(found));
    });
}
