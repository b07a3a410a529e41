// Creates and removes directories.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/host_path.h"

namespace ostrel_platform {
namespace {

// Returns the host path of a directory, or of a link to one. Removes separators at the end, which
// would make the host follow the link.
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
}  // namespace ostrel_platform

BOOL CreateDirectoryW(const WCHAR *path, SECURITY_ATTRIBUTES *security) noexcept {
    return ostrel_platform::call_result([=]() -> DWORD {
        if (security != nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        const std::optional<std::string> host = ostrel_platform::file_path(path);
        if (!host) {
            return GetLastError();
        }
        return mkdir(host->c_str(), 0777) == 0
                   ? ERROR_SUCCESS
                   : ostrel_platform::code_of_path(errno, host->c_str());
    });
}

BOOL RemoveDirectoryW(const WCHAR *path) noexcept {
    return ostrel_platform::call_result([=] {
        const std::optional<std::string> host = ostrel_platform::directory_path(path);
        if (host && ostrel_platform::is_root(path)) {
            return ERROR_ACCESS_DENIED;
        }
        return host ? ostrel_platform::remove_directory(host->c_str()) : GetLastError();
    });
}
