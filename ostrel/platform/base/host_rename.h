#ifndef OSTREL_PLATFORM_BASE_HOST_RENAME_H
#define OSTREL_PLATFORM_BASE_HOST_RENAME_H

// Internal. Names in the host's folders.

#include <string>

namespace ostrel_platform {

// The folder in which `path` names something: "." without one. A separator at the end of the path
// belongs to the name.
std::string folder_of(const std::string &path);

// Whether two paths are those of one entry of one folder, and not of two links to one file. A host
// without regard to case may have given the entry another spelling.
bool is_same_entry(const std::string &a, const std::string &b);

// Gives a file or directory another path. Result: 0, or errno: EEXIST when something is there and
// `replace` is false.
int rename_host(const char *source, const char *target, bool replace) noexcept;

// The same for a file, in the place of another if there is one. Of two links to one file the source
// goes; the host would leave both. Result: 0, or errno.
int rename_over(const std::string &source, const std::string &target);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_HOST_RENAME_H
