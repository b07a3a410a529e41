// The calls that close a handle: one for each kind.

#include <cerrno>

#include "ostrel/platform/error.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/handle_table.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/service.h"

using platform::HandleKind;

namespace {

BOOL close(HandleKind kind, const void *handle) {
    return platform::HandleTable::Instance().Close(kind, reinterpret_cast<std::uintptr_t>(handle));
}

}  // namespace

BOOL CloseHandle(HANDLE handle) noexcept {
    return close(HandleKind::kObject, handle);
}

BOOL FindClose(HANDLE search) noexcept {
    return close(HandleKind::kFind, search);
}

BOOL CloseServiceHandle(SC_HANDLE handle) noexcept {
    return close(HandleKind::kService, handle);
}

BOOL FreeLibrary(HMODULE module) noexcept {
    return close(HandleKind::kModule, module);
}

int _findclose(std::intptr_t search) noexcept {
    if (platform::HandleTable::Instance().Close(HandleKind::kCrtFind,
                                                static_cast<std::uintptr_t>(search))) {
        return 0;
    }
    errno = EINVAL;
    return -1;
}
