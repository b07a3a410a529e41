// Creates and removes directories.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/host_name.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/file/open_file.h"

namespace ostrel_platform {
namespace {

// Returns the host name of a directory, or of a link to one. Removes separators at the end, which
// would make the host follow the link.
std::optional<HostName> directory_name(const WCHAR *path) {
    std::optional<HostName> host = resolve_file(path);
    while (host && host->name.size() > 1 && host->name.back() == '/') {
        host->name.pop_back();
    }
    return host;
}

bool is_current_directory(const FileFacts &facts) {
    FileFacts current;
    return read_host_facts(AT_FDCWD, ".", DT_DIR, &current) == 0 &&
           current.volume == facts.volume && current.index == facts.index;
}

DWORD remove_directory(const HostName &host) {
    const FileRef ref = host.Ref();
    FileFacts facts;
    if (const int error = read_facts(ref.directory, ref.name, &facts)) {
        return host.CodeOf(error);
    }
    if ((facts.attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        return ERROR_DIRECTORY;
    }
    if ((facts.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return unlinkat(ref.directory, ref.name, 0) == 0 ? ERROR_SUCCESS : host.CodeOf(errno);
    }
    if ((facts.attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        return ERROR_ACCESS_DENIED;
    }
    if (is_current_directory(facts)) {
        return ERROR_CURRENT_DIRECTORY;
    }
    if (unlinkat(ref.directory, ref.name, AT_REMOVEDIR) == 0) {
        return ERROR_SUCCESS;
    }
    return errno == EEXIST ? ERROR_DIR_NOT_EMPTY : host.CodeOf(errno);
}

}  // namespace
}  // namespace ostrel_platform

BOOL CreateDirectoryW(const WCHAR *path, SECURITY_ATTRIBUTES *security) noexcept {
    return ostrel_platform::call_result([=]() -> DWORD {
        if (security != nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        const std::optional<ostrel_platform::HostName> host = ostrel_platform::resolve_file(path);
        if (!host) {
            return GetLastError();
        }
        const ostrel_platform::FileRef ref = host->Ref();
        return mkdirat(ref.directory, ref.name, ostrel_platform::mode_of_new_directory()) == 0
                   ? ERROR_SUCCESS
                   : host->CodeOf(errno);
    });
}

BOOL RemoveDirectoryW(const WCHAR *path) noexcept {
    return ostrel_platform::call_result([=] {
        const std::optional<ostrel_platform::HostName> host = ostrel_platform::directory_name(path);
        if (host && ostrel_platform::is_root(path)) {
            return ERROR_ACCESS_DENIED;
        }
        return host ? ostrel_platform::remove_directory(*host) : GetLastError();
    });
}
