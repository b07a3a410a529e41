#ifndef OSTREL_PLATFORM_PENDING_PENDING_RECORD_H
#define OSTREL_PLATFORM_PENDING_PENDING_RECORD_H

// Internal. The record of the requests that wait for the next start of the system: its text and its
// file. A call reports success only when its change is on the disk, so that no power failure loses
// an accepted request.
//
// The text. The first line is "ostrel-pending-moves 1", the format and its version. A line follows
// for each request, in the order in which the requests were made:
//
//   delete BOOT STATE SOURCE
//   move BOOT STATE SOURCE TARGET
//   replace BOOT STATE SOURCE TARGET
//
// One blank separates two fields; each line ends in LF. BOOT is the host's boot id at the time of
// the request (/proc/sys/kernel/random/boot_id). STATE is "asked", or "begun:DEVICE:INODE:TIME"
// when the request may have been carried out: in decimal, the SourceIdentity that SOURCE had just
// before. Paths are absolute and shorter than PATH_MAX bytes. Their bytes up to 0x20, 0x7F and '%'
// are written as '%' and two hexadecimal digits. An incomplete last line, without LF, comes from a
// writer that crashed before it reported success; readers ignore it.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {

enum class PendingVerb : std::uint8_t {
    kDelete,
    kMove,     // to a name that is free
    kReplace,  // to a name that is free or that of a file
};

// The identity of a file.
struct SourceIdentity {
    std::uint64_t device;  // the host's major number in the upper 32 bits, the minor in the lower
    std::uint64_t inode;
    // The file's time of birth in nanoseconds since 1970, or, on a file system that does not keep
    // it, the time of the last change (ctime).
    std::int64_t time;

    // Ignores the device, which may have another number after the next start. Two files of the same
    // time have different inodes.
    bool operator==(const SourceIdentity &other) const {
        return inode == other.inode && time == other.time;
    }
};

struct PendingRequest {
    PendingVerb verb;
    std::string boot;
    std::optional<SourceIdentity> begun;
    std::string source;
    std::string target;  // empty for kDelete
};

// Returns the line of a request, with its LF.
std::string line_of_request(const PendingRequest &request);

// Returns the request of a line without its LF, or nothing when the line is damaged.
std::optional<PendingRequest> request_of_line(std::string_view line);

// Returns a path in the form that it has in a line.
std::string encode_path(std::string_view path);

// The file of the record. Only one object at a time has the lock: Open locks the file (flock), the
// destructor unlocks the file.
//
// Threads: use an object on one thread at a time.
// Errors: the calls return 0 or an errno and, except as under Replace, leave the requests in the
// file as they were on failure. They throw std::bad_alloc.
class PendingRecord {
public:
    PendingRecord() = default;
    ~PendingRecord();
    PendingRecord &operator=(PendingRecord &&) = delete;  // nor copied

    // Returns the directory of the record: the one that the environment variable OSTREL_STATE_DIR
    // names, else /var/lib/ostrel. A program that runs with more rights than its caller ignores the
    // variable, and so do all when it is empty.
    static std::string Directory();

    // Opens and locks the record; waits until no other object has the lock. With `create` makes a
    // missing record (mode 0600) and its directory (0755), but not the directory's parent. Returns
    // 0, or errno:
    //   ENOENT  the record is missing and `create` is false, or the parent is missing
    //   EACCES  the record is no regular file, or belongs neither to root nor to this user; for
    //           root also when others than root or its group may write to the record or directory
    // or what the host's call sets.
    int Open(bool create);

    // Appends a request and writes it to the disk. Returns 0, or errno: EBADMSG when the file is no
    // record of this version, EFBIG when the record would exceed 64 MiB.
    int Append(const PendingRequest &request);

    // Appends the requests to `requests`, and the numbers of the damaged lines, counted from 1, to
    // `damaged`. Returns 0, or errno: EBADMSG as above, EFBIG when the record exceeds 128 MiB.
    int Read(std::vector<PendingRequest> *requests, std::vector<std::size_t> *damaged);

    // Replaces all requests by these, atomically, and writes them to the disk. Removes the file
    // when there are none. Returns 0 or errno. When only the directory cannot be written to the
    // disk, the call fails although it has replaced the requests.
    int Replace(const std::vector<PendingRequest> &requests);

private:
    int OpenDirectory(bool create);
    int OpenFile(bool create);
    bool IsInPlace() const;
    int ReadText(std::string *text) const;
    int ReadLines(std::string *text, std::size_t *end) const;  // `end` is behind the last LF
    int WriteBehind(std::size_t end, std::string_view text) const;

    HostDescriptor m_directory;
    HostDescriptor m_file;  // the lock belongs to this open file
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PENDING_PENDING_RECORD_H
