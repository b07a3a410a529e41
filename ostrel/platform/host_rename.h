#ifndef OSTREL_PLATFORM_HOST_RENAME_H
#define OSTREL_PLATFORM_HOST_RENAME_H

// Internal. Names in the host's folders.

#include <string>

namespace platform {

// The folder in which `path` names something: "." without one. A separator at the end of the path
// belongs to the name.
std::string folder_of(const std::string &path);

// Gives a file or directory another path. Result: 0, or errno: EEXIST when something is there and
// `replace` is false.
int rename_host(const char *source, const char *target, bool replace) noexcept;

}  // namespace platform

#endif  // OSTREL_PLATFORM_HOST_RENAME_H
