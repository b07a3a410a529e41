// The directory and the names of temporary files, and the check of access.

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/environment.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/file_facts.h"
#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/system.h"

namespace ostrel_platform {
namespace {

void add_separator(std::u16string *folder) {
    if (folder->empty() || (folder->back() != u'\\' && folder->back() != u'/')) {
        folder->push_back(u'\\');
    }
}

// Returns the value of a variable as a path, with a separator at its end, when the value is an
// absolute host path, and otherwise an empty text. Converts the bytes as host names, whatever the
// system code page is.
std::u16string host_folder_of_variable(std::string_view name) {
    const std::optional<std::string> value =
        is_callers_environment() ? std::nullopt : WatchedVariable().Read(name);
    std::u16string folder =
        value && value->starts_with('/') ? path_from_host(*value) : std::u16string();
    if (!folder.empty()) {
        add_separator(&folder);
    }
    return folder;
}

// Returns the folder that a variable names, with a separator at its end. Returns an empty text when
// the variable is missing or empty.
std::u16string folder_of_variable(const WCHAR *name) {
    std::string host_name;
    for (const WCHAR *c = name; *c != 0; ++c) {
        host_name.push_back(static_cast<char>(*c));
    }
    std::u16string folder = host_folder_of_variable(host_name + '=');
    const WCHAR *const value = folder.empty() ? _wgetenv(name) : nullptr;
    if (value != nullptr) {
        folder = value;
        if (folder.front() == u'/') {
            std::replace(folder.begin(), folder.end(), u'/', u'\\');
            folder.insert(0, u"C:");
        }
        add_separator(&folder);
    }
    return folder;
}

// Ignores a relative TMPDIR, which would name another folder in each current directory.
std::u16string folder_of_host() {
    const std::u16string folder = host_folder_of_variable("TMPDIR=");
    return folder.empty() ? u"C:\\tmp\\" : folder;
}

// Skips folders that are too long for the calls of the system.
std::u16string temporary_folder() {
    for (const WCHAR *name : {u"TMP", u"TEMP", u"USERPROFILE"}) {
        std::u16string folder = folder_of_variable(name);
        if (!folder.empty() && folder.size() < MAX_PATH) {
            return folder;
        }
    }
    std::u16string folder = folder_of_host();
    return folder.size() < MAX_PATH ? folder : u"C:\\tmp\\";
}

bool is_folder(const WCHAR *path) {
    const std::optional<std::string> host = host_path(path);
    struct stat facts;
    return host && stat(host->c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

// Returns the folder for a name of _wtempnam, with a separator at its end. On failure returns an
// empty text and sets errno to ENOENT.
std::u16string folder_of_name(const WCHAR *directory) {
    std::u16string folder = folder_of_variable(u"TMP");
    const bool is_set = !folder.empty();
    if (is_set && is_folder(folder.c_str())) {
        return folder;
    }
    if (directory != nullptr && *directory != 0 && is_folder(directory)) {
        folder = directory;
        add_separator(&folder);
        return folder;
    }
    errno = ENOENT;
    return is_set && directory != nullptr ? u"" : u".\\";
}

// Stores the digits of a random number: where others may create files, nobody can plant one under a
// name that is not known yet. Returns 0 or errno.
int draw_number(std::u16string *digits) {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number) {
        return errno;
    }
    const std::string text = std::to_string(number);
    digits->assign(text.begin(), text.end());
    return 0;
}

// Returns 0 when no file has the name. Otherwise returns errno: EEXIST when a file has the name, or
// the reason why the name cannot be used.
int check_name(const std::u16string &name) {
    if (name.size() >= MAX_PATH) {
        return ENAMETOOLONG;
    }
    const std::optional<std::string> host = host_path(name.c_str());
    struct stat facts;
    if (!host) {
        return ENOENT;
    }
    return lstat(host->c_str(), &facts) == 0 ? EEXIST : errno == ENOENT ? 0 : errno;
}

// Stores a copy of `text` that the caller releases with free. Returns 0 or ENOMEM.
int allocate(const std::u16string &text, WCHAR **result) {
    const std::size_t size = text.size() + 1;
    WCHAR *const copy = static_cast<WCHAR *>(std::malloc(size * sizeof(WCHAR)));
    if (copy == nullptr) {
        return ENOMEM;
    }
    copy[text.copy(copy, size)] = 0;
    *result = copy;
    return 0;
}

int find_name(const WCHAR *directory, const WCHAR *prefix, WCHAR **result) {
    std::u16string begin = folder_of_name(directory);
    if (begin.empty()) {
        return errno;
    }
    begin += prefix != nullptr ? prefix : u"";
    std::u16string name, number;
    int error = EEXIST;
    while (error == EEXIST || error == EINTR) {
        error = draw_number(&number);
        if (error == 0) {
            name = begin + number;
            error = check_name(name);
        }
    }
    return error == 0 ? allocate(name, result) : error;
}

// Returns 0 or errno.
int check_access(const WCHAR *path, int mode) {
    if (path == nullptr || (mode & ~6) != 0) {
        return EINVAL;
    }
    const std::optional<std::string> host = file_path(path);
    FileFacts facts;
    const int error = host ? read_facts(AT_FDCWD, host->c_str(), &facts) : ENOENT;
    if (error != 0) {
        return error == ENOTDIR || error == ENAMETOOLONG ? ENOENT : error;
    }
    constexpr DWORD kBoth = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY;
    const bool is_protected = (facts.attributes & kBoth) == FILE_ATTRIBUTE_READONLY;
    return (mode & 2) != 0 && is_protected ? EACCES : 0;
}

}  // namespace
}  // namespace ostrel_platform

DWORD GetTempPathW(DWORD capacity, WCHAR *buffer) noexcept {
    DWORD result = 0;
    ostrel_platform::call_result([&]() -> DWORD {
        if (buffer == nullptr && capacity != 0) {
            return ERROR_INVALID_PARAMETER;
        }
        const std::u16string folder = ostrel_platform::temporary_folder();
        const auto length = static_cast<DWORD>(folder.size());
        result = capacity > length ? length : length + 1;
        if (capacity > length) {
            buffer[folder.copy(buffer, length)] = 0;
        }
        return ERROR_SUCCESS;
    });
    return result;
}

int _waccess(const WCHAR *path, int mode) noexcept {
    return ostrel_platform::crt_result([=] { return ostrel_platform::check_access(path, mode); });
}

WCHAR *_wtempnam(const WCHAR *directory, const WCHAR *prefix) noexcept {
    WCHAR *name = nullptr;
    ostrel_platform::crt_result(
        [&] { return ostrel_platform::find_name(directory, prefix, &name); });
    return name;
}
