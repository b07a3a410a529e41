#ifndef OSTREL_PLATFORM_FILE_ATOMIC_COPY_H
#define OSTREL_PLATFORM_FILE_ATOMIC_COPY_H

// Internal. Copies files and links atomically: the calls write a temporary file in the target's
// directory (".ostrel-" and 16 hexadecimal digits) and rename that file to the target. A failed
// copy removes the temporary file; a crash may leave a temporary file behind.

#include <sys/stat.h>

#include <string>

namespace ostrel_platform {

// Returns an unguessable path in the directory of `beside`, for a temporary file.
std::string temporary_path(const std::string &beside);

struct CopyMode {
    bool replace;  // replaces an existing target; when false, an existing target gives EEXIST
    // Also copies the user extended attributes, the creation time, the time of the last access,
    // and, if the host allows a change of owner, the owner and all mode bits. Writes the copy to
    // the disk before the rename.
    bool moves;
};

// Copies an open regular file from its file position to its end. Copies the permissions, the
// attributes and the time of the last write too. `facts` is the fstat result of the source. Returns
// 0. On failure returns errno: EEXIST when the target exists and `replace` is false.
int copy_file(int source, const struct stat &facts, const std::string &target,
              const CopyMode &mode);

// Copies a symbolic link with its times, and with its owner if the host allows a change of owner.
// `facts` is the lstat result of the source. Returns 0. On failure returns errno: EEXIST as above.
int copy_link(const std::string &source, const struct stat &facts, const std::string &target,
              bool replace);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_ATOMIC_COPY_H
