#ifndef OSTREL_PLATFORM_HOST_PATH_H
#define OSTREL_PLATFORM_HOST_PATH_H

// Internal. From a path of the platform to one of the host, by the rules told in file.h.

#include <optional>
#include <string>

#include "ostrel/platform/types.h"

namespace platform {

// Nothing when no host file can have that path, or its drive does not exist.
std::optional<std::string> host_path(const WCHAR *path);

}  // namespace platform

#endif  // OSTREL_PLATFORM_HOST_PATH_H
