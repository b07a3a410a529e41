#ifndef OSTREL_PLATFORM_PENDING_PENDING_RECORD_H
#define OSTREL_PLATFORM_PENDING_PENDING_RECORD_H

// Internal. Reads and writes the record of the requests that wait for the next start of the system.
// A call reports success only when its change is on the disk, so that no power failure loses an
// accepted request.
//
// The format is the layer's own, and is text. The first line is "ostrel-pending-moves 1", the
// format and its version. One line follows for each request, in the order in which the requests
// were made:
//
//   delete BOOT STATE SOURCE
//   move BOOT STATE SOURCE TARGET
//   replace BOOT STATE SOURCE TARGET
//
// One blank separates two fields; each line ends in LF. BOOT is the host's boot id at the time of
// the request (/proc/sys/kernel/random/boot_id). STATE is "asked", or "begun:DEVICE:INODE:TIME"
// when the request may have been carried out. DEVICE, INODE and TIME are the SourceIdentity that
// SOURCE had just before, in decimal. Paths are absolute and shorter than PATH_MAX bytes. In a
// path, the bytes up to 0x20, 0x7F and '%' are written as '%' and two hexadecimal digits. An
// incomplete last line, without LF, comes from a writer that crashed before it reported success;
// readers ignore the line.

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
    std::uint64_t device;  // the major number in the upper 32 bits, the minor number in the lower
    std::uint64_t inode;
    // The file's time of birth in nanoseconds since 1970. On a file system without a time of birth,
    // the time of the last change (ctime).
    std::int64_t time;

    // Ignores the device, because the device may have another number after the next start. Two
    // files of the same time have different inodes.
    bool operator==(const SourceIdentity &other) const {
        return inode == other.inode && time == other.time;
    }
};

struct PendingRequest {
    PendingVerb verb;
    std::string boot;
    std::optional<SourceIdentity> begun;  // empty for the state "asked"
    std::string source;
    std::string target;  // empty for kDelete
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

// The file of the record. Open locks the file (flock) and the destructor unlocks the file, so only
// one object of all processes has the lock at a time.
//
// Threads: use an object on one thread at a time.
// Errors: the calls return 0 or an errno. On failure a call keeps the requests in the file as they
// were, except as under Replace. The calls throw std::bad_alloc.
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
    // missing record (mode 0600) and its directory (0755), but not the directory's parent. Returns
    // 0. On failure returns errno:
    //   ENOENT  the record is missing and `create` is false, or the directory's parent is missing
    //   EACCES  the record is no regular file, or its owner is neither root nor this user; for root
    //           also when root does not own the directory, or when others than root and the group
    //           root may write to the record or the directory
    // or the errno of the host's call.
    int Open(bool create);

    // Appends a request and writes the record to the disk. Returns 0. On failure returns errno:
    // EBADMSG when the file is no record of this version, EFBIG when the record would exceed
    // 64 MiB.
    int Append(const PendingRequest &request);

    // Appends the requests to `requests`, and the numbers of the damaged lines, counted from 1, to
    // `damaged`. Returns 0. On failure returns errno: EBADMSG as above, EFBIG when the record
    // exceeds 128 MiB.
    int Read(std::vector<PendingRequest> *requests, std::vector<std::size_t> *damaged);

    // Replaces all requests in the file by `requests`, atomically, and writes the record to the
    // disk. Removes the file when `requests` is empty. Returns 0. On failure returns errno. When
    // only the directory cannot be written to the disk, the call fails although it has replaced the
    // requests.
    int Replace(const std::vector<PendingRequest> &requests);

private:
    int OpenDirectory(bool create);
    int OpenFile(bool create);
    bool IsInPlace() const;
    int ReadText(std::string *text) const;
    int ReadLines(std::string *text, std::size_t *end) const;  // `end`: after the last LF
    int WriteBehind(std::size_t end, std::string_view text) const;

    HostDescriptor m_directory;
    HostDescriptor m_file;  // the lock belongs to this open file
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PENDING_PENDING_RECORD_H
