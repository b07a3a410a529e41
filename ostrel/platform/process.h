#ifndef OSTREL_PLATFORM_PROCESS_H
#define OSTREL_PLATFORM_PROCESS_H

// Processes: which ones run, what they are called, and handles of them.
//
//   DWORD ids[1024], bytes = 0;
//   EnumProcesses(ids, sizeof ids, &bytes);
//   for (DWORD i = 0; i < bytes / sizeof(DWORD); ++i) {
//       const HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE,
//                                          ids[i]);
//       WCHAR name[MAX_PATH];  // file.h
//       if (process != nullptr && GetModuleBaseNameW(process, nullptr, name, MAX_PATH) != 0) {
//           show(ids[i], name);
//       }
//       CloseHandle(process);  // handle.h
//   }
//
// Implemented with /proc and pidfd_open, pidfd_send_signal and waitid.
//
// Handles. A handle means one process for as long as the handle is open: a later process that gets
// the same id is never meant. WaitForSingleObject and WaitForMultipleObjects (sync.h) take the
// handle, whatever its access; the handle is signalled when the process has ended. Each process
// with open handles costs a descriptor of the host.
//
// Names. The name of a process is that of the file which it executes, without its folder: of a
// script the name of the interpreter. A file that was removed or replaced since keeps its name, and
// a file that was renamed has the new one. file.h says how host names become UTF-16.
//
// Access. An access that a handle lacks is refused with ERROR_ACCESS_DENIED. The calls below name
// what they need.
//
// Threads: every call may run on any thread.
//
// Forks. The child of a fork may use the handles of its parent.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <psapi.h>

#else

inline constexpr DWORD PROCESS_TERMINATE = 0x1;
inline constexpr DWORD PROCESS_VM_READ = 0x10;
inline constexpr DWORD PROCESS_QUERY_INFORMATION = 0x400;
inline constexpr DWORD PROCESS_QUERY_LIMITED_INFORMATION = 0x1000;
inline constexpr DWORD SYNCHRONIZE = 0x100000;
inline constexpr DWORD PROCESS_ALL_ACCESS = 0x1FFFFF;

// Stores the ids of the processes that /proc shows, in ascending order, threads left out. `size` is
// the size of `ids` in bytes; as many ids are stored as fit. `stored` receives the bytes stored.
// When that is all of `size`, there may be more processes: try again with a larger buffer.
//
// Returns TRUE. On failure returns FALSE and sets the last error to ERROR_NOACCESS (a null pointer;
// `ids` may be null when `size` is below 4) or the code that error_codes.inc gives for the host's
// errno.
OSTREL_PLATFORM_API BOOL EnumProcesses(DWORD *ids, DWORD size, DWORD *stored) noexcept;

// Opens a process. `access` is any of the bits above; other bits are kept and mean nothing.
// `inherit` has no effect: no new process gets the handle.
//
// This user needs the host's permission to look into the process (as ptrace does) for
// PROCESS_VM_READ and PROCESS_QUERY_INFORMATION, and to send it signals for PROCESS_TERMINATE.
//
// Returns a handle that CloseHandle closes. On failure returns null and sets the last error:
//   ERROR_INVALID_PARAMETER     no process has the id, such as 0
//   ERROR_ACCESS_DENIED         the host refuses one of the accesses
//   ERROR_TOO_MANY_OPEN_FILES   the host has no descriptor left
//   ERROR_NOT_ENOUGH_MEMORY     memory is short
OSTREL_PLATFORM_API HANDLE OpenProcess(DWORD access, BOOL inherit, DWORD id) noexcept;

// Lists the modules of a process: the program alone, not the libraries that it has loaded. The
// handle of the module means the program of `process`, and only GetModuleBaseNameW takes it. `size`
// is the size of `modules` in bytes; below 8 nothing is stored. `needed` receives 8. The process
// handle needs PROCESS_QUERY_INFORMATION and PROCESS_VM_READ.
//
// Returns TRUE. On failure returns FALSE and sets the last error:
//   ERROR_INVALID_HANDLE   `process` is no process's handle
//   ERROR_ACCESS_DENIED    the handle lacks access, or the host refuses it since
//   ERROR_NOACCESS         a null pointer
//   ERROR_PARTIAL_COPY     the process has no program: it has ended, or is the kernel's own
OSTREL_PLATFORM_API BOOL EnumProcessModules(HANDLE process, HMODULE *modules, DWORD size,
                                            DWORD *needed) noexcept;

// Stores the name of a process. `module` is what EnumProcessModules stored, or null. `capacity` is
// the size of `name` in characters, the NUL included; a longer name is cut. The process handle
// needs PROCESS_QUERY_INFORMATION and PROCESS_VM_READ.
//
// Returns the number of characters stored, without the NUL. On failure returns 0, leaves `name` as
// it is and sets the last error as EnumProcessModules does, or to ERROR_INVALID_HANDLE for another
// module and ERROR_INVALID_PARAMETER for a `capacity` of 0.
OSTREL_PLATFORM_API DWORD GetModuleBaseNameW(HANDLE process, HMODULE module, WCHAR *name,
                                             DWORD capacity) noexcept;

#endif

#endif  // OSTREL_PLATFORM_PROCESS_H
