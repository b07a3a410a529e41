#ifndef OSTREL_PLATFORM_FILE_STORED_ATTRIBUTES_H
#define OSTREL_PLATFORM_FILE_STORED_ATTRIBUTES_H

// Internal. Reads and writes the layer's two extended attributes (file.h): user.DOSATTRIB contains
// attribute bits, user.ostrel.creation_time a creation time. Only regular files and directories can
// have these extended attributes. The calls follow links and do not open the file.
//
// Threads: every call may run on any thread.

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// The value of `device` for a file on an unknown device: the calls always ask the host.
inline constexpr dev_t kAnyDevice = 0;

// Returns the stored attribute bits. Returns nothing when the file has no bits (errno is ENODATA),
// when the stored text is no number, and when the host cannot read the attribute (errno is set).
// `device` is the device that the file is on. When a device does not support extended attributes,
// the calls ask the host about once a second. Between these host calls they return nothing
// and leave errno as it is.
std::optional<DWORD> read_stored_bits(const FileRef &ref, dev_t device) noexcept;

// Returns the stored creation time in units of 100 ns since 1601. Returns nothing as above, and for
// a negative number. A file with a stored creation time also has stored bits, which may be 0, so a
// caller that finds no bits need not make this call.
std::optional<std::int64_t> read_stored_creation(const FileRef &ref, dev_t device) noexcept;

// Store or remove the bits, or store the creation time in units of 100 ns since 1601. store_bits
// keeps what a file server has stored after the bits; remove_bits removes that too. remove_bits
// succeeds when the file has no bits. Return 0. On failure return errno: EOPNOTSUPP when the file
// system does not support extended attributes, EACCES without write permission.
int store_bits(const char *path, DWORD bits) noexcept;
int store_bits(int file, DWORD bits) noexcept;
int store_new_bits(int file, DWORD bits) noexcept;  // of a file without bits
int remove_bits(const char *path) noexcept;
int remove_bits(int file) noexcept;
int store_creation(int file, std::int64_t ticks) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_STORED_ATTRIBUTES_H
