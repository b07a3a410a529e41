#ifndef OSTREL_PLATFORM_DELETE_FILE_H
#define OSTREL_PLATFORM_DELETE_FILE_H

// Internal. Deleting a file by the platform's rules.

#include "ostrel/platform/host_descriptor.h"

namespace platform {

// Deletes a file or link of the host. Result: 0, or errno: EISDIR for a directory, EACCES for a
// read-only file, EBUSY or ETXTBSY for one that is in use.
int delete_file(const char *path) noexcept;

// Whether a regular file may be deleted or have another put in its place, as far as its users are
// concerned. Result: 0, or errno: EBUSY, ETXTBSY (a program that runs), ENOENT.
int check_unused(const char *path, const struct stat &facts) noexcept;

}  // namespace platform

#endif  // OSTREL_PLATFORM_DELETE_FILE_H
