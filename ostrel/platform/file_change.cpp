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

int check_unused(const char *path, const struct stat &facts) noexcept {
    constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK;
    constexpr mode_t kExecute = S_IXUSR | S_IXGRP | S_IXOTH;
    HostDescriptor file;
    if ((facts.st_mode & kExecute) != 0) {
        file = open_host(path, O_RDWR | kFlags);  // refused when it runs
    }
    if (!file && ((facts.st_mode & kExecute) == 0 || errno != ETXTBSY)) {
        file = open_host(path, O_RDONLY | kFlags);
    }
    if (file) {
        return is_shared_for(file.Get(), kShareDelete) ? 0 : EBUSY;
    }
    return errno == ETXTBSY || errno == ENOENT ? errno : 0;  // else nobody can know
}

int delete_file(const char *path) noexcept {
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
    const int in_use = S_ISREG(facts.st_mode) ? check_unused(path, facts) : 0;
    if (in_use != 0) {
        return in_use;
    }
    return unlink(path) == 0 ? 0 : errno;
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
