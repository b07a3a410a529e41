#ifndef OSTREL_PLATFORM_MODULE_H
#define OSTREL_PLATFORM_MODULE_H

// Modules: programs and shared libraries that are loaded in the process.
//
//   WCHAR path[260];
//   const DWORD length = GetModuleFileNameW(nullptr, path, 260);
//   if (length == 0 || length == 260) {
//       report(GetLastError());  // error.h; with 260, `path` holds the beginning
//   }
//
// The handle of a module that the process began with is the address at which it is loaded.
// Implemented with dladdr, /proc/self/maps and /proc/self/exe.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// Releases a module that was loaded at run time. The layer has no call that loads a module. For a
// value that is no handle of such a module, which is every value, load addresses included, has no
// effect, returns FALSE and sets the last error to ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API BOOL FreeLibrary(HMODULE module) noexcept;

// Turns off notifications of threads that begin and end, for one module. Off Windows no module
// receives any, so the call only checks its argument. Returns TRUE for the load address of a
// program or shared library. For any other value, null included, returns FALSE and sets the last
// error to ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API BOOL DisableThreadLibraryCalls(HMODULE module) noexcept;

// Stores the path of the file that a module was loaded from, in the form C:\dir\name. `module` is a
// load address as above; null means the program. `capacity` is the size of `buffer` in characters,
// the NUL included. A file that was removed or replaced since keeps the path that it had.
//
// Returns the number of characters stored, without the NUL. When `capacity` is too small, stores
// the first `capacity` - 1 characters and a NUL, returns `capacity` and sets the last error to
// ERROR_INSUFFICIENT_BUFFER. On failure returns 0, leaves `buffer` as it is and sets the last error
// to ERROR_INVALID_PARAMETER (`buffer` is null or `capacity` is 0), ERROR_MOD_NOT_FOUND (`module`
// is no load address, or the host names no file for it), ERROR_NOT_ENOUGH_MEMORY, or the code that
// error_codes.inc gives for the host's errno.
OSTREL_PLATFORM_API DWORD GetModuleFileNameW(HMODULE module, WCHAR *buffer,
                                             DWORD capacity) noexcept;

#endif

#endif  // OSTREL_PLATFORM_MODULE_H
