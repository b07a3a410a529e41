#ifndef OSTREL_PLATFORM_FILE_DELETE_FILE_H
#define OSTREL_PLATFORM_FILE_DELETE_FILE_H

// Internal. Deletes files by the rules in file.h, which protect a file that is read-only or in use.

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/file/share_mode.h"

namespace ostrel_platform {

// Deletes a file or link of the host. Returns 0, or errno:
//   EISDIR   a directory
//   EACCES   a read-only file
//   EBUSY    another handle does not share deletion, or others keep replacing the file
//   ETXTBSY  a running program
// or what the host's call sets.
int delete_file(const FileRef &name) noexcept;

// Locks a regular file for the caller to delete or replace. While `held` lives, a new open that
// does not share deletion waits up to 0.3 seconds, and then fails or finds that its path
// names another file. `judged` is the lstat result of `name` by which the caller has decided, or
// null. Stores what fstat gives in `*facts`. A file that this user may not open cannot be locked:
// the call then returns 0 and leaves `held` empty.
//
// Returns 0. On failure leaves `held` empty and returns errno:
//   EBUSY    another handle does not share deletion, or another call deletes or replaces the file
//   ETXTBSY  a running program, which is noticed only if this user may write to the file
//   ENOENT   the name names nothing
//   ESTALE   the name names another file than `judged` or the locked one; the caller calls lstat
//            again
// or what the host's call sets.
int lock_for_delete(const FileRef &name, const struct stat *judged, SharingFile *held,
                    struct stat *facts) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_DELETE_FILE_H
