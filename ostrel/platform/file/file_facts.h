#ifndef OSTREL_PLATFORM_FILE_FILE_FACTS_H
#define OSTREL_PLATFORM_FILE_FILE_FACTS_H

// Internal. What the platform tells of a file, made of the host's facts by the rules in file.h.

#include <cstdint>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

struct FileFacts {
    DWORD attributes;  // NORMAL when there are no others
    FILETIME creation;
    FILETIME access;
    FILETIME write;
    std::uint64_t size;    // 0 for a directory
    std::uint64_t volume;  // the host's device number
    std::uint64_t index;   // the host's inode number
    std::uint64_t links;
};

// The facts of `name` in an open directory (AT_FDCWD for a path), through a link; of a link that
// leads nowhere its own. Result: 0, or errno.
int read_facts(int directory, const char *name, FileFacts *facts) noexcept;

// The same, knowing from a directory entry what it is: its d_type, which saves asking the host for
// links. DT_UNKNOWN is allowed.
int read_facts(int directory, const char *name, unsigned char type, FileFacts *facts) noexcept;

// Of an open file.
int read_facts(int file, FileFacts *facts) noexcept;

// Stores READONLY, HIDDEN, SYSTEM and ARCHIVE of `attributes`. `path` is no link: see
// SetFileAttributesW. Result: 0, or errno.
int write_attributes(const char *path, DWORD attributes) noexcept;
int write_attributes(int file, DWORD attributes) noexcept;

// Sets the times of an open file; null leaves one alone. Result: 0, or errno.
int write_times(int file, const FILETIME *creation, const FILETIME *access,
                const FILETIME *write) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_FILE_FACTS_H
