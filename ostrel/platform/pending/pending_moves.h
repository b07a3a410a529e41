#ifndef OSTREL_PLATFORM_PENDING_PENDING_MOVES_H
#define OSTREL_PLATFORM_PENDING_PENDING_MOVES_H

// Internal. Moves and deletions that wait for the next start of the system (MoveFileExW with
// MOVEFILE_DELAY_UNTIL_REBOOT). pending_record.h describes the record of them; the program
// ostrel-pending-moves carries them out. All paths are host paths.

#include <cstddef>
#include <cstdio>
#include <string>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Records a request to move `source` to `target`, and to replace a file there if `replace` is set,
// or to delete `source` if `target` is null. The call puts the current directory in front of a
// relative path. The two files need not exist.
//
// Returns 0 when the request is on the disk. On failure leaves the requests in the record as they
// were and returns an error code of the system:
//   ERROR_PATH_NOT_FOUND        a path is empty; the host does not know the current directory; or
//                               the parent of the record's directory is missing
//   ERROR_FILENAME_EXCED_RANGE  an absolute path has PATH_MAX bytes or more
//   ERROR_NOT_SAME_DEVICE       the two folders exist, on different file systems
//   ERROR_ACCESS_DENIED         this user may not write the record, or the record is not trusted
//   ERROR_INVALID_DATA          the file is no record
//   ERROR_DISK_FULL             the disk is full, or the record would exceed 64 MiB
//   ERROR_CALL_NOT_IMPLEMENTED  the host has no boot id
//   ERROR_NOT_ENOUGH_MEMORY     memory is missing
// or the code that error_codes.inc gives for the host's errno.
//
// Threads: any number of threads and processes may call at once. The call waits while another
// process uses the record.
DWORD record_pending_move(const std::string &source, const std::string *target,
                          bool replace) noexcept;

enum class PendingScope {
    kEarlierStarts,  // the requests with another boot id than the system's present one
    kAll,
};

struct PendingOutcome {
    // An errno when the record could not be read or written, ENOMEM, or ENOSYS when kEarlierStarts
    // finds no boot id of the host.
    int error = 0;
    std::size_t done = 0;
    std::size_t failed = 0;  // requests, and damaged lines of the record
};

// Carries out requests in the order in which they were made and removes them from the record. A
// missing record is an empty one. The call locks the record until it returns.
//
// Each request is carried out once or not at all, even after a crash: the next call continues where
// this one stopped. A request that cannot be carried out (something is at the target, a directory
// is not empty, the source is missing) fails. For each failed request and each damaged line of the
// record, the call writes a line to `log` and removes the request or line too. The call moves and
// deletes links themselves, not their targets, and also read-only files, since the request was
// accepted.
//
// On an `error` the requests that are not counted stay in the record.
PendingOutcome carry_out_pending_moves(PendingScope scope, std::FILE *log) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PENDING_PENDING_MOVES_H
