#ifndef OSTREL_PLATFORM_MODULE_H
#define OSTREL_PLATFORM_MODULE_H

// Modules: programs and shared libraries, which a process begins with or loads while it runs.
//
//   using Filter = int (*)(const WCHAR *);
//   if (const HMODULE module = LoadLibraryW(TEXT("C:\\agent\\filter.dll"))) {
//       if (const auto filter = reinterpret_cast<Filter>(GetProcAddress(module, "filter"))) {
//           filter(TEXT("text"));
//       }
//       FreeLibrary(module);
//   }
//
// Implemented with dlopen, dlsym, dlclose, dladdr, mmap, /proc/self/maps and /proc/self/exe.
//
// A module is an ELF object of the process's kind. Its handle is the address at which it is loaded.
// The handle of a file that is mapped for reading is the address of the mapping with the lowest bit
// set.
//
// "PSAPI.DLL", with or without the suffix and in any case, is the layer itself: a handle that is no
// load address, whose only exports are the calls of process.h of that library (EnumProcesses,
// EnumProcessModules, GetModuleBaseNameW), and whose file is that of the layer. No file of that
// name is ever looked for, except by a path and to be read.
//
// Names. A name with a separator or a drive is a path (file.h); a relative one begins at the
// current directory. Any other name is looked for, in this order:
//
//   1. unless the file is to be read: among the loaded modules, by the name of the file for those
//      that these calls have loaded, and by the name that the host's loader knows for all others
//   2. in the program's folder
//   3. by the host's rules: DT_RPATH, LD_LIBRARY_PATH, DT_RUNPATH, the loader's cache and the
//      default folders. DT_RPATH and DT_RUNPATH are those of the library that holds these calls,
//      its own folder as it is installed, and not the program's. For a file to be read they are the
//      program's, and the cache is left out.
//   4. only for a file to be read, which runs no code: in the current directory
//
// Code never comes from the current directory by a name alone, because others may be able to write
// there: for that, pass .\name. Only an empty folder in LD_LIBRARY_PATH means that directory. In a
// program that has rights which its caller lacks (AT_SECURE), the caller may have chosen the
// program's folder by a link, so the call looks by 1 and 3 alone.
//
// At each place the call looks for these files, a folder of that name counting as missing:
//
//   filter.dll   filter.dll, filter.so, libfilter.so; "dll" in either case
//   filter       filter.dll, filter.so, libfilter.so; for a path filter itself before them
//   filter.      filter
//   filter.so    that file alone, and so for every other suffix: libfilter.so.1, filter.ocx
//
// Names are case-sensitive and have up to 259 characters, paths as in file.h.
//
// Threads: every call may run on any thread. The layer holds no lock while code of a module runs,
// so a constructor or destructor may use all calls. The host's loader runs one load at a time: a
// constructor must not wait for a thread that loads a module.
//
// Forks: the child has all modules of its parent. It must not load or free modules when another
// thread was doing so at the fork.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// A function of a module. Convert the pointer to the type of the function before calling it. The
// platform's type returns a number; compilers convert this one without a warning.
using FARPROC = void (*)();

inline constexpr DWORD LOAD_LIBRARY_AS_DATAFILE = 0x2;
inline constexpr DWORD LOAD_WITH_ALTERED_SEARCH_PATH = 0x8;

// Loads a module and runs its constructors, or counts one load more of a module that is loaded; or
// maps a file for reading. `name` is as above, `file` must be null. `flags` is 0 or:
//
//   LOAD_WITH_ALTERED_SEARCH_PATH  The libraries that the module needs, and those that they need,
//                                  come from the module's folder where it has them, before the
//                                  host's rules; libraries that are loaded stay as they are. A
//                                  library is known by its DT_SONAME (-Wl,-soname, which CMake
//                                  sets): without one the host's rules alone find it.
//                                  Without the flag the host's rules alone find them. Has no effect
//                                  for a name that the host's rules find.
//   LOAD_LIBRARY_AS_DATAFILE       Maps the whole file, of any kind, privately and read-only, and
//                                  runs no code of it. The file begins at the handle without its
//                                  lowest bit. Each call makes a mapping of its own, also of a
//                                  module that is loaded. Others may write to the file meanwhile: a
//                                  read beyond the end of a file that has become shorter raises
//                                  SIGBUS. The other flag has no effect then.
//
// The module's symbols are bound at once and are not visible to other modules (RTLD_NOW,
// RTLD_LOCAL). Before the host's loader sees a file that this call has found, the call checks that
// the file is regular, has the process's class and machine, and is not cut short. An object that is
// damaged otherwise may crash the process within the host's loader. An exception that leaves a
// constructor ends the process (std::terminate), and a constructor may end the process itself: load
// only modules that you trust. A constructor may change the last error.
//
// Returns the handle, which the caller releases with FreeLibrary. On failure returns null and sets
// the last error:
//   ERROR_INVALID_PARAMETER     `name` is null or empty, `file` is not null, or another flag
//   ERROR_MOD_NOT_FOUND         there is no such file, or not one that the module needs
//   ERROR_PROC_NOT_FOUND        a symbol or version that the module needs is missing
//   ERROR_BAD_EXE_FORMAT        no regular file; no ELF object for this process, or not a shared
//                               one; an empty file, with LOAD_LIBRARY_AS_DATAFILE
//   ERROR_ACCESS_DENIED         a directory, or a file that this user may not read or map
//   ERROR_FILENAME_EXCED_RANGE  `name` is too long
//   ERROR_BAD_NETPATH           `name` is a file on the network
//   ERROR_BAD_PATHNAME          the path holds $ORIGIN, $LIB or $PLATFORM, for which the host's
//                               loader would put something else; files to be read may have it
//   ERROR_NOT_ENOUGH_MEMORY     memory, or address space, is short
// or the code that error_codes.inc gives for the host's errno. platform_loader_message tells more.
OSTREL_PLATFORM_API HMODULE LoadLibraryExW(const WCHAR *name, HANDLE file, DWORD flags) noexcept;

// The same with the flags 0.
OSTREL_PLATFORM_API HMODULE LoadLibraryW(const WCHAR *name) noexcept;

// Returns what a module exports under a name: a function, or a variable, cast to FARPROC. `module`
// is the load address of any module, also of one that the process began with; null is the program.
// What a library that the module needs exports is not the module's. The name is the symbol's: a
// function of C++ needs extern "C" to have a plain one.
//
// On failure returns null and sets the last error:
//   ERROR_PROC_NOT_FOUND     the module exports no such symbol, or a thread_local variable
//   ERROR_INVALID_ORDINAL    the value of `name` is below 0x10000, null included: a number, which
//                            an ELF object has none of
//   ERROR_MOD_NOT_FOUND      `module` is no load address, such as one of a file mapped for reading
//   ERROR_NOT_ENOUGH_MEMORY  memory is short
OSTREL_PLATFORM_API FARPROC GetProcAddress(HMODULE module, const char *name) noexcept;

// Takes back one load of LoadLibraryExW. The last one runs the module's destructors and unloads it,
// unless others keep the module loaded: the program or another module that needs it, or a mark in
// the module. For a file mapped for reading, removes the mapping; do not read it afterwards.
//
// Returns TRUE. For a value that LoadLibraryExW has not returned, or that has been released as
// often, such as the address of a module that the process began with, has no effect, returns FALSE
// and sets the last error to ERROR_MOD_NOT_FOUND.
OSTREL_PLATFORM_API BOOL FreeLibrary(HMODULE module) noexcept;

// Turns off notifications of threads that begin and end, for one module. Off Windows no module
// receives any, so the call only checks its argument. Returns TRUE for the load address of a
// program or shared library. For any other value, null included, returns FALSE and sets the last
// error to ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API BOOL DisableThreadLibraryCalls(HMODULE module) noexcept;

// Stores the path of the file that a module was loaded from, in the form C:\dir\name. `module` is a
// load address or a file mapped for reading; null means the program. `capacity` is the size of
// `buffer` in characters, the NUL included. A file that was removed or replaced since keeps the
// path that it had.
//
// Returns the number of characters stored, without the NUL. When `capacity` is too small, stores
// the first `capacity` - 1 characters and a NUL, returns `capacity` and sets the last error to
// ERROR_INSUFFICIENT_BUFFER. On failure returns 0, leaves `buffer` as it is and sets the last error
// to ERROR_INVALID_PARAMETER (`buffer` is null or `capacity` is 0), ERROR_MOD_NOT_FOUND (`module`
// is no such handle, or the host names no file for it), ERROR_NOT_ENOUGH_MEMORY, or the code that
// error_codes.inc gives for the host's errno.
OSTREL_PLATFORM_API DWORD GetModuleFileNameW(HMODULE module, WCHAR *buffer,
                                             DWORD capacity) noexcept;

// Stores what the host's loader said, in English, when this thread's last LoadLibraryW or
// LoadLibraryExW failed, such as "/srv/filter.so: undefined symbol: open_filter". The text is empty
// when that call succeeded, or failed before it asked the loader. Not a call of the platform.
//
// `capacity` is the size of `buffer` in characters, the NUL included; a longer text is cut. Returns
// the number of characters stored, without the NUL; 0 also for a null `buffer` and a `capacity` of
// 0. Leaves the last error as it is.
OSTREL_PLATFORM_API DWORD platform_loader_message(WCHAR *buffer, DWORD capacity) noexcept;

#else

// See above; the system's loader gives no text.
inline DWORD platform_loader_message(WCHAR *buffer, DWORD capacity) noexcept {
    if (buffer != nullptr && capacity > 0) {
        *buffer = 0;
    }
    return 0;
}

#endif

#endif  // OSTREL_PLATFORM_MODULE_H
