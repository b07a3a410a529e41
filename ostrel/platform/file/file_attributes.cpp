// Reads and sets attributes by path.

#include <optional>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/host_name.h"

namespace {

using ostrel_platform::FileRef;
using ostrel_platform::HostName;

DWORD read_attributes(const WCHAR *path, DWORD *attributes) {
    const std::optional<HostName> host = ostrel_platform::resolve_file(path);
    if (!host) {
        return GetLastError();
    }
    ostrel_platform::FileFacts facts;
    const FileRef ref = host->Ref();
    if (const int error = ostrel_platform::read_facts(ref.directory, ref.name, &facts)) {
        return host->CodeOf(error);
    }
    *attributes = facts.attributes;
    return ERROR_SUCCESS;
}

DWORD set_attributes(const WCHAR *path, DWORD attributes) {
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return ERROR_INVALID_PARAMETER;
    }
    const std::optional<HostName> host = ostrel_platform::resolve_file(path);
    if (!host) {
        return GetLastError();
    }
    if (attributes == FILE_ATTRIBUTE_NORMAL && host->pin && host->pin->found_file == host->name) {
        host->pin->becomes_normal = true;
        return ERROR_SUCCESS;
    }
    const int error = ostrel_platform::write_attributes(host->Ref(), attributes);
    return error != 0 ? host->CodeOf(error) : ERROR_SUCCESS;
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
