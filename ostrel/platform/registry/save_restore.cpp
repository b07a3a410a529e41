// Saves a key to a file and restores a key from one, as registration text.

#include <cerrno>
#include <string>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/registry.h"
#include "ostrel/platform/registry/key_handles.h"
#include "ostrel/platform/registry/registration_file.h"
#include "ostrel/platform/registry/registration_tree.h"
#include "ostrel/platform/registry/registry_tree.h"

namespace ostrel_platform {
namespace {

// The name of the key in a saved file. A restored key keeps its own name.
constexpr DWORD kSavedRoot = 0x80000001;
constexpr WCHAR kSavedPath[] = TEXT("Software\\Saved");

// Converts a path. Returns ERROR_SUCCESS or a code; leaves the last error alone.
DWORD convert_path(const WCHAR *path, std::string *host) {
    const DWORD last_error = GetLastError();
    std::optional<std::string> converted = file_path(path);
    const DWORD code = converted ? DWORD{ERROR_SUCCESS} : GetLastError();
    SetLastError(last_error);
    if (converted) {
        *host = std::move(*converted);
    }
    return code;
}

// Reads a regular file. Returns 0 or errno.
int read_file(const std::string &path, std::string *text) {
    const HostDescriptor file = open_host(path.c_str(), O_RDONLY | O_NONBLOCK);
    struct stat facts;
    if (!file || fstat(file.Get(), &facts) != 0) {
        return errno;
    }
    return S_ISREG(facts.st_mode) ? read_registration_file(file.Get(), text) : EACCES;
}

DWORD save_key(HKEY key, const WCHAR *file) {
    if (KeyHandles::IsRoot(key)) {
        return ERROR_ACCESS_DENIED;
    }
    std::string path, text;
    if (const DWORD code = convert_path(file, &path)) {
        return code;
    }
    struct stat facts;
    if (lstat(path.c_str(), &facts) == 0) {
        return ERROR_ALREADY_EXISTS;
    }
    if (const DWORD code = text_of_tree(key, kSavedRoot, kSavedPath, false, &text)) {
        return code;
    }
    const int error = write_registration_file(path, text, false);
    return error == 0        ? DWORD{ERROR_SUCCESS}
           : error == EEXIST ? DWORD{ERROR_ALREADY_EXISTS}
           : error == ENOENT ? DWORD{ERROR_PATH_NOT_FOUND}
                             : code_of_errno(error);
}

DWORD restore_key(HKEY key, const WCHAR *file, DWORD flags) {
    if ((flags & ~REG_FORCE_RESTORE) != 0) {
        return ERROR_INVALID_PARAMETER;
    }
    if (KeyHandles::IsRoot(key)) {
        return ERROR_ACCESS_DENIED;
    }
    std::string path, text;
    if (const DWORD code = convert_path(file, &path)) {
        return code;
    }
    if (const int error = read_file(path, &text)) {
        return error == ENOENT ? DWORD{ERROR_FILE_NOT_FOUND} : code_of_errno(error);
    }
    if ((flags & REG_FORCE_RESTORE) == 0 && has_open_keys_below(key)) {
        return ERROR_ACCESS_DENIED;
    }
    return replace_tree(key, text);
}

}  // namespace
}  // namespace ostrel_platform

LSTATUS RegSaveKeyW(HKEY key, const WCHAR *file, SECURITY_ATTRIBUTES *) noexcept {
    return static_cast<LSTATUS>(
        ostrel_platform::code_of_call([&] { return ostrel_platform::save_key(key, file); }));
}

LSTATUS RegRestoreKeyW(HKEY key, const WCHAR *file, DWORD flags) noexcept {
    return static_cast<LSTATUS>(ostrel_platform::code_of_call(
        [&] { return ostrel_platform::restore_key(key, file, flags); }));
}
