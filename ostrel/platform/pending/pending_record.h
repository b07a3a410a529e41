#ifndef OSTREL_PLATFORM_PENDING_PENDING_RECORD_H
#define OSTREL_PLATFORM_PENDING_PENDING_RECORD_H

// Internal. Reads and writes the record of the requests that wait for the next start of the system.
// A call reports success only when its change is on the disk, so that no power failure loses an
// accepted request.
//
// The format is the layer's own, and is text. The first line is "ostrel-pending-moves 2", the
// format and its version. One line follows for each request, in the order in which the requests
// were made:
//
//   STATE INODE TIME SUM delete BOOT SOURCE
//   STATE INODE TIME SUM move BOOT SOURCE TARGET
//   STATE INODE TIME SUM replace BOOT SOURCE TARGET
//
// One blank separates two fields; each line ends in LF. The first three fields have a fixed width,
// and the program that carries out the requests overwrites them in place:
//
//   STATE  "." for a request that waits, "x" for one that was carried out or has failed.
//   INODE  16 times "-" each. When the request may have been carried out, the SourceIdentity that
//   TIME   SOURCE had just before, each in 16 hexadecimal digits.
//
// SUM is the CRC-32 (ITU-T V.42) of all that follows it in the line, without the blank and the LF,
// in 8 hexadecimal digits. BOOT is the host's boot id at the time of the request
// (/proc/sys/kernel/random/boot_id). Paths are absolute and shorter than PATH_MAX bytes. In a path,
// the bytes up to 0x20, 0x7F and '%' are written as '%' and two hexadecimal digits. Hexadecimal
// digits are 0-9, and a-f in the first fields, A-F in paths.
//
// What a kill or a power failure leaves behind, on a disk that writes a sector as a whole:
//
// - Append writes behind the last LF. An incomplete last line, without LF, comes from a writer that
//   did not report success. Readers ignore the line; the next Append cuts it off. SUM shows a line
//   of which only some blocks have reached the disk, or that contains a part of an earlier line.
// - MarkBegun overwrites every character of INODE and TIME. Where a "-" is left, the mark was not
//   on the disk, so the request has not been carried out.
// - MarkEnded writes one byte. When the byte is lost, INODE and TIME show that the request was
//   carried out.
// - Replace writes another file, writes that file to the disk, and renames it over the record.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {

enum class PendingVerb : std::uint8_t {
    kDelete,
    kMove,     // fails when something is at the target
    kReplace,  // replaces a file at the target
};

// The identity of a file. Shows after a crash whether a request was carried out.
struct SourceIdentity {
    std::uint64_t inode;
    // The file's time of birth in nanoseconds since 1970. On a file system without a time of birth,
    // the time of the last change (ctime).
    std::int64_t time;

    // The device is no part of the identity, because it may have another number after the next
    // start.
    bool operator==(const SourceIdentity &) const = default;
};

struct PendingRequest {
    PendingVerb verb;
    std::string boot;
    std::optional<SourceIdentity> begun;  // when the request may have been carried out
    std::string source;
    std::string target;      // empty for kDelete
    bool has_ended = false;  // the request was carried out or has failed
    // The offset of the request's line in the record, in bytes. Set by PendingRecord::Read.
    std::size_t offset = 0;
};

// Returns the line of a request, with its LF.
std::string line_of_request(const PendingRequest &request);

// Parses a line without its LF. Returns the request. Returns nothing when the line is damaged.
std::optional<PendingRequest> request_of_line(std::string_view line);

// Returns a path as the record's lines spell it: see the format above.
std::string encode_path(std::string_view path);

// Returns a path to print: encoded as in a line, with the bytes that are no UTF-8 and the
// characters that control a terminal or the direction of text encoded too.
std::string printable_path(std::string_view path);

// What a record holds.
struct PendingContent {
    std::vector<PendingRequest> requests;  // without those that have ended
    std::vector<std::size_t> damaged;      // the numbers of the damaged lines, counted from 1
    std::size_t ended = 0;                 // the number of requests that have ended
};

// The file of the record. Open locks the file (flock) and the destructor unlocks the file, so only
// one object of all processes has the lock at a time.
//
// Threads: use an object on one thread at a time.
// Errors: the calls return 0 or an errno. On failure a call keeps the requests in the file as they
// were, except as under Replace. The calls throw std::bad_alloc.
// Costs: Append, MarkBegun, MarkEnded and Sync cost the same for a record of any length.
class PendingRecord {
public:
    PendingRecord() = default;
    ~PendingRecord();
    PendingRecord &operator=(PendingRecord &&) = delete;  // nor copied

    // Returns the directory of the record: the value of the environment variable OSTREL_STATE_DIR,
    // or /var/lib/ostrel when the variable is missing or empty. A program that runs with more
    // rights than its caller ignores the variable (secure_getenv).
    static std::string Directory();

    // Opens and locks the record; waits until no other object has the lock. With `create` creates a
    // missing record (mode 0600) and its directory (0755), but not the directory's parent. Writes
    // the directory to the disk, since the program that created or replaced the record may have
    // been killed before it did so. Returns 0. On failure returns errno:
    //   ENOENT  the record is missing and `create` is false, or the directory's parent is missing
    //   EACCES  the record is no regular file, or its owner is neither root nor this user; for root
    //           also when root does not own the directory, or when others than root and the group
    //           root may write to the record or the directory
    // or the errno of the host's call.
    int Open(bool create);

    // Appends a request that waits, and writes the record to the disk. Returns 0. On failure
    // returns errno: EBADMSG when the file is no record of this version, EFBIG when the record
    // would exceed 64 MiB.
    int Append(const PendingRequest &request);

    // Reads all requests and appends them to `content`. Returns 0. On failure returns errno:
    // EBADMSG as above, EFBIG when the record exceeds 64 MiB.
    int Read(PendingContent *content);

    // Store `request.begun`, or that the request has ended, in the line of a request that Read
    // returned. The marks are on the disk after the next Sync. Return 0 or errno.
    int MarkBegun(const PendingRequest &request);
    int MarkEnded(const PendingRequest &request);

    // Writes the marks to the disk, if there are new ones. Returns 0 or errno.
    int Sync();

    // Replaces all requests in the file by `requests`, atomically, and writes the record to the
    // disk. Removes the file when `requests` is empty. The offsets of earlier requests are void.
    // Returns 0. On failure returns errno. When only the directory cannot be written to the disk,
    // the call fails although it has replaced the requests.
    int Replace(const std::vector<PendingRequest> &requests);

private:
    int OpenDirectory(bool create);
    int OpenFile(bool create);
    bool IsInPlace() const;
    int Size(std::size_t *size) const;
    int ReadAt(std::size_t offset, std::size_t count, std::string *text) const;
    int FindEnd(std::size_t size, std::size_t *end) const;
    int WriteAt(std::size_t offset, std::string_view text) const;
    int Mark(std::size_t offset, std::string_view mark);

    HostDescriptor m_directory;
    HostDescriptor m_file;  // the lock belongs to this open file
    bool m_hasNewMarks = false;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PENDING_PENDING_RECORD_H
