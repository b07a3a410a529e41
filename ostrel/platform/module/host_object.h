#ifndef OSTREL_PLATFORM_MODULE_HOST_OBJECT_H
#define OSTREL_PLATFORM_MODULE_HOST_OBJECT_H

// Internal. Objects that the host's loader has opened, and what the loader says when it refuses.

#include <cstddef>
#include <memory>
#include <string>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

struct CloseHostObject {
    // Runs destructors of the object. One that throws ends the process.
    void operator()(void *object) const noexcept;
};

// Owns one opening of an object.
using HostObject = std::unique_ptr<void, CloseHostObject>;

// Opens an object with dlopen, which runs its constructors. `name` must not be empty; null is the
// program. Stores the object, or on failure keeps the loader's text for the thread. Returns 0 or an
// error code. An exception that leaves a constructor ends the process: the loader is in the middle
// of its work then, and nobody may catch it.
DWORD open_host_object(const char *name, int mode, HostObject *object) noexcept;

// Returns an object that is open already, by a name that the loader knows, or null. Keeps no text.
HostObject find_host_object(const char *name) noexcept;

// Returns the address at which an object is loaded, or null.
void *load_address_of(const HostObject &object) noexcept;

// The size of a kept text in bytes with the NUL; a longer one is cut.
inline constexpr std::size_t kLoaderMessageSize = 512;

// Return what open_host_object has kept for the thread, an empty text for none, and empty it.
const char *kept_loader_message() noexcept;
void forget_loader_message() noexcept;

// Whether the kept text says that the loader has found no file of a name without a folder.
bool is_missing_by_loader(const std::string &name) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_MODULE_HOST_OBJECT_H
