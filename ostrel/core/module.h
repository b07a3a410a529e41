#ifndef OSTREL_CORE_MODULE_H
#define OSTREL_CORE_MODULE_H

// Internal. The library as a module of the process.

#include "ostrel/platform/types.h"

namespace OS {

// The handle of the library itself.
HINSTANCE module_handle() noexcept;

}  // namespace OS

#endif  // OSTREL_CORE_MODULE_H
