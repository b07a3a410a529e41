#ifndef OSTREL_PLATFORM_FILE_HOST_PATH_H
#define OSTREL_PLATFORM_FILE_HOST_PATH_H

// Internal. Converts between paths of the platform and paths of the host, by the rules in file.h.

#include <optional>
#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Whether a path begins with a drive: a letter (A to Z, a to z) and a colon.
bool has_drive(const WCHAR *path);

// Returns the host path of a path of any length; `path` must not be null. Returns nothing when no
// host file can have the path or its drive does not exist.
std::optional<std::string> host_path(const WCHAR *path);

// The same for the calls of the system, which take up to 259 characters (MAX_PATH with the NUL). On
// failure returns nothing and sets the last error to ERROR_PATH_NOT_FOUND (`path` is null or empty,
// or as above) or ERROR_FILENAME_EXCED_RANGE (`path` is longer).
std::optional<std::string> file_path(const WCHAR *path);

// Whether a path is the root of a drive or of the host: a drive, separators, or both. `path` must
// not be null.
bool is_root(const WCHAR *path);

// Converts a name of the host to the platform's form; host_path converts it back. `units` has room
// for as many units as `name` has bytes. Returns the number of units stored.
std::size_t name_from_host(std::string_view name, WCHAR *units);

// Returns an absolute path of the host in the form C:\dir\name.
std::u16string path_from_host(std::string_view path);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_HOST_PATH_H
