#ifndef OSTREL_PLATFORM_VOLUME_H
#define OSTREL_PLATFORM_VOLUME_H

// Drives and the room on them. What a drive is on the host is told in file.h.

#include "ostrel/platform/types.h"

#ifndef _WIN32

inline constexpr DWORD DRIVE_UNKNOWN = 0;
inline constexpr DWORD DRIVE_NO_ROOT_DIR = 1;
inline constexpr DWORD DRIVE_REMOVABLE = 2;
inline constexpr DWORD DRIVE_FIXED = 3;
inline constexpr DWORD DRIVE_REMOTE = 4;
inline constexpr DWORD DRIVE_CDROM = 5;
inline constexpr DWORD DRIVE_RAMDISK = 6;

// What kind of drive a path's root is. `root` ends in a separator ("C:\"), null means that of the
// current directory. The host's file system there decides: ISO 9660 and UDF are DRIVE_CDROM, the
// network's (NFS, SMB, 9P, Ceph, AFS) DRIVE_REMOTE, tmpfs and ramfs DRIVE_RAMDISK, every other is
// DRIVE_FIXED.
//
// Result: DRIVE_NO_ROOT_DIR for a drive that does not exist, a path that is no directory, and the
// empty text; DRIVE_UNKNOWN when the host refuses to tell.
OSTREL_PLATFORM_API DWORD GetDriveTypeW(const WCHAR *root) noexcept;

// The room on a drive. `root` ends in a separator, null means that of the current directory. Free
// is what an ordinary user can have. A volume of more than 2^32 - 1 clusters is told in larger
// ones: the products count. A null pointer is passed over.
//
// Result: FALSE with the last error ERROR_PATH_NOT_FOUND for a drive that does not exist, a path
// that is no directory and the empty text, ERROR_INVALID_NAME for a path without a separator at its
// end, or what the host's refusal becomes.
OSTREL_PLATFORM_API BOOL GetDiskFreeSpaceW(const WCHAR *root, DWORD *sectorsPerCluster,
                                           DWORD *bytesPerSector, DWORD *freeClusters,
                                           DWORD *totalClusters) noexcept;

#endif

#endif  // OSTREL_PLATFORM_VOLUME_H
