#include "ostrel/platform/file/delete_file.h"

#include <cerrno>
#include <optional>
#include <string>
#include <utility>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/host_path.h"

namespace ostrel_platform {

namespace {

// Opens a file without following a link. Sets errno to ETXTBSY for a running program.
HostDescriptor open_to_lock(const char *path, mode_t mode) {
    constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK;
    constexpr mode_t kExecute = S_IXUSR | S_IXGRP | S_IXOTH;
    if ((mode & kExecute) != 0) {
        HostDescriptor file = open_host(path, O_RDWR | kFlags);
        if (file || errno == ETXTBSY) {
            return file;
        }
    }
    return open_host(path, O_RDONLY | kFlags);
}

// Deletes the file of a path. Returns 0 or errno: ESTALE when others have replaced the file
// meanwhile.
int try_delete(const char *path) {
    struct stat facts;
    if (lstat(path, &facts) != 0) {
        return errno;
    }
    if (S_ISDIR(facts.st_mode)) {
        return EISDIR;
    }
    if (is_read_only(facts)) {
        return EACCES;
    }
    SharingFile lock;
    const int error = S_ISREG(facts.st_mode) ? lock_for_delete(path, facts, &lock) : 0;
    if (error != 0) {
        return error;
    }
    return error_of(unlink(path));
}

}  // namespace

int lock_for_delete(const char *path, const struct stat &facts, SharingFile *held) noexcept {
    SharingFile file(open_to_lock(path, facts.st_mode));
    if (!file) {
        const bool unknowable = errno == EACCES || errno == EPERM;
        return unknowable ? 0 : errno == ELOOP ? ESTALE : errno;  // ELOOP: others put a link there
    }
    // Two deletions exclude each other: the later one would delete what comes next under this name.
    const int refusal = file.Take(kShareDelete, kShareRead | kShareWrite);
    struct stat opened, named;
    if (fstat(file.Get(), &opened) != 0 || lstat(path, &named) != 0) {
        return errno;
    }
    if (!is_same_file(opened, named) || !is_same_file(opened, facts)) {
        return ESTALE;
    }
    if (refusal == 0) {
        *held = std::move(file);
    }
    return refusal;
}

int delete_file(const char *path) noexcept {
    int error = ESTALE;
    for (int attempt = 0; error == ESTALE && attempt < kMaxAttempts; ++attempt) {
        error = try_delete(path);
    }
    return error == ESTALE ? EBUSY : error;
}

}  // namespace ostrel_platform

BOOL DeleteFileW(const WCHAR *path) noexcept {
    return ostrel_platform::call_result([=] {
        const std::optional<std::string> host = ostrel_platform::file_path(path);
        if (!host) {
            return GetLastError();
        }
        const int error = ostrel_platform::delete_file(host->c_str());
        return error != 0 ? ostrel_platform::code_of_path(error, host->c_str()) : ERROR_SUCCESS;
    });
}

int _wremove(const WCHAR *path) noexcept {
    return ostrel_platform::crt_result([=] {
        if (path == nullptr) {
            return EINVAL;
        }
        const std::optional<std::string> host = ostrel_platform::host_path(path);
        const int error =
            host && !host->empty() ? ostrel_platform::delete_file(host->c_str()) : ENOENT;
        return error == EISDIR || error == EBUSY || error == ETXTBSY ? EACCES : error;
    });
}
