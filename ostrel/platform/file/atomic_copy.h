#ifndef OSTREL_PLATFORM_FILE_ATOMIC_COPY_H
#define OSTREL_PLATFORM_FILE_ATOMIC_COPY_H

// Internal. Copies files and links atomically: a copy is written to a temporary file beside the
// target (".ostrel-" and 16 hexadecimal digits), which is then renamed. A failed copy removes the
// temporary file; a crash may leave it behind.

#include <sys/stat.h>

#include <string>

namespace ostrel_platform {

struct CopyMode {
    bool replace;  // whether to replace an existing target; otherwise it gives EEXIST
    // Whether also to copy the user extended attributes, the creation time, the time of the last
    // access, and, if the host allows that, the owner with all mode bits; and to write the copy to
    // the disk before the rename.
    bool moves;
};

// Copies an open regular file, from its file position to its end, with its permissions, its
// attributes and the time of its last write. `facts` is the fstat result of the source. Returns 0
// or errno: EEXIST without `replace` when something is at the target.
int copy_file(int source, const struct stat &facts, const std::string &target,
              const CopyMode &mode);

// Copies a symbolic link with its times, and with its owner if the host allows that. `facts` is the
// lstat result of the source. Returns 0 or errno: EEXIST as above.
int copy_link(const std::string &source, const struct stat &facts, const std::string &target,
              bool replace);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_ATOMIC_COPY_H
