#ifndef OSTREL_CORE_MODULE_H
#define OSTREL_CORE_MODULE_H

// Internal. The library's own module handle.

#include "ostrel/platform/types.h"

namespace OS {

// Returns the handle of the library, which is its load address.
HINSTANCE module_handle() noexcept;

}  // namespace OS

#endif  // OSTREL_CORE_MODULE_H
