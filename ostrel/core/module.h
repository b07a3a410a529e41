#ifndef OSTREL_CORE_MODULE_H
#define OSTREL_CORE_MODULE_H

// Internal. The library's own module handle.

#include "ostrel/platform/types.h"

namespace OS {

// Returns the handle of the library, which is its load address.
HINSTANCE module_handle() noexcept;

// Keeps the library loaded until the process ends, for code that starts threads.
void keep_module_loaded() noexcept;

}  // namespace OS

#endif  // OSTREL_CORE_MODULE_H
