#ifndef OSTREL_PLATFORM_PENDING_PENDING_MOVES_H
#define OSTREL_PLATFORM_PENDING_PENDING_MOVES_H

// Internal. Moves and deletions that wait for the next start of the system (MoveFileExW with
// MOVEFILE_DELAY_UNTIL_REBOOT). The record is told in pending_record.h; the program
// ostrel-pending-moves carries it out. Paths are those of the host.

#include <cstddef>
#include <cstdio>
#include <string>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Records that `source` shall be moved to `target`, in the place of a file there if `replace`, or
// deleted when `target` is null. A relative path is made absolute by putting the current directory
// in front. Nothing else is looked at; the files may come into being later.
//
// Result: 0 when the request is on the disk, else a system error code: ERROR_PATH_NOT_FOUND (an
// empty path), ERROR_NOT_SAME_DEVICE (the two folders are there, on different file systems),
// ERROR_ACCESS_DENIED (this user may not write the record, or it is not to be trusted),
// ERROR_INVALID_DATA (the file is no record), ERROR_DISK_FULL, or what else the host's failure
// becomes. On failure the record is as it was.
//
// Threads and processes: any number at a time.
DWORD record_pending_move(const std::string &source, const std::string *target,
                          bool replace) noexcept;

enum class PendingScope {
    kEarlierStarts,  // requests made before the system was started
    kAll,
};

struct PendingOutcome {
    int error = 0;  // an errno when the record could not be read or written
    std::size_t done = 0;
    std::size_t failed = 0;
};

// Carries out requests in the order in which they were made and removes them from the record.
//
// Each is carried out once or not at all, at whatever moment the process or the machine stops: the
// next call takes up where this one was. A request that cannot be carried out (something is at the
// target, a directory is not empty, the source is missing) fails, is told in a line to `log` and is
// removed too, as is a line of the record that is none. Links are moved and deleted themselves. A
// read-only file is deleted, moved and replaced: the request was accepted.
//
// With an `error` the requests that are not counted stay in the record.
PendingOutcome carry_out_pending_moves(PendingScope scope, std::FILE *log) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PENDING_PENDING_MOVES_H
