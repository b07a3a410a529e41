#ifndef OSTREL_PLATFORM_BASE_HOST_RENAME_H
#define OSTREL_PLATFORM_BASE_HOST_RENAME_H

// Internal. Compares and changes names in the host's folders.

#include <string>

namespace ostrel_platform {

// Returns the folder of the last name in `path`, or "." for a path without a folder. A separator at
// the end of the path belongs to the name.
std::string folder_of(const std::string &path);

// Writes the entries of the folder that holds `path` to the disk. Returns 0 or errno.
int sync_folder_of(const std::string &path);

// Whether two paths lead to the same directory entry, and not to two links to one file. For a
// directory and for a file with one link the spelling may differ, as on a host that ignores case; a
// file with several links must have the same name in the same folder.
bool is_same_entry(const std::string &a, const std::string &b);

// Whether two paths are two directory entries of one file.
bool are_two_links_to_one_file(const std::string &a, const std::string &b);

// Renames a file or directory. With `replace` false an existing target is kept. Returns 0, or
// errno: EEXIST when `replace` is false and the target exists.
int rename_host(const char *source, const char *target, bool replace) noexcept;

// Renames a file and replaces an existing target. When both paths are links to one file, removes
// the source; the host's rename would keep both. Returns 0 or errno.
int rename_over(const std::string &source, const std::string &target);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_HOST_RENAME_H
