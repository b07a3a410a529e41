#ifndef OSTREL_PLATFORM_MODULE_BUILT_IN_MODULE_H
#define OSTREL_PLATFORM_MODULE_BUILT_IN_MODULE_H

// Internal. Modules of the platform that the layer itself is: their calls are in this library, and
// no file of theirs exists. The handle of such a module is the address of its entry in a table.

#include "ostrel/platform/module.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Counts one load of the module that a name means, with or without ".DLL" and in any case. Returns
// its handle, or null when no module of the table has the name.
HMODULE load_built_in(const WCHAR *name) noexcept;

// Takes back one load. Returns false when the value is no handle of a loaded module of the table.
bool free_built_in(HMODULE module) noexcept;

// Whether the value is the handle of a loaded module of the table.
bool is_built_in(HMODULE module) noexcept;

// Returns a call of a loaded module of the table, or null when the module has no such call.
FARPROC find_built_in(HMODULE module, const char *name) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_MODULE_BUILT_IN_MODULE_H
