#ifndef OSTREL_PLATFORM_FILE_ATOMIC_COPY_H
#define OSTREL_PLATFORM_FILE_ATOMIC_COPY_H

// Internal. Copies of files that come into place whole: they are made under a name of their own
// beside the target, ".ostrel-" and a number, which only the end of the process leaves behind.

#include <sys/stat.h>

#include <string>

namespace ostrel_platform {

struct CopyMode {
    bool replace;  // else EEXIST when something is at the target
    // Everything comes along that the host lets us set, not the new file's part only, and is on the
    // disk before it comes into place.
    bool moves;
};

// Copies what is left to read of an open regular file. Always: permissions, attributes, the time of
// the last write. Result: 0, or errno.
int copy_file(int source, const struct stat &facts, const std::string &target,
              const CopyMode &mode);

// Copies a symbolic link. Result: 0, or errno.
int copy_link(const std::string &source, const struct stat &facts, const std::string &target,
              bool replace);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_ATOMIC_COPY_H
