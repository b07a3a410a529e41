#ifndef OSTREL_PLATFORM_FILE_ATOMIC_COPY_H
#define OSTREL_PLATFORM_FILE_ATOMIC_COPY_H

// Internal. Copies files and links atomically: the target appears or is replaced in one step, when
// the copy is complete.
//
// A file that is being copied has no name (O_TMPFILE) where the host can do that, so a killed copy
// leaves nothing behind. Elsewhere, for a link, and for the moment in which a file replaces
// another, the copy has a temporary name in the target's folder: the first free one of
// ".ostrel-copy-0" to ".ostrel-copy-31", or, when others use them all, ".ostrel-" and 16 random
// hexadecimal digits. A failed copy removes the temporary file. What a killed copy has left at one
// of the 32 names is removed by the next copy that comes to the name on its search for a free one.
// A temporary file is locked (flock) while its maker lives, so only files without a lock are
// removed, and links that are older than an hour. Only regular files and links of this user are
// removed; root also removes those of others. So what others have planted at the names is neither
// followed nor written to.

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
