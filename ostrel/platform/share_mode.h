#ifndef OSTREL_PLATFORM_SHARE_MODE_H
#define OSTREL_PLATFORM_SHARE_MODE_H

// Internal. The sharing rules of open files, between all processes that use the layer.
//
// Each open file holds a shared lock of the host (F_OFD_SETLK, which belongs to the open file, not
// to the process) on one byte far behind the end of any file: which byte tells its access and its
// share mode. An open that finds a lock on a byte it does not go with fails.

namespace platform {

// Bits of an access and of a share mode; the share bits are those of FILE_SHARE_*.
inline constexpr unsigned kShareRead = 1;
inline constexpr unsigned kShareWrite = 2;
inline constexpr unsigned kShareDelete = 4;

// Takes part in the sharing of a file until the last descriptor of this open is closed. A file that
// the host has not opened for reading, or that cannot be locked, takes no part. Result: 0, or EBUSY
// when another open stands against it.
int take_share(int file, unsigned access, unsigned share) noexcept;

// Whether all that have the file open allow this access. `file` is open in any way and takes no
// part itself.
bool is_shared_for(int file, unsigned access) noexcept;

}  // namespace platform

#endif  // OSTREL_PLATFORM_SHARE_MODE_H
