#ifndef OSTREL_PLATFORM_MODULE_FIND_MODULE_H
#define OSTREL_PLATFORM_MODULE_FIND_MODULE_H

// Internal. Where the name of a module leads, by the rules in module.h. Everything here finds files
// and runs no code; the loader itself applies the host's rules for code.

#include <string>
#include <vector>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// The name of a module, taken apart.
struct ModuleName {
    bool is_path = false;
    std::string folder;              // of a path: absolute, with a '/' at its end
    std::vector<std::string> files;  // the names of files to look for, in this order; none is empty
};

// Takes a name apart. Returns 0 or an error code.
DWORD parse_module_name(const WCHAR *name, ModuleName *parsed);

// Finds the first of the files in a folder, which ends with '/' or is empty; directories count as
// missing. Returns 0, or ERROR_MOD_NOT_FOUND, or why a file that may be there cannot be looked at:
// ERROR_ACCESS_DENIED for a directory too.
DWORD find_in_folder(const std::string &folder, const std::vector<std::string> &files,
                     std::string *path);

// Finds the host file of a module to be read: where LoadLibraryExW with LOAD_LIBRARY_AS_DATAFILE
// looks. `name` must be neither null nor empty. Stores the file's path, which may lead to any kind
// of file but a directory. Returns 0 or an error code, ERROR_MOD_NOT_FOUND when there is none.
DWORD find_module(const WCHAR *name, std::string *path);

// Returns the code of an errno of a host call on the path of a module: ERROR_MOD_NOT_FOUND for a
// path that leads nowhere.
DWORD code_of_module_path(int error) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_MODULE_FIND_MODULE_H
