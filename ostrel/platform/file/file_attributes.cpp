// Reads and sets attributes by path.

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/host_path.h"

namespace {

using ostrel_platform::code_of_path;

DWORD read_attributes(const WCHAR *path, DWORD *attributes) {
    const std::optional<std::string> host = ostrel_platform::file_path(path);
    if (!host) {
        return GetLastError();
    }
    ostrel_platform::FileFacts facts;
    if (const int error = ostrel_platform::read_facts(AT_FDCWD, host->c_str(), &facts)) {
        return code_of_path(error, host->c_str());
    }
    *attributes = facts.attributes;
    return ERROR_SUCCESS;
}

DWORD set_attributes(const WCHAR *path, DWORD attributes) {
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return ERROR_INVALID_PARAMETER;
    }
    const std::optional<std::string> host = ostrel_platform::file_path(path);
    if (!host) {
        return GetLastError();
    }
    struct stat facts;
    if (lstat(host->c_str(), &facts) != 0) {
        return code_of_path(errno, host->c_str());
    }
    if (S_ISLNK(facts.st_mode)) {
        return ERROR_SUCCESS;  // a link has no attributes of its own
    }
    const int error = ostrel_platform::write_attributes(host->c_str(), attributes);
    return error != 0 ? code_of_path(error, host->c_str()) : ERROR_SUCCESS;
}

}  // namespace

DWORD GetFileAttributesW(const WCHAR *path) noexcept {
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    ostrel_platform::call_result([&] { return read_attributes(path, &attributes); });
    return attributes;
}

BOOL SetFileAttributesW(const WCHAR *path, DWORD attributes) noexcept {
    return ostrel_platform::call_result([&] { return set_attributes(path, attributes); });
}
