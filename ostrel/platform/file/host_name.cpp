#include "ostrel/platform/file/host_name.h"

#include <sys/stat.h>

#include <cerrno>
#include <new>
#include <utility>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/no_cancellation.h"
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

// The directory and the name of a path. The name is empty where there is none, and in a path with
// "\\\\?\\" and a '/', which leads nowhere.
struct Parts {
    std::u16string_view directory;
    std::u16string_view name;
};

Parts parts_of(std::u16string_view path) {
    std::size_t name = path.size();
    while (name > 0 && path[name - 1] != u'\\' && path[name - 1] != u'/') {
        --name;
    }
    if (path.starts_with(u"\\\\?\\") && path.find(u'/') != path.npos) {
        return {};
    }
    if (name == 0) {
        return {{}, has_drive(path.data()) ? std::u16string_view() : path};
    }
    return {without_end(path.substr(0, name)), path.substr(name)};
}

bool is_plain_name(std::u16string_view name) {
    return !name.empty() && name != u"." && name != u"..";
}

// Opens a directory, or makes one that this user may not list reachable. On failure returns false
// and sets errno.
bool open_to_pin(const FileRef &name, int flags, PinnedDirectoryState *state) {
    state->directory = open_host(name, O_RDONLY | O_DIRECTORY | flags);
    if (!state->directory && errno == EACCES) {
        state->directory = open_host(name, O_PATH | O_DIRECTORY | flags);
        state->is_listed = true;
    }
    return static_cast<bool>(state->directory);
}

// Opens a directory for a pin. Returns 0 or errno: ENOTDIR when `text` leads to something else.
int open_directory(std::u16string_view text, bool follow, PinnedDirectoryState *state) {
    std::optional<HostName> host = HostName{nullptr, "."};
    if (!text.empty()) {
        // A drive alone needs the separator behind "\\\\?\\".
        const bool is_drive = is_root(text) && text.back() == u':';
        int error = 0;
        host = resolve_file((std::u16string(text) + (is_drive ? u"\\" : u"")).c_str(), &error);
        if (!host) {
            return error == ENOTDIR ? ENOENT : error;
        }
    }
    const FileRef name = host->Ref();
    state->may_be_root = !is_plain_name(parts_of(text).name);
    if (open_to_pin(name, O_NOFOLLOW, state)) {
        return 0;
    }
    if (follow && (errno == ENOTDIR || errno == ELOOP)) {
        state->may_be_root = true;
        if (open_to_pin(name, 0, state)) {
            return 0;
        }
    }
    const int error = errno;
    struct stat facts;
    const bool is_there = fstatat(name.directory, name.name, &facts, AT_SYMLINK_NOFOLLOW) == 0;
    return error == ENOTDIR && !is_there ? ENOENT : error;
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
            *error = pin.m_error;
            return *error == ENOENT || *error == ENOTDIR ? ERROR_PATH_NOT_FOUND
                                                         : code_of_errno(*error);
        }
        std::optional<std::string> converted = host_name(name);
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
    const NoCancellation uncancelled;
    const DWORD last_error = GetLastError();
    try {
        m_state = std::make_shared<PinnedDirectoryState>();
        m_state->flags = flags;
        m_state->facts = facts;
        m_error = open_directory(m_text, (flags & kNotALink) == 0, m_state.get());
    } catch (const std::bad_alloc &) {
        m_error = ENOMEM;
    }
    SetLastError(last_error);
    innermost = this;
}

PinnedDirectory::~PinnedDirectory() {
    const NoCancellation uncancelled;
    m_state.reset();
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
