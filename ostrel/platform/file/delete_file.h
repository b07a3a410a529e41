#ifndef OSTREL_PLATFORM_FILE_DELETE_FILE_H
#define OSTREL_PLATFORM_FILE_DELETE_FILE_H

// Internal. Deleting a file by the platform's rules.

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/file/share_mode.h"

namespace ostrel_platform {

// Deletes a file or link of the host. Result: 0, or errno: EISDIR for a directory, EACCES for a
// read-only file, EBUSY or ETXTBSY for one that is in use.
int delete_file(const char *path) noexcept;

// Makes sure that nobody stands against deleting a regular file or putting another in its place,
// and that nobody comes to, as long as `held` lives: opens of the file wait a little for it and
// then fail or find the path anew. `facts` is what lstat told. A file that this user may not open
// is held by nobody: `held` stays empty.
//
// Result: 0, or errno: EBUSY, ETXTBSY (a program that runs), ENOENT, ESTALE (the path leads to
// another file by now: look at it anew), or what keeps the host from opening it.
int lock_for_delete(const char *path, const struct stat &facts, SharingFile *held) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_DELETE_FILE_H
