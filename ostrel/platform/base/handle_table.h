#ifndef OSTREL_PLATFORM_BASE_HANDLE_TABLE_H
#define OSTREL_PLATFORM_BASE_HANDLE_TABLE_H

// Internal. The handles of the layer: each is an index into a table and a generation count.
//
// A handle is a multiple of 4, not an address. A stale or foreign handle gives
// ERROR_INVALID_HANDLE. A call that uses an object keeps the object alive while another thread
// closes its handle.
//
//   HandleTable &table = HandleTable::Instance();
//   const std::uintptr_t handle = table.Open(HandleKind::kFind, std::move(search));
//   if (const auto object = table.Find(HandleKind::kFind, handle)) ...
//   table.Close(HandleKind::kFind, handle);

#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <vector>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// The call that closes a handle.
enum class HandleKind : std::uint8_t {
    kObject,   // CloseHandle
    kFind,     // FindClose
    kCrtFind,  // _findclose
    kModule,   // FreeLibrary
    kService,  // CloseServiceHandle
};

// An object that a handle stands for. Its destructor runs on the thread that closes the handle, or
// on the last thread that still uses the object.
class HandleObject {
public:
    virtual ~HandleObject() = default;
};

// The table of the process.
//
// Ownership: an open handle owns a share of its object.
// Threads: every call may run on any thread.
// Errors: Open throws std::bad_alloc.
class HandleTable {
public:
    static HandleTable &Instance();

    // Returns a new handle for `object`. The handle is neither 0 nor -1 and survives a conversion
    // to any handle type.
    std::uintptr_t Open(HandleKind kind, std::shared_ptr<HandleObject> object);

    // Returns the object of a handle. On failure, when no handle of this kind with this value is
    // open, returns null and sets the last error to ERROR_INVALID_HANDLE.
    std::shared_ptr<HandleObject> Find(HandleKind kind, std::uintptr_t handle) const;

    // Closes a handle and returns true. On failure, when no handle of this kind with this value is
    // open, returns false and sets the last error to ERROR_INVALID_HANDLE.
    bool Close(HandleKind kind, std::uintptr_t handle);

private:
    struct Slot {
        std::shared_ptr<HandleObject> object;  // null while the slot is free
        std::uint32_t uses = 0;                // the generation: how many handles were closed here
        HandleKind kind = HandleKind::kObject;
    };

    // Returns the index of the slot of an open handle of this kind, or the number of slots.
    std::size_t IndexOf(HandleKind kind, std::uintptr_t handle) const;

    mutable std::shared_mutex m_mutex;
    std::vector<Slot> m_slots;
    std::vector<std::size_t> m_free;
};

// Closes a handle of one of the platform's opaque types, as Close does.
inline BOOL close_handle(HandleKind kind, const void *handle) {
    return HandleTable::Instance().Close(kind, reinterpret_cast<std::uintptr_t>(handle));
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_HANDLE_TABLE_H
