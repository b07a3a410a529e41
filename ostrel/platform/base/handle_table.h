#ifndef OSTREL_PLATFORM_BASE_HANDLE_TABLE_H
#define OSTREL_PLATFORM_BASE_HANDLE_TABLE_H

// Internal. The handles that the layer gives out.
//
// A handle is a number, not an address: a multiple of 4 that names a place in a table together with
// how often that place has been used. A handle that was closed, or never given out, is therefore
// told apart from every open one, and a call that is at work on an object keeps it alive while
// another thread closes its handle.

#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <vector>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Which call closes a handle.
enum class HandleKind : std::uint8_t {
    kObject,   // CloseHandle
    kFind,     // FindClose
    kCrtFind,  // _findclose
    kModule,   // FreeLibrary
    kService,  // CloseServiceHandle
};

// What a handle stands for. The destructor releases it, on the thread that closes the handle or on
// the last one that is still at work on it.
class HandleObject {
public:
    virtual ~HandleObject() = default;
};

// One table for the process. Safe from any thread.
class HandleTable {
public:
    static HandleTable &Instance();

    // Gives out a handle. It is neither 0 nor -1 and survives a conversion to any handle type.
    std::uintptr_t Open(HandleKind kind, std::shared_ptr<HandleObject> object);

    // The object of an open handle of this kind, or null with the last error ERROR_INVALID_HANDLE.
    std::shared_ptr<HandleObject> Find(HandleKind kind, std::uintptr_t handle) const;

    // Closes an open handle of this kind; false with the last error ERROR_INVALID_HANDLE when it is
    // none.
    bool Close(HandleKind kind, std::uintptr_t handle);

private:
    struct Slot {
        std::shared_ptr<HandleObject> object;  // null while the place is free
        std::uint32_t uses = 0;
        HandleKind kind = HandleKind::kObject;
    };

    // The place that an open handle of this kind names, or the number of places.
    std::size_t IndexOf(HandleKind kind, std::uintptr_t handle) const;

    mutable std::shared_mutex m_mutex;
    std::vector<Slot> m_slots;
    std::vector<std::size_t> m_free;
};

// Closes a handle that the caller holds as the platform's opaque type.
inline BOOL close_handle(HandleKind kind, const void *handle) {
    return HandleTable::Instance().Close(kind, reinterpret_cast<std::uintptr_t>(handle));
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_HANDLE_TABLE_H
