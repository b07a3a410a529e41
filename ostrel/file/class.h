#ifndef OSTREL_FILE_CLASS_H
#define OSTREL_FILE_CLASS_H

// CUtilZorv loads modules of the product family from the folder that the registry names: the value
// Local_Path of HKEY_LOCAL_MACHINE\SOFTWARE\Nimbara\Larkspur\service\Information, followed by
// "VEKA\".
//
//   WCHAR name[] = TEXT("filter.dll");
//   if (const HINSTANCE module = CUtilZorv::LoadLibExPlim(name)) {
//       const auto filter = GetProcAddress(module, "filter");  // platform/module.h
//       FreeLibrary(module);
//   }
//
// Texts are in buffers of the caller, whose sizes count characters with the NUL. No call writes
// beyond a size; each result ends with a NUL, and the last character of the buffer is one too. A
// null `file` or `folder` that a call only reads counts as empty. The class has no data, so
// assignment has no effect.
//
// Ownership: the caller releases a module with FreeLibrary.
// Threads: every call may run on any thread.
// Errors: a failure is the null handle or 0, and trace lines that end with the last error of the
// calling thread (err). The registry's calls return their codes and leave the last error alone, so
// the lines about the registry show what an earlier call has set: in LoadLibExPlim and
// LoadLibExAsDataPlim the code of the first load. After these two the last error is that of the
// last load that was tried. Nothing is thrown.

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

class OSTREL_API CUtilZorv {
public:
    // Stores the folder, as in D:\agent\VEKA\ for a value D:\agent\. The value must be a REG_SZ of
    // no more than `size` characters with its NUL; the last character that is stored counts as the
    // NUL, whatever it is. No separator is added: D:\agent gives D:\agentVEKA\. An empty value
    // gives VEKA\. What exceeds `size` - 1 characters is cut off.
    //
    // Returns 1. Returns 0 when the value cannot be read, with a trace line, or for a null `folder`
    // or a `size` below 1, without one. `folder` may then have been written to.
    static int GetAbsVekaFolderInZorv(WCHAR *folder, int size) noexcept;

    // Stores `folder` and behind it `file`, cut after `size` - 1 characters. Note the order of the
    // arguments. `out` may be `folder`, and must not overlap with the texts otherwise. Has no
    // effect for a null `out` or a `size` below 1.
    static void GenVekaModFilenameInZorv(WCHAR *out, int size, WCHAR *file, WCHAR *folder) noexcept;

    // Loads the module `file` of `folder`, whose dependencies come from its own folder first
    // (LOAD_WITH_ALTERED_SEARCH_PATH). Stores the full name in `out`, as above, also on failure.
    // Returns the module, or null with a trace line, also for a null `out` or a `size` below 1.
    static HINSTANCE LoadLibEx(WCHAR *file, WCHAR *folder, WCHAR *out, int size) noexcept;

    // Loads the module `file`: by that name as it is, wherever LoadLibraryExW finds it, and when
    // that fails, whatever the reason, once by the folder above and the name behind it. The full
    // name has up to 259 characters; a longer one is cut. A full path as `file` is appended to the
    // folder too, and fails there. Returns the module, or null with a trace line.
    static HINSTANCE LoadLibExPlim(WCHAR *file) noexcept;
    // The same, but maps the module for reading and runs no code of it (LOAD_LIBRARY_AS_DATAFILE).
    static HINSTANCE LoadLibExAsDataPlim(WCHAR *file) noexcept;
};

#endif  // OSTREL_FILE_CLASS_H
