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

// The path of the file that a module was loaded from, in the form C:\dir\name. `module` is a load
// address as above; null means the program.
//
// Result: the characters stored, without the NUL. When `room` (in characters, with the NUL) is too
// small, the beginning is stored with a NUL behind it, the result is `room` and the last error
// ERROR_INSUFFICIENT_BUFFER; the path is cut then. 0 on failure, with the last error
// ERROR_INVALID_PARAMETER (null buffer, room 0), ERROR_MOD_NOT_FOUND (no such module) or what the
// host's refusal becomes.
OSTREL_PLATFORM_API DWORD GetModuleFileNameW(HMODULE module, WCHAR *buffer,
                                             DWORD capacity) noexcept;

#endif

#endif  // OSTREL_PLATFORM_MODULE_H
