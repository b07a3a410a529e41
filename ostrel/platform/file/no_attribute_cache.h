#ifndef OSTREL_PLATFORM_FILE_NO_ATTRIBUTE_CACHE_H
#define OSTREL_PLATFORM_FILE_NO_ATTRIBUTE_CACHE_H

// Internal. A cache of the files that have none of the layer's extended attributes. Most files have
// none. Without the cache a search would make two host calls for such a file instead of one.
//
// Every change of a file's extended attributes changes the file's ctime, which no call can set. An
// entry is therefore valid while device, inode and ctime stay the same. The cache takes only files
// on file systems that are known to follow this rule. The ctime must be more than 2 seconds old,
// because another change within one step of the clock does not change the ctime.
//
// The cache is a table of 2^20 slots. A slot contains a 64-bit hash of device, inode and ctime. A
// later file with the same slot replaces the entry.
//
// Threads: every call may run on any thread.

#include <sys/stat.h>

#include "ostrel/platform/file/stored_attributes.h"

namespace ostrel_platform {

// Whether the cache contains the file. `file` is a result of statx.
bool is_known_without_attributes(const struct statx &file) noexcept;

// Adds a file. `file` is the result of a statx call that came before the attributes were read
// through `ref`. `file` and `ref` must be the same file, so `ref` is an open file, or a name in an
// open directory that is no link: giving such a name to another file changes the ctime of the first
// file. Has no effect for a path (AT_FDCWD) and for a file that the cache does not take.
void remember_without_attributes(const struct statx &file, const FileRef &ref) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_NO_ATTRIBUTE_CACHE_H
