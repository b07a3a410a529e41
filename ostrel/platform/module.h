#ifndef OSTREL_PLATFORM_MODULE_H
#define OSTREL_PLATFORM_MODULE_H

// Modules: programs and shared libraries that are loaded in the process.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// Gives back a module that was loaded at run time. Result: TRUE, or FALSE with the last error
// ERROR_INVALID_HANDLE for a value that is no such module.
OSTREL_PLATFORM_API BOOL FreeLibrary(HMODULE module) noexcept;

// Says that a module wants no notification of threads that begin and end. There are none off
// Windows, so nothing is left to be switched off. Result: TRUE for the address at which a program
// or shared library is loaded, which is what serves as the handle of a module that the process
// began with; FALSE with the last error ERROR_INVALID_HANDLE for any other value.
OSTREL_PLATFORM_API BOOL DisableThreadLibraryCalls(HMODULE module) noexcept;

#endif

#endif  // OSTREL_PLATFORM_MODULE_H
