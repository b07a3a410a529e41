#ifndef OSTREL_PLATFORM_PENDING_PENDING_MOVES_H
#define OSTREL_PLATFORM_PENDING_PENDING_MOVES_H

// Internal. Records and carries out moves and deletions that wait for the next start of the system
// (MoveFileExW with MOVEFILE_DELAY_UNTIL_REBOOT). pending_record.h describes the record. The
// program ostrel-pending-moves carries out the requests. All paths are host paths.

#include <cstddef>
#include <cstdio>
#include <string>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Records a request to move `source` to `target`, or to delete `source` if `target` is null. With
// `replace` the move replaces an existing file at `target`. The call puts the current directory in
// front of a relative path. The two files need not exist. The cost does not depend on the number of
// requests in the record.
//
// Returns 0 when the request is on the disk. On failure keeps the earlier requests and returns an
// error code of the system:
//   ERROR_PATH_NOT_FOUND        a path is empty; the host does not know the current directory; or
//                               the parent of the record's directory is missing
//   ERROR_FILENAME_EXCED_RANGE  a path, made absolute, has PATH_MAX bytes or more
//   ERROR_NOT_SAME_DEVICE       the two folders exist and are on different file systems
//   ERROR_ACCESS_DENIED         this user may not write to the record, or the record is not
//                               trusted (PendingRecord::Open)
//   ERROR_INVALID_DATA          the record's file is no record of this version
//   ERROR_DISK_FULL             the disk is full, or the record would exceed 64 MiB
//   ERROR_NOT_SUPPORTED         the host has no boot id, or cannot lock or sync the record
//   ERROR_NOT_ENOUGH_MEMORY     memory is missing
// or the code that error_codes.inc gives for the host's errno, but never
// ERROR_CALL_NOT_IMPLEMENTED, for which callers move the file at once.
//
// Threads: any number of threads and processes may call at once. The call waits while another
// thread or process has the record's lock.
DWORD record_pending_move(const std::string &source, const std::string *target,
                          bool replace) noexcept;

enum class PendingScope {
    kEarlierStarts,  // the requests whose boot id is not that of the running system
    kAll,
};

struct PendingOutcome {
    // 0, or an errno: that of the record when it could not be read or written, ENOMEM when memory
    // is missing, or EOPNOTSUPP when kEarlierStarts finds no boot id of the host.
    int error = 0;
    bool stopped = false;    // a request failed for a passing reason
    std::size_t done = 0;    // the number of requests that were carried out
    std::size_t failed = 0;  // the number of failed requests and damaged lines
};

// Carries out requests in the order in which they were made and removes them from the record. A
// missing record counts as empty. The call locks the record until the call returns. For each
// request the call overwrites a few bytes of the record and waits for the disk two or three times;
// at the end it writes the remaining requests once.
//
// The call carries out each request once or not at all. After a crash the next call continues where
// this call stopped. A request fails when it cannot be carried out (something is at the target, a
// directory is not empty, the source is missing) or when its folders cannot be written to the disk.
// For each failed request and each damaged line, the call writes a line to `log` and removes the
// request or the damaged line from the record. A request that fails for a passing reason (too many
// open files, no memory, an I/O error, an interruption, a full disk) is logged too and stays in the
// record, with those behind it, which may rely on it. The call moves and deletes a link itself, not
// its target. The call also moves, deletes and replaces read-only files, since the request was
// accepted.
//
// When `error` is not 0, and when `stopped`, the requests that are not counted stay in the record.
// When only the record at the end could not be written, counted requests stay in it too, but marked
// as carried out.
//
// What is on the disk before what, for each request: the marks of the earlier requests and the mark
// that this request has begun; then the change; then the folders; then the mark that this request
// has ended. So a power failure leaves a request that has not begun, or one that has and whose
// source tells whether it was carried out, or one that has ended and whose change is on the disk.
PendingOutcome carry_out_pending_moves(PendingScope scope, std::FILE *log) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PENDING_PENDING_MOVES_H
