#ifndef OSTREL_PLATFORM_FILE_ATTRIBUTE_CACHE_H
#define OSTREL_PLATFORM_FILE_ATTRIBUTE_CACHE_H

// Internal. A cache of what files have in the layer's extended attributes; most files have none.
// Without the cache a search would make one or two more host calls for each file.
//
// Every change of a file's extended attributes changes the file's ctime, which no call can set. An
// entry is therefore valid while device, inode and ctime stay the same. The cache takes only files
// on file systems that are known to follow this rule. The ctime must be more than 2 seconds old,
// because another change within one step of the clock does not change the ctime.
//
// The cache is a table of 2^20 slots. A slot contains a 64-bit hash of device, inode and ctime, and
// the values. A later file with the same slot replaces the entry.
//
// Threads: every call may run on any thread.

#include <sys/stat.h>

#include <cstdint>
#include <optional>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

struct StoredAttributes {
    DWORD bits = 0;
    std::optional<std::int64_t> creation;  // in units of 100 ns since 1601
};

// Returns the entry of a file, or nothing. `file` is a result of statx.
std::optional<StoredAttributes> find_cached_attributes(const struct statx &file) noexcept;

// Adds a file. `file` is the result of a statx call that came before the attributes were read
// through `ref`. `file` and `ref` must be the same file, so `ref` is an open file, or a name in an
// open directory that is no link: giving such a name to another file changes the ctime of the first
// file. Has no effect for a path (AT_FDCWD) and for a file that the cache does not take.
void cache_attributes(const struct statx &file, const FileRef &ref,
                      const StoredAttributes &stored) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_ATTRIBUTE_CACHE_H
