#include "ostrel/platform/errno_code.h"

#include <cerrno>

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
    {EIO, 1117},          // IO_DEVICE
};

}  // namespace

DWORD code_of_errno(int error) noexcept {
    for (const Pair &pair : kCodes) {
        if (pair.error == error) {
            return pair.code;
        }
    }
    return 31;
}

}  // namespace platform
