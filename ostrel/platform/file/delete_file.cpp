#include "ostrel/platform/file/delete_file.h"

#include <cerrno>
#include <optional>
#include <string>
#include <utility>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/host_name.h"
#include "ostrel/platform/file/host_path.h"

namespace ostrel_platform {

namespace {

int read_entry(const FileRef &name, struct stat *facts) {
    return error_of(fstatat(name.directory, name.name, facts, AT_SYMLINK_NOFOLLOW));
}

// Opens a regular file without following a link, and stores its facts. Only a file that is open for
// writing tells that it is a running program (ETXTBSY). Returns 0 or errno.
int open_to_lock(const FileRef &name, SharingFile *file, struct stat *facts) {
    constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK;
    constexpr mode_t kExecute = S_IXUSR | S_IXGRP | S_IXOTH;
    *file = SharingFile(open_host(name, O_RDONLY | kFlags));
    if (!*file || fstat(file->Get(), facts) != 0) {
        return errno;
    }
    if ((facts->st_mode & kExecute) != 0) {
        const HostDescriptor writable = open_host(name, O_RDWR | kFlags);
        return !writable && errno == ETXTBSY ? ETXTBSY : 0;
    }
    return 0;
}

// Locks and deletes a regular file. `judged` as for lock_for_delete; without it, refuses a file
// that is read-only or that this user may not open with EACCES.
int delete_locked(const FileRef &name, const struct stat *judged) {
    SharingFile lock;
    struct stat facts = {};
    if (const int error = lock_for_delete(name, judged, &lock, &facts)) {
        return error;
    }
    if (judged == nullptr && (facts.st_nlink == 0 || is_read_only(facts))) {
        return EACCES;
    }
    if (unlinkat(name.directory, name.name, 0) != 0) {
        return errno;
    }
    if (facts.st_nlink == 1) {
        lock.Forget();
    }
    return 0;
}

// Deletes the file of a name. Returns 0 or errno: ESTALE when others have replaced the file
// meanwhile.
int try_delete(const FileRef &name) {
    struct stat facts;
    if (const int error = read_entry(name, &facts)) {
        return error;
    }
    if (S_ISDIR(facts.st_mode)) {
        return EISDIR;
    }
    if (is_read_only(facts)) {
        return EACCES;
    }
    return S_ISREG(facts.st_mode) ? delete_locked(name, &facts)
                                  : error_of(unlinkat(name.directory, name.name, 0));
}

// Deletes a file in a pinned directory that the search has found to be regular. Its new attributes,
// which the thread has set before, matter only if the file stays, or if it is read-only: a file
// that this user may not change must stay. Returns false when DeleteFileW has to decide.
bool delete_found_file(const HostName &host) {
    if (!host.pin || !std::exchange(host.pin->becomes_normal, false) ||
        std::exchange(host.pin->found_file, {}) != host.name) {
        return false;
    }
    if (delete_locked(host.Ref(), nullptr) == 0) {
        return true;
    }
    write_attributes(host.Ref(), FILE_ATTRIBUTE_NORMAL);
    return false;
}

}  // namespace

int lock_for_delete(const FileRef &name, const struct stat *judged, SharingFile *held,
                    struct stat *facts) noexcept {
    SharingFile file;
    struct stat named;
    if (const int error = open_to_lock(name, &file, facts)) {
        const bool unknowable = error == EACCES || error == EPERM;
        return unknowable ? 0 : error == ELOOP ? ESTALE : error;  // ELOOP: others put a link there
    }
    // Two deletions exclude each other: the later one would delete what comes next under this name.
    const int refusal = file.Take(kShareDelete, kShareRead | kShareWrite);
    if (const int error = read_entry(name, &named)) {
        return error;
    }
    if (!is_same_file(*facts, named) || (judged != nullptr && !is_same_file(*facts, *judged))) {
        return ESTALE;
    }
    if (refusal == 0) {
        *held = std::move(file);
    }
    return refusal;
}

int delete_file(const FileRef &name) noexcept {
    int error = ESTALE;
    for (int attempt = 0; error == ESTALE && attempt < kMaxAttempts; ++attempt) {
        error = try_delete(name);
    }
    return error == ESTALE ? EBUSY : error;
}

}  // namespace ostrel_platform

BOOL DeleteFileW(const WCHAR *path) noexcept {
    return ostrel_platform::call_result([=]() -> DWORD {
        const std::optional<ostrel_platform::HostName> host = ostrel_platform::resolve_file(path);
        if (!host) {
            return GetLastError();
        }
        if (ostrel_platform::delete_found_file(*host)) {
            return ERROR_SUCCESS;
        }
        const int error = ostrel_platform::delete_file(host->Ref());
        return error != 0 ? host->CodeOf(error) : ERROR_SUCCESS;
    });
}

int _wremove(const WCHAR *path) noexcept {
    return ostrel_platform::crt_result([=] {
        if (path == nullptr) {
            return EINVAL;
        }
        const std::optional<std::string> host = ostrel_platform::host_path(path);
        const int error = host && !host->empty()
                              ? ostrel_platform::delete_file({AT_FDCWD, host->c_str()})
                              : ENOENT;
        return error == EISDIR || error == EBUSY || error == ETXTBSY ? EACCES : error;
    });
}
