#ifndef OSTREL_PLATFORM_VOLUME_H
#define OSTREL_PLATFORM_VOLUME_H

// Drives: their kinds and their free space. Drives on the host, path errors and host errors are
// described in file.h.
//
//   DWORD sectors, bytes, free, total;
//   if (GetDriveTypeW(TEXT("C:\\")) == DRIVE_FIXED &&
//       GetDiskFreeSpaceW(TEXT("C:\\"), &sectors, &bytes, &free, &total)) {
//       report(std::uint64_t{free} * sectors * bytes);  // free bytes
//   }
//
// Implemented with open (O_PATH), fstatfs and fstatvfs.

#include "ostrel/platform/types.h"

#ifndef _WIN32

inline constexpr DWORD DRIVE_UNKNOWN = 0;
inline constexpr DWORD DRIVE_NO_ROOT_DIR = 1;
inline constexpr DWORD DRIVE_REMOVABLE = 2;
inline constexpr DWORD DRIVE_FIXED = 3;
inline constexpr DWORD DRIVE_REMOTE = 4;
inline constexpr DWORD DRIVE_CDROM = 5;
inline constexpr DWORD DRIVE_RAMDISK = 6;

// Returns the kind of the drive on which a directory lies. `root` names the directory, such as
// "C:\", with or without a separator at its end; null means the current directory. The host's file
// system there decides: ISO 9660 and UDF are DRIVE_CDROM, the network's (NFS, SMB, CIFS, 9P, Ceph,
// AFS) DRIVE_REMOTE, tmpfs and ramfs DRIVE_RAMDISK, every other is DRIVE_FIXED.
//
// On failure returns DRIVE_NO_ROOT_DIR and sets the last error to ERROR_PATH_NOT_FOUND (the drive
// does not exist, `root` is no directory or is empty) or to another path error. When the host
// refuses otherwise, returns DRIVE_UNKNOWN and sets the last error to a host error.
OSTREL_PLATFORM_API DWORD GetDriveTypeW(const WCHAR *root) noexcept;

// Stores the size and the free space of the drive on which a directory lies. `root` names the
// directory and ends in a separator; null means the current directory. A null pointer among the
// other arguments is allowed: nothing is stored there.
//
// The free clusters are those that an ordinary user may fill. On a volume of more than 2^32 - 1
// clusters the call doubles the sectors per cluster and halves the counts, rounding down, until
// they fit: only the products are sizes.
//
// Returns TRUE. On failure returns FALSE, stores nothing and sets the last error to
// ERROR_INVALID_NAME (`root` has no separator at its end), a path error as above, or a host error.
OSTREL_PLATFORM_API BOOL GetDiskFreeSpaceW(const WCHAR *root, DWORD *sectorsPerCluster,
                                           DWORD *bytesPerSector, DWORD *freeClusters,
                                           DWORD *totalClusters) noexcept;

#endif

#endif  // OSTREL_PLATFORM_VOLUME_H
