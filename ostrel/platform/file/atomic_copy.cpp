#include "ostrel/platform/file/atomic_copy.h"

#include <limits.h>
#include <sys/random.h>
#include <sys/xattr.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/base/host_rename.h"
#include "ostrel/platform/file/file_facts.h"

namespace ostrel_platform {
namespace {

constexpr mode_t kPermissions = 0777;
constexpr mode_t kAllModeBits = 07777;

// A temporary path in the target's directory. The destructor removes the file or link that was
// created at the path, unless GiveName has renamed it.
class TemporaryName {
public:
    explicit TemporaryName(const std::string &beside) : m_path(temporary_path(beside)) {}
    ~TemporaryName() {
        if (m_made) {
            unlink(m_path.c_str());
        }
    }
    TemporaryName &operator=(TemporaryName &&) = delete;  // nor copied

    HostDescriptor MakeFile() {
        HostDescriptor file = open_host(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
        m_made = static_cast<bool>(file);
        return file;
    }

    int MakeLink(const char *text) {
        m_made = symlink(text, m_path.c_str()) == 0;
        return m_made ? 0 : errno;
    }

    const char *Path() const { return m_path.c_str(); }

    int GiveName(const std::string &path, bool replace) {
        const int error = rename_host(m_path.c_str(), path.c_str(), replace);
        m_made = error != 0;
        return error;
    }

private:
    std::string m_path;
    bool m_made = false;
};

// Copies with copy_file_range until that call stops, for any reason. Then continues with read and
// write, whose errno is the result.
int copy_bytes(int source, int target) {
    constexpr std::size_t kHostStep = std::size_t{1} << 30;
    constexpr std::size_t kStep = std::size_t{128} << 10;
    while (copy_file_range(source, nullptr, target, nullptr, kHostStep, 0) > 0) {
    }
    const std::unique_ptr<char[]> bytes(new char[kStep]);
    for (;;) {
        const ssize_t count = read(source, bytes.get(), kStep);
        if (count == 0) {
            return 0;
        }
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        if (count > 0) {
            if (const int error = write_all(target, bytes.get(), static_cast<std::size_t>(count))) {
                return error;
            }
        }
    }
}

int copy_user_attribute(int source, int target, const char *name) {
    const ssize_t size = fgetxattr(source, name, nullptr, 0);
    const std::unique_ptr<char[]> value(new char[size > 0 ? static_cast<std::size_t>(size) : 0]);
    const ssize_t count =
        size > 0 ? fgetxattr(source, name, value.get(), static_cast<std::size_t>(size)) : size;
    if (count < 0) {
        return errno;
    }
    return error_of(fsetxattr(target, name, value.get(), static_cast<std::size_t>(count), 0));
}

// Copies the user extended attributes. These need no privilege and include the layer's own.
// Succeeds when the target's file system does not support them.
int copy_user_attributes(int source, int target) {
    const ssize_t size = flistxattr(source, nullptr, 0);
    if (size <= 0) {
        return 0;
    }
    const auto capacity = static_cast<std::size_t>(size);
    const std::unique_ptr<char[]> names(new char[capacity]);
    const ssize_t count = flistxattr(source, names.get(), capacity);
    if (count < 0) {
        return errno;  // ERANGE: the list has grown meanwhile
    }
    for (const char *name = names.get(); name < names.get() + count;
         name += std::strlen(name) + 1) {
        if (std::strncmp(name, "user.", 5) == 0) {
            const int error = copy_user_attribute(source, target, name);
            if (error != 0) {
                return error == EOPNOTSUPP ? 0 : error;
            }
        }
    }
    return 0;
}

int copy_attributes(int source, int target) {
    FileFacts facts;
    const int error = read_facts(source, &facts);
    return error != 0 ? error : write_attributes(target, facts.attributes);
}

// Stores the creation time too, because the host gives the copy a new time of birth.
int move_attributes(int source, int target) {
    FileFacts facts;
    int error = read_facts(source, &facts);
    if (error == 0) {
        error = copy_user_attributes(source, target);
    }
    return error != 0 ? error : write_times(target, &facts.creation, nullptr, nullptr);
}

// The order matters: attributes need write permission, a change of owner clears mode bits, and each
// step may change the times.
int copy_properties(int source, const struct stat &facts, int target, bool moves) {
    if (const int error =
            moves ? move_attributes(source, target) : copy_attributes(source, target)) {
        return error;
    }
    // Set-user-ID and set-group-ID lend the owner's rights, so they need the same owner.
    const bool owned = moves && fchown(target, facts.st_uid, facts.st_gid) == 0;
    if (fchmod(target, facts.st_mode & (owned ? kAllModeBits : kPermissions)) != 0) {
        return errno;
    }
    const timespec access = moves ? facts.st_atim : timespec{0, UTIME_OMIT};
    const timespec times[] = {access, facts.st_mtim};
    return error_of(futimens(target, times));
}

}  // namespace

std::string temporary_path(const std::string &beside) {
    std::uint64_t number = 0;
    while (getrandom(&number, sizeof number, 0) < 0 && errno == EINTR) {
    }
    char name[sizeof "/.ostrel-" + 16];
    std::snprintf(name, sizeof name, "/.ostrel-%016jx", std::uintmax_t{number});
    return folder_of(beside) + name;
}

int copy_file(int source, const struct stat &facts, const std::string &target,
              const CopyMode &mode) {
    TemporaryName name(target);
    HostDescriptor file = name.MakeFile();
    if (!file) {
        return errno;
    }
    int error = copy_bytes(source, file.Get());
    if (error == 0) {
        error = copy_properties(source, facts, file.Get(), mode.moves);
    }
    if (error == 0 && mode.moves) {
        error = error_of(fsync(file.Get()));
    }
    const int close_error = file.Close();
    error = error != 0 ? error : close_error;
    return error != 0 ? error : name.GiveName(target, mode.replace);
}

int copy_link(const std::string &source, const struct stat &facts, const std::string &target,
              bool replace) {
    char text[PATH_MAX];
    const ssize_t length = readlink(source.c_str(), text, sizeof text - 1);
    if (length < 0) {
        return errno;
    }
    text[length] = '\0';
    TemporaryName name(target);
    if (const int error = name.MakeLink(text)) {
        return error;
    }
    const timespec times[] = {facts.st_atim, facts.st_mtim};
    [[maybe_unused]] const int owned = lchown(name.Path(), facts.st_uid, facts.st_gid);
    if (utimensat(AT_FDCWD, name.Path(), times, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    return name.GiveName(target, replace);
}

}  // namespace ostrel_platform
