#ifndef OSTREL_PLATFORM_PENDING_PENDING_RECORD_H
#define OSTREL_PLATFORM_PENDING_PENDING_RECORD_H

// Internal. The record of what waits for the next start of the system: its text and its file. Only
// what is in the file, and on the disk, counts: whoever was told of success can lose power.
//
// The text. A first line "ostrel-pending-moves 1", the format and its version, then a line for each
// request, in the order in which they were made:
//
//   delete BOOT STATE SOURCE
//   move BOOT STATE SOURCE TARGET
//   replace BOOT STATE SOURCE TARGET
//
// Fields are separated by one blank, lines end in LF. BOOT is the host's boot id at the time of the
// request. STATE is "asked", or "begun:DEVICE:INODE:TIME" in decimal when the request may have been
// carried out: the identity that SOURCE had just before. Paths are absolute; their bytes up to
// 0x20, 0x7F and '%' are written as '%' and two hexadecimal digits. Bytes behind the last LF are
// what a writer left that did not live to tell of success; they count for nothing.

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
    kReplace,  // a file of that name, too
};

// Which file a name stands for.
struct SourceIdentity {
    std::uint64_t device;
    std::uint64_t inode;
    // In nanoseconds since 1970: when the file came into being, or was last changed in any way on a
    // file system that does not keep that.
    std::int64_t time;

    // The device counts for nothing: it has another number after the next start, perhaps, and two
    // files that came into being in the same nanosecond have different inodes.
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

// The line of a request, with its LF, and back; nothing for a line (without LF) that is none.
std::string line_of_request(const PendingRequest &request);
std::optional<PendingRequest> request_of_line(std::string_view line);

// A path as it stands in a line.
std::string encode_path(std::string_view path);

// The file, locked against every other user as long as the object lives. All calls give 0 or an
// errno, and on failure leave the requests as they were.
class PendingRecord {
public:
    PendingRecord() = default;
    ~PendingRecord();
    PendingRecord &operator=(PendingRecord &&) = delete;  // nor copied

    // The directory of the record: what the environment variable OSTREL_STATE_DIR names, else
    // /var/lib/ostrel. A program that runs with more rights than its caller does not look at the
    // variable.
    static std::string Directory();

    // Opens and locks the record; waits for others to be done with it. A missing one, and its
    // directory, are made if `create`, else it is ENOENT. EACCES when it is not a plain file of
    // this user or of root, or when root would trust a file or directory that others may write.
    int Open(bool create);

    // Adds a request. When it returns, the request is on the disk. EBADMSG when the file is no
    // record of this version.
    int Append(const PendingRequest &request);

    // The requests; `damaged` receives the numbers of lines that are none. EBADMSG as above.
    int Read(std::vector<PendingRequest> *requests, std::vector<std::size_t> *damaged);

    // Puts these requests in the place of all, at once and on the disk. None removes the file.
    int Replace(const std::vector<PendingRequest> &requests);

private:
    int OpenDirectory(bool create);
    int OpenFile(bool create);
    bool IsInPlace() const;
    int ReadText(std::string *text) const;
    int ReadLines(std::string *text, std::size_t *end) const;  // up to the last LF
    int WriteBehind(std::size_t end, std::string_view text) const;

    HostDescriptor m_directory;
    HostDescriptor m_file;  // holds the lock
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PENDING_PENDING_RECORD_H
