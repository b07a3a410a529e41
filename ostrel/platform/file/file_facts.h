#ifndef OSTREL_PLATFORM_FILE_FILE_FACTS_H
#define OSTREL_PLATFORM_FILE_FILE_FACTS_H

// Internal. Reads and writes the facts of a file (attributes, times, size, identity). Converts
// between the host's facts and the platform's by the rules in file.h.

#include <cstdint>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

struct FileFacts {
    DWORD attributes;  // NORMAL when the file has no other attribute
    FILETIME creation;
    FILETIME access;
    FILETIME write;
    std::uint64_t size;    // in bytes; 0 except for a regular file
    std::uint64_t volume;  // the host's device number
    std::uint64_t index;   // the host's inode number
    std::uint64_t links;   // the number of hard links
};

// Stores the facts of `name` in an open directory. With AT_FDCWD, `name` is a path. The facts of a
// link are those of its target, or the link's own when the target cannot be reached. Both have
// REPARSE_POINT. Returns 0. On failure returns errno.
int read_facts(int directory, const char *name, FileFacts *facts) noexcept;

// The same with the type of the directory entry: its d_type, or DT_UNKNOWN. DT_LNK saves one call
// of the host.
int read_facts(int directory, const char *name, unsigned char type, FileFacts *facts) noexcept;

// The same without the layer's extended attributes: HIDDEN, SYSTEM and ARCHIVE are missing,
// READONLY of a directory too, and the creation time is the host's.
int read_host_facts(int directory, const char *name, unsigned char type, FileFacts *facts) noexcept;

// Stores the facts of an open file. Returns 0. On failure returns errno.
int read_facts(int file, FileFacts *facts) noexcept;

// Set READONLY, HIDDEN, SYSTEM and ARCHIVE as in `attributes`, by the rules of SetFileAttributesW.
// A name that is a link, or becomes one meanwhile, is left alone. Return 0. On failure return
// errno: EOPNOTSUPP for READONLY of a directory on a file system without extended attributes.
int write_attributes(const FileRef &name, DWORD attributes) noexcept;
int write_attributes(int file, DWORD attributes) noexcept;

// The same for a file that the caller has just created and that has no stored bits yet.
int write_new_attributes(int file, DWORD attributes) noexcept;

// Sets the times of an open file, by the rules of SetFileTime. A null pointer keeps that time.
// Returns 0. On failure returns errno: EINVAL for a FILETIME of 2^63 or more, except all bits set,
// and for a time that the file system cannot store.
int write_times(int file, const FILETIME *creation, const FILETIME *access,
                const FILETIME *write) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_FILE_FACTS_H
