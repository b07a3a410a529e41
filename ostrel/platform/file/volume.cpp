#include "ostrel/platform/volume.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <string>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/file/host_path.h"

namespace ostrel_platform {
namespace {

constexpr struct {
    std::uint32_t file_system;
    DWORD drive;
} kDrives[] = {
    {ISOFS_SUPER_MAGIC, DRIVE_CDROM}, {UDF_SUPER_MAGIC, DRIVE_CDROM},
    {NFS_SUPER_MAGIC, DRIVE_REMOTE},  {SMB_SUPER_MAGIC, DRIVE_REMOTE},
    {CIFS_SUPER_MAGIC, DRIVE_REMOTE}, {SMB2_SUPER_MAGIC, DRIVE_REMOTE},
    {V9FS_MAGIC, DRIVE_REMOTE},       {CEPH_SUPER_MAGIC, DRIVE_REMOTE},
    {AFS_SUPER_MAGIC, DRIVE_REMOTE},  {AFS_FS_MAGIC, DRIVE_REMOTE},
    {TMPFS_MAGIC, DRIVE_RAMDISK},     {RAMFS_MAGIC, DRIVE_RAMDISK},
};

bool is_no_directory(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

// Opens the directory of a root for its facts only. Stores an error code in `code`. On failure
// returns no descriptor; errno is 0 when the failure came before the host call.
HostDescriptor open_root(const WCHAR *root, DWORD *code) {
    const std::optional<std::string> path = root != nullptr ? file_path(root) : ".";
    errno = 0;
    HostDescriptor directory(path ? open(path->c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC) : -1);
    *code = directory                ? ERROR_SUCCESS
            : !path                  ? GetLastError()
            : is_no_directory(errno) ? ERROR_PATH_NOT_FOUND
                                     : code_of_errno(errno);
    return directory;
}

// `sectors` is the number of sectors in a cluster, `sector_size` the bytes in a sector.
struct Clusters {
    std::uint64_t sectors, sector_size, free, total;
};

// Fits the counts into 32 bits: doubles the size of a cluster and halves the counts, as often as
// needed.
Clusters clusters_of(const struct statvfs &facts) {
    constexpr std::uint64_t kSector = 512;
    const std::uint64_t block = facts.f_frsize;
    const bool whole = block >= kSector && block % kSector == 0;
    Clusters clusters{whole ? block / kSector : 1, whole ? kSector : block,
                      std::min(facts.f_bavail, facts.f_blocks), facts.f_blocks};
    while (clusters.total > UINT32_MAX) {
        clusters.sectors *= 2;
        clusters.free /= 2;
        clusters.total /= 2;
    }
    return clusters;
}

void store(DWORD *out, std::uint64_t value) {
    if (out != nullptr) {
        *out = static_cast<DWORD>(value);
    }
}

}  // namespace
}  // namespace ostrel_platform

DWORD GetDriveTypeW(const WCHAR *root) noexcept {
    DWORD type = DRIVE_UNKNOWN;
    ostrel_platform::call_result([&] {
        DWORD code;
        const ostrel_platform::HostDescriptor directory = ostrel_platform::open_root(root, &code);
        struct statfs facts;
        if (!directory) {
            type = code == ERROR_PATH_NOT_FOUND || code == ERROR_FILE_NOT_FOUND ||
                           code == ERROR_BAD_NETPATH || code == ERROR_FILENAME_EXCED_RANGE
                       ? DRIVE_NO_ROOT_DIR
                       : DRIVE_UNKNOWN;
            return code;
        }
        if (fstatfs(directory.Get(), &facts) != 0) {
            return ostrel_platform::code_of_errno(errno);
        }
        const auto known =
            std::find_if(std::begin(ostrel_platform::kDrives), std::end(ostrel_platform::kDrives),
                         [&](const auto &drive) {
                             return drive.file_system == static_cast<std::uint32_t>(facts.f_type);
                         });
        type = known != std::end(ostrel_platform::kDrives) ? known->drive : DRIVE_FIXED;
        return ERROR_SUCCESS;
    });
    return type;
}

BOOL GetDiskFreeSpaceW(const WCHAR *root, DWORD *sectorsPerCluster, DWORD *bytesPerSector,
                       DWORD *freeClusters, DWORD *totalClusters) noexcept {
    return ostrel_platform::call_result([&] {
        const std::u16string_view text = root != nullptr ? root : u"\\";
        if (!text.empty() && text.back() != u'\\' && text.back() != u'/') {
            return ERROR_INVALID_NAME;
        }
        DWORD code;
        const ostrel_platform::HostDescriptor directory = ostrel_platform::open_root(root, &code);
        struct statvfs facts;
        if (!directory) {
            return code;
        }
        if (fstatvfs(directory.Get(), &facts) != 0) {
            return ostrel_platform::code_of_errno(errno);
        }
        const ostrel_platform::Clusters clusters = ostrel_platform::clusters_of(facts);
        ostrel_platform::store(sectorsPerCluster, clusters.sectors);
        ostrel_platform::store(bytesPerSector, clusters.sector_size);
        ostrel_platform::store(freeClusters, clusters.free);
        ostrel_platform::store(totalClusters, clusters.total);
        return ERROR_SUCCESS;
    });
}
