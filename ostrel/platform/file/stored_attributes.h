#ifndef OSTREL_PLATFORM_FILE_STORED_ATTRIBUTES_H
#define OSTREL_PLATFORM_FILE_STORED_ATTRIBUTES_H

// Internal. Reads and writes what the layer keeps in extended attributes (file.h): the attribute
// bits in user.DOSATTRIB, a creation time in user.ostrel.creation_time. Only regular files and
// directories can have them. The calls do not open the file.
//
// Threads: every call may run on any thread.

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Names a file by its name in an open directory (AT_FDCWD for a path), with links followed. With an
// empty name, `directory` is the open file itself.
struct FileRef {
    int directory;
    const char *name;
};

// An unknown device: the calls always ask the host.
inline constexpr dev_t kAnyDevice = 0;

// Returns the stored attribute bits. Returns nothing when the file has none (errno is ENODATA),
// when the text is no number, and when the host cannot read it. `device` is the device that the
// file is on. The calls ask a device without extended attributes about once a second; in between
// they return nothing and leave errno as it is.
std::optional<DWORD> read_stored_bits(const FileRef &ref, dev_t device) noexcept;

// Returns the stored creation time, in units of 100 ns since 1601, or nothing as above. A creation
// time never stands without bits, even if they are 0, so a caller that finds no bits need not ask.
std::optional<std::int64_t> read_stored_creation(const FileRef &ref, dev_t device) noexcept;

// Store or remove the bits, or store the creation time in units of 100 ns since 1601. store_bits
// keeps what a file server has stored behind the bits; remove_bits removes that too. Removing what
// is missing succeeds. Return 0 or errno: EOPNOTSUPP on a file system without such attributes,
// EACCES without write permission.
int store_bits(const char *path, DWORD bits) noexcept;
int store_bits(int file, DWORD bits) noexcept;
int remove_bits(const char *path) noexcept;
int remove_bits(int file) noexcept;
int store_creation(int file, std::int64_t ticks) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_STORED_ATTRIBUTES_H
