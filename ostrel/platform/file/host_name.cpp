#include "ostrel/platform/file/host_name.h"

#include <cerrno>
#include <new>
#include <utility>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/host_path.h"

namespace ostrel_platform {
namespace {

constinit thread_local const PinnedDirectory *innermost = nullptr;

// Removes the separators at the end, but keeps a text of separators alone, which is the root.
std::u16string_view without_end(std::u16string_view directory) {
    std::size_t size = directory.size();
    while (size > 1 && (directory[size - 1] == u'\\' || directory[size - 1] == u'/')) {
        --size;
    }
    return directory.substr(0, size);
}

// The directory and the name of a path. The name is empty where there is none.
struct Parts {
    std::u16string_view directory;
    std::u16string_view name;
};

Parts parts_of(std::u16string_view path) {
    std::size_t name = path.size();
    while (name > 0 && path[name - 1] != u'\\' && path[name - 1] != u'/') {
        --name;
    }
    if (name == 0) {
        return {{}, has_drive(path.data()) ? std::u16string_view() : path};
    }
    return {without_end(path.substr(0, name)), path.substr(name)};
}

bool is_plain_name(std::u16string_view name) {
    return !name.empty() && name != u"." && name != u"..";
}

// Opens a directory for a pin. Returns 0 or errno.
int open_directory(std::u16string_view text, bool follow, HostDescriptor *opened) {
    std::optional<HostName> host = HostName{nullptr, "."};
    if (!text.empty()) {
        int error = 0;
        host = resolve_file(std::u16string(text).c_str(), &error);
        if (!host) {
            return error;
        }
    }
    *opened = open_host(host->Ref(), O_RDONLY | O_DIRECTORY | (follow ? 0 : O_NOFOLLOW));
    return *opened ? 0 : errno;
}

DWORD code_of_directory(int error) {
    return error == ENOENT    ? ERROR_PATH_NOT_FOUND
           : error == ENOTDIR ? ERROR_DIRECTORY
                              : code_of_errno(error);
}

}  // namespace

// The parts of a pinned directory that calls by path use.
struct PinnedDirectory::Access {
    // Returns the innermost pinned directory of this thread that a path leads into, or null.
    static const PinnedDirectory *Find(const Parts &parts) {
        const PinnedDirectory *pin = is_plain_name(parts.name) ? innermost : nullptr;
        while (pin != nullptr && pin->m_text != parts.directory) {
            pin = pin->m_outer;
        }
        return pin;
    }

    // Converts a name in the directory. Returns an error code.
    static DWORD Resolve(const PinnedDirectory &pin, const WCHAR *name, HostName *host,
                         int *error) {
        if (pin.m_error != 0) {
            *error = pin.m_error == ENOTDIR ? ENOENT : pin.m_error;
            return code_of_directory(pin.m_error);
        }
        std::optional<std::string> converted = host_path(name);
        if (!converted) {
            *error = ENOENT;
            return ERROR_PATH_NOT_FOUND;
        }
        *host = {pin.m_state, std::move(*converted)};
        return ERROR_SUCCESS;
    }
};

PinnedDirectory::PinnedDirectory(const WCHAR *directory, unsigned flags, Facts facts) noexcept
    : m_text(without_end(directory)), m_outer(innermost) {
    const DWORD last_error = GetLastError();
    try {
        m_state = std::make_shared<PinnedDirectoryState>();
        m_state->flags = flags;
        m_state->facts = facts;
        m_error = open_directory(m_text, (flags & kNotALink) == 0, &m_state->directory);
    } catch (const std::bad_alloc &) {
        m_error = ENOMEM;
    }
    SetLastError(last_error);
    innermost = this;
}

PinnedDirectory::~PinnedDirectory() {
    innermost = m_outer;
}

void PinnedDirectory::Want(Facts facts) noexcept {
    if (m_state) {
        m_state->facts = facts;
    }
}

bool PinnedDirectory::IsPinned() const noexcept {
    return m_error == 0;
}

std::string HostName::Path() const {
    return pin ? "/proc/self/fd/" + std::to_string(pin->directory.Get()) + '/' + name : name;
}

DWORD HostName::CodeOf(int error) const noexcept {
    return pin ? code_of_errno(error) : code_of_path(error, name.c_str());
}

std::optional<HostName> resolve_file(const WCHAR *path, int *error) {
    std::optional<HostName> host = HostName();
    int failure = ENOENT;
    DWORD code = ERROR_SUCCESS;
    const std::size_t limit = innermost != nullptr && path != nullptr ? path_limit(path) : 0;
    const std::size_t size = limit != 0 ? wcsnlen(path, limit) : 0;
    const Parts parts = size > 0 && size < limit ? parts_of({path, size}) : Parts();
    const PinnedDirectory *const pin = PinnedDirectory::Access::Find(parts);
    if (pin != nullptr) {
        code = PinnedDirectory::Access::Resolve(*pin, parts.name.data(), &*host, &failure);
    } else if (std::optional<std::string> converted = file_path(path)) {
        host->name = std::move(*converted);
    } else {
        code = GetLastError();
        failure = code == ERROR_FILENAME_EXCED_RANGE ? ENAMETOOLONG : ENOENT;
    }
    if (code != ERROR_SUCCESS) {
        SetLastError(code);
        host.reset();
        if (error != nullptr) {
            *error = failure;
        }
    }
    return host;
}

}  // namespace ostrel_platform
