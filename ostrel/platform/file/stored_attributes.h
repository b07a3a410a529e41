#ifndef OSTREL_PLATFORM_FILE_STORED_ATTRIBUTES_H
#define OSTREL_PLATFORM_FILE_STORED_ATTRIBUTES_H

// Internal. What the layer keeps in a file's extended attributes (file.h): the attribute bits in
// user.DOSATTRIB, a time of creation in user.ostrel.creation_time. Only regular files and
// directories can have them. The calls never open a file; any thread.

#include <sys/types.h>

#include <cstdint>
#include <optional>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// A file by its name in an open directory (AT_FDCWD for a path), through links; with an empty name
// the open file itself.
struct FileRef {
    int directory;
    const char *name;
};

// Stands for a device that nothing is known of: the host is asked.
inline constexpr dev_t kAnyDevice = 0;

// Nothing when there is none (errno is ENODATA then), and for a text that is no number or cannot be
// read. `device` is the one the file is on: one without extended attributes is asked once in a
// while.
std::optional<DWORD> read_stored_bits(const FileRef &ref, dev_t device) noexcept;

// 100 ns since 1601. It never stands without bits, be they 0: who finds none need not ask.
std::optional<std::int64_t> read_stored_creation(const FileRef &ref, dev_t device) noexcept;

// What a file server keeps behind the bits stays. Result: 0, or errno: EOPNOTSUPP on a file system
// without such attributes, EACCES without write permission.
int store_bits(const char *path, DWORD bits) noexcept;
int store_bits(int file, DWORD bits) noexcept;
int remove_bits(const char *path) noexcept;
int remove_bits(int file) noexcept;
int store_creation(int file, std::int64_t ticks) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_STORED_ATTRIBUTES_H
