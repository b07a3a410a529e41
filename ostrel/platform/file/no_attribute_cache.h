#ifndef OSTREL_PLATFORM_FILE_NO_ATTRIBUTE_CACHE_H
#define OSTREL_PLATFORM_FILE_NO_ATTRIBUTE_CACHE_H

// Internal. A cache of the files that have none of the layer's extended attributes. Most files have
// none, and asking the host each time would double the calls of a search.
//
// Every change of a file's extended attributes changes the file's ctime, which no call can set. An
// entry is therefore valid while device, inode and ctime stay the same. The cache takes only files
// on file systems that are known to keep this rule, and only once the ctime is more than 2 seconds
// old: another change within the same step of the ctime would not show.
//
// The table has 2^20 slots. A slot holds a 64-bit hash of device, inode and ctime; a later file
// with the same slot replaces the entry.
//
// Threads: every call may run on any thread.

#include <sys/stat.h>

#include "ostrel/platform/file/stored_attributes.h"

namespace ostrel_platform {

// Whether the cache knows that the file has no such attributes. `file` is a result of statx.
bool is_known_without_attributes(const struct statx &file) noexcept;

// Adds a file. `file` is the result of a statx before the attributes were read through `ref`. Both
// must be of one file: `ref` is an open file, or a name in an open directory that is no link, since
// such a name cannot lead to another file without a change of the first file's ctime. Has no effect
// for a path (AT_FDCWD) and for a file that the cache does not take.
void remember_without_attributes(const struct statx &file, const FileRef &ref) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_NO_ATTRIBUTE_CACHE_H
