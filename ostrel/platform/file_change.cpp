// Changes of the tree: making and removing directories, deleting files.

#include <optional>
#include <string>

#include "ostrel/platform/call_result.h"
#include "ostrel/platform/delete_file.h"
#include "ostrel/platform/errno_code.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file_facts.h"
#include "ostrel/platform/host_path.h"
#include "ostrel/platform/share_mode.h"

namespace platform {

namespace {

// Opens a file that is to go, without following a link. Refused with ETXTBSY when it runs.
HostDescriptor open_to_hold(const char *path, mode_t mode) {
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

// What keeps one file of a path from being deleted; deletes it if nothing does. ESTALE when others
// have put another in its place meanwhile.
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
    SharingFile held;
    const int error = S_ISREG(facts.st_mode) ? hold_unused(path, facts, &held) : 0;
    if (error != 0) {
        return error;
    }
    return unlink(path) == 0 ? 0 : errno;
}

}  // namespace

int hold_unused(const char *path, const struct stat &facts, SharingFile *held) noexcept {
    SharingFile file(open_to_hold(path, facts.st_mode));
    if (!file) {
        const bool unknowable = errno == EACCES || errno == EPERM;
        return unknowable ? 0 : errno == ELOOP ? ESTALE : errno;  // ELOOP: it is a link by now
    }
    // Two that delete do not go together: the one that is late would take away what comes next
    // under this name.
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
    for (int turn = 0; error == ESTALE && turn < kMostTurns; ++turn) {
        error = try_delete(path);
    }
    return error == ESTALE ? EBUSY : error;
}

namespace {

// The path of a directory or of a link to one, without a separator at its end: the host would take
// that for the directory behind the link.
std::optional<std::string> directory_path(const WCHAR *path) {
    std::optional<std::string> host = file_path(path);
    while (host && host->size() > 1 && host->back() == '/') {
        host->pop_back();
    }
    return host;
}

bool is_current_directory(const FileFacts &facts) {
    FileFacts current;
    return read_facts(AT_FDCWD, ".", &current) == 0 && current.volume == facts.volume &&
           current.index == facts.index;
}

DWORD remove_directory(const char *path) {
    FileFacts facts;
    if (const int error = read_facts(AT_FDCWD, path, &facts)) {
        return code_of_path(error, path);
    }
    if ((facts.attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        return ERROR_DIRECTORY;
    }
    if ((facts.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return unlink(path) == 0 ? ERROR_SUCCESS : code_of_path(errno, path);
    }
    if ((facts.attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        return ERROR_ACCESS_DENIED;
    }
    if (is_current_directory(facts)) {
        return ERROR_CURRENT_DIRECTORY;
    }
    if (rmdir(path) == 0) {
        return ERROR_SUCCESS;
    }
    return errno == EEXIST ? ERROR_DIR_NOT_EMPTY : code_of_path(errno, path);
}

}  // namespace
}  // namespace platform

BOOL CreateDirectoryW(const WCHAR *path, SECURITY_ATTRIBUTES *security) noexcept {
    return platform::call_result([=]() -> DWORD {
        if (security != nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        const std::optional<std::string> host = platform::file_path(path);
        if (!host) {
            return GetLastError();
        }
        return mkdir(host->c_str(), 0777) == 0 ? ERROR_SUCCESS
                                               : platform::code_of_path(errno, host->c_str());
    });
}

BOOL RemoveDirectoryW(const WCHAR *path) noexcept {
    return platform::call_result([=] {
        const std::optional<std::string> host = platform::directory_path(path);
        if (host && platform::is_root(path)) {
            return ERROR_ACCESS_DENIED;
        }
        return host ? platform::remove_directory(host->c_str()) : GetLastError();
    });
}

BOOL DeleteFileW(const WCHAR *path) noexcept {
    return platform::call_result([=] {
        const std::optional<std::string> host = platform::file_path(path);
        if (!host) {
            return GetLastError();
        }
        const int error = platform::delete_file(host->c_str());
        return error != 0 ? platform::code_of_path(error, host->c_str()) : ERROR_SUCCESS;
    });
}
