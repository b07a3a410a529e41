#include "ostrel/platform/errno_code.h"

#include <limits.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "ostrel/platform/error.h"

namespace platform {
namespace {

struct Pair {
    int error;
    DWORD code;  // of the platform's winerror.h
};

constexpr Pair kCodes[] = {
    {ENOENT, 2},          // FILE_NOT_FOUND
    {ENOTDIR, 3},         // PATH_NOT_FOUND
    {EMFILE, 4},          // TOO_MANY_OPEN_FILES
    {ENFILE, 4},          // TOO_MANY_OPEN_FILES
    {EACCES, 5},          // ACCESS_DENIED
    {EPERM, 5},           // ACCESS_DENIED
    {EISDIR, 5},          // ACCESS_DENIED
    {EBADF, 6},           // INVALID_HANDLE
    {ENOMEM, 8},          // NOT_ENOUGH_MEMORY
    {EXDEV, 17},          // NOT_SAME_DEVICE
    {EROFS, 19},          // WRITE_PROTECT
    {EBUSY, 32},          // SHARING_VIOLATION
    {ETXTBSY, 32},        // SHARING_VIOLATION
    {EAGAIN, 33},         // LOCK_VIOLATION
    {EOPNOTSUPP, 50},     // NOT_SUPPORTED
    {EINVAL, 87},         // INVALID_PARAMETER
    {EPIPE, 109},         // BROKEN_PIPE
    {ENOSPC, 112},        // DISK_FULL
    {EDQUOT, 112},        // DISK_FULL
    {EFBIG, 112},         // DISK_FULL
    {ENOSYS, 120},        // CALL_NOT_IMPLEMENTED
    {ENOTEMPTY, 145},     // DIR_NOT_EMPTY
    {ELOOP, 161},         // BAD_PATHNAME
    {EEXIST, 183},        // ALREADY_EXISTS
    {ENAMETOOLONG, 206},  // FILENAME_EXCED_RANGE
    {EFAULT, 998},        // NOACCESS
    {EIO, 1117},          // IO_DEVICE
};

// Whether the folder in which `path` names something is there. A separator at the end of the path
// belongs to the name.
bool has_parent(std::string_view path) noexcept {
    const std::size_t name_end = path.find_last_not_of('/');
    const std::size_t folder_end = path.find_last_of('/', name_end);
    if (name_end == path.npos || folder_end == path.npos) {
        return true;  // the root or the current directory
    }
    char folder[PATH_MAX];
    if (folder_end + 2 > sizeof folder) {
        return false;
    }
    std::memcpy(folder, path.data(), folder_end + 1);
    folder[folder_end + 1] = '\0';
    struct stat facts;
    return stat(folder, &facts) == 0;
}

}  // namespace

DWORD code_of_errno(int error) noexcept {
    for (const Pair &pair : kCodes) {
        if (pair.error == error) {
            return pair.code;
        }
    }
    return 31;
}

DWORD code_of_path(int error, const char *host_path) noexcept {
    return error == ENOENT && !has_parent(host_path) ? ERROR_PATH_NOT_FOUND : code_of_errno(error);
}

}  // namespace platform
