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

// Converts a path of any length to a host path; `path` must not be null. Resolves "." and ".." by
// the text alone, in the pass that finds the components; a path without them costs no further pass.
// Returns the host path. On failure, when file_path would set one of its codes but
// ERROR_FILENAME_EXCED_RANGE, returns nothing.
std::optional<std::string> host_path(const WCHAR *path);

// Converts one name, which may begin like a drive (c:x); `name` holds no separator and must not be
// null. Returns nothing when no host file can have the name.
std::optional<std::string> host_name(const WCHAR *name);

// The limit of a path in characters with the NUL: MAX_PATH, or 32767 with "\\?\".
std::size_t path_limit(const WCHAR *path);

// The same for calls that take paths of up to 259 characters (MAX_PATH with the NUL), or 32766 with
// "\\?\". On failure returns nothing and sets the last error:
//   ERROR_PATH_NOT_FOUND        `path` is null or empty, its drive does not exist, or no host file
//                               can have it
//   ERROR_FILE_NOT_FOUND        `path` names a device
//   ERROR_BAD_NETPATH           `path` names a file on the network
//   ERROR_FILENAME_EXCED_RANGE  `path` has more characters
std::optional<std::string> file_path(const WCHAR *path);

// Whether a path that host_path takes is the root of a drive or of the host, such as C:\ and
// C:\dir\.. are.
bool is_root(std::u16string_view path);

// Converts a name of the host to the platform's form; host_path converts the result back. The
// capacity of `units` must be at least name.size(), in UTF-16 units. Returns the number of units
// stored, without a NUL.
std::size_t name_from_host(std::string_view name, WCHAR *units);

// Converts an absolute path of the host. Returns the path in the form C:\dir\name.
std::u16string path_from_host(std::string_view path);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_HOST_PATH_H
