#ifndef OSTREL_PLATFORM_FILE_HOST_PATH_H
#define OSTREL_PLATFORM_FILE_HOST_PATH_H

// Internal. Between paths of the platform and those of the host, by the rules told in file.h.

#include <optional>
#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Whether a path begins with a drive: a letter and a colon.
bool has_drive(const WCHAR *path);

// Nothing when no host file can have that path, or its drive does not exist. `path` has any length
// and is not null.
std::optional<std::string> host_path(const WCHAR *path);

// The same for the system's calls, which take MAX_PATH characters at most. Nothing, with the last
// error ERROR_PATH_NOT_FOUND (as above; null or empty) or ERROR_FILENAME_EXCED_RANGE.
std::optional<std::string> file_path(const WCHAR *path);

// Whether a path is that of a drive's root, or of the host's: a drive, separators, or both.
bool is_root(const WCHAR *path);

// A name of the host as the platform tells it. `units` holds as many as `name` has bytes. Result:
// the units stored. host_path gives the name back.
std::size_t name_from_host(std::string_view name, WCHAR *units);

// An absolute path of the host in the form C:\dir\name.
std::u16string path_from_host(std::string_view path);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_HOST_PATH_H
