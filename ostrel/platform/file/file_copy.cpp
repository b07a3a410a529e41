// Copies files by path.

#include <limits.h>

#include <optional>
#include <string>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/base/host_rename.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/atomic_copy.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/file/share_mode.h"

namespace ostrel_platform {
namespace {

constexpr unsigned kShareAll = kShareRead | kShareWrite | kShareDelete;

// Follows the links at the last component of a path. Returns the path of the last link's target,
// which need not exist.
std::string end_of_links(std::string path) {
    constexpr int kMaxLinks = 40;
    char text[PATH_MAX];
    for (int links = 0; links < kMaxLinks; ++links) {
        const ssize_t length = readlink(path.c_str(), text, sizeof text);
        if (length <= 0) {
            break;
        }
        const std::string next(text, static_cast<std::size_t>(length));
        path = next[0] == '/' ? next : folder_of(path).append("/").append(next);
    }
    return path;
}

// Locks the file at `path` for a copy that replaces it: while `lock` lives, others cannot open the
// file without sharing writing. Returns an error code.
DWORD lock_target(const char *path, const struct stat &source, const struct stat &target,
                  SharingFile *lock) {
    if (is_same_file(source, target)) {
        return ERROR_SHARING_VIOLATION;
    }
    constexpr DWORD kProtecting =
        FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    FileFacts facts;
    if (!S_ISREG(target.st_mode) || read_facts(AT_FDCWD, path, &facts) != 0 ||
        (facts.attributes & kProtecting) != 0) {
        return ERROR_ACCESS_DENIED;
    }
    *lock = SharingFile(
        open_host_to_write({AT_FDCWD, path}, O_NONBLOCK));  // fails for a running program
    if (!*lock) {
        return code_of_errno(errno);
    }
    return lock->Take(kShareWrite, kShareAll) == 0 ? ERROR_SUCCESS : ERROR_SHARING_VIOLATION;
}

DWORD copy_path(const std::string &source, const std::string &given_target, bool replace) {
    SharingFile file(open_host(source.c_str(), O_RDONLY | O_NONBLOCK));
    struct stat facts;
    if (!file || fstat(file.Get(), &facts) != 0) {
        return code_of_path(errno, source.c_str());
    }
    if (!S_ISREG(facts.st_mode)) {
        return S_ISDIR(facts.st_mode) ? ERROR_ACCESS_DENIED : code_of_errno(EOPNOTSUPP);
    }
    if (file.Take(kShareRead, kShareAll) != 0) {
        return ERROR_SHARING_VIOLATION;
    }
    const std::string target = end_of_links(given_target);
    SharingFile lock;
    struct stat there;
    if (lstat(target.c_str(), &there) == 0) {
        const DWORD code =
            replace ? lock_target(target.c_str(), facts, there, &lock) : ERROR_FILE_EXISTS;
        if (code != ERROR_SUCCESS) {
            return code;
        }
    }
    switch (const int error = copy_file(file.Get(), facts, target, {replace, false})) {
        case 0:
            return ERROR_SUCCESS;
        case EEXIST:
            return ERROR_FILE_EXISTS;
        case ENOENT:
            return ERROR_PATH_NOT_FOUND;  // the target's folder, since the source is open
        default:
            return code_of_errno(error);
    }
}

}  // namespace
}  // namespace ostrel_platform

BOOL CopyFileW(const WCHAR *source, const WCHAR *target, BOOL failIfExists) noexcept {
    return ostrel_platform::call_result([=] {
        const std::optional<std::string> from = ostrel_platform::file_path(source);
        const std::optional<std::string> to =
            from ? ostrel_platform::file_path(target) : std::nullopt;
        return to ? ostrel_platform::copy_path(*from, *to, failIfExists == 0) : GetLastError();
    });
}
