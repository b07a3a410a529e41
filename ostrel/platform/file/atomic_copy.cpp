#include "ostrel/platform/file/atomic_copy.h"

#include <limits.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/xattr.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/base/host_rename.h"
#include "ostrel/platform/file/file_facts.h"

namespace ostrel_platform {
namespace {

constexpr mode_t kPermissions = 0777;
constexpr mode_t kAllModeBits = 07777;

constexpr int kReservedNames = 32;
constexpr time_t kMaxAgeOfLink = 3600;  // in seconds

std::string reserved_name(int number) {
    return ".ostrel-copy-" + std::to_string(number);
}

std::string unguessable_name() {
    std::uint64_t number = 0;
    while (getrandom(&number, sizeof number, 0) < 0 && errno == EINTR) {
    }
    char name[sizeof ".ostrel-" + 16];
    std::snprintf(name, sizeof name, ".ostrel-%016jx", std::uintmax_t{number});
    return name;
}

// The host's name of an open file that may have no other.
std::string name_of_open_file(int file) {
    return "/proc/self/fd/" + std::to_string(file);
}

// Whether an open file is the one at `name` in an open folder.
bool is_at(int folder, const char *name, int file) {
    struct stat open_facts, named;
    return fstat(file, &open_facts) == 0 &&
           fstatat(folder, name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           is_same_file(open_facts, named);
}

// Returns false when another process has the lock. A file system without locks counts as success.
bool try_lock(int file) {
    return flock(file, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

HostDescriptor open_leftover(int folder, const char *name) {
    const int flags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    HostDescriptor file(openat(folder, name, O_RDWR | flags));  // some hosts lock only for writers
    return file || errno != EACCES ? std::move(file)
                                   : HostDescriptor(openat(folder, name, O_RDONLY | flags));
}

// Removes the file or link that a killed copy of this user, or for root of any user, has left at
// `name` in an open folder. A file is left when nobody has its lock; a link, which has none, when
// it is old. Returns whether something was removed.
bool remove_leftover(int folder, const char *name) {
    struct stat facts;
    if (fstatat(folder, name, &facts, AT_SYMLINK_NOFOLLOW) != 0 ||
        (facts.st_uid != geteuid() && geteuid() != 0)) {
        return false;
    }
    HostDescriptor file;
    if (S_ISLNK(facts.st_mode)) {
        if (time(nullptr) - facts.st_ctim.tv_sec <= kMaxAgeOfLink) {
            return false;
        }
    } else {
        file = S_ISREG(facts.st_mode) ? open_leftover(folder, name) : HostDescriptor();
        if (!file || flock(file.Get(), LOCK_EX | LOCK_NB) != 0 ||
            !is_at(folder, name, file.Get())) {
            return false;
        }
    }
    return unlinkat(folder, name, 0) == 0;
}

// A file or link on its way to a path, without a name or at a temporary name in the target's
// folder. The destructor removes what was made, unless GiveName has given it its name.
class TemporaryEntry {
public:
    explicit TemporaryEntry(const std::string &target)
        : m_target(target), m_folder(open_host(folder_of(target).c_str(), O_PATH | O_DIRECTORY)) {}
    ~TemporaryEntry() {
        if (m_hasName) {
            unlinkat(m_folder.Get(), m_name.c_str(), 0);
        }
    }
    TemporaryEntry &operator=(TemporaryEntry &&) = delete;  // nor copied

    // Makes a file for writing, without a name if the host can name it later. On failure returns no
    // descriptor and sets errno.
    HostDescriptor MakeFile() {
        HostDescriptor file = open_host(folder_of(m_target).c_str(), O_WRONLY | O_TMPFILE, 0600);
        if (file && access(name_of_open_file(file.Get()).c_str(), F_OK) == 0) {
            m_hasNoName = true;
            return file;
        }
        const int error = MakeAtFreeName([&](const char *name) {
            file = HostDescriptor(openat(
                m_folder.Get(), name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
            if (!file) {
                return errno;
            }
            // Another copy may have taken the file for a leftover before it was locked.
            return try_lock(file.Get()) && is_at(m_folder.Get(), name, file.Get()) ? 0 : EEXIST;
        });
        errno = error;
        return error == 0 ? std::move(file) : HostDescriptor();
    }

    int MakeLink(const char *text) {
        return MakeAtFreeName(
            [&](const char *name) { return error_of(symlinkat(text, m_folder.Get(), name)); });
    }

    std::string Path() const { return folder_of(m_target) + '/' + m_name; }

    // `file` is the open file, or -1 for a link.
    int GiveName(int file, bool replace) {
        if (m_hasNoName) {
            const int error = LinkTo(AT_FDCWD, m_target.c_str(), file);
            if (error != EEXIST || !replace) {
                return error;
            }
            // Only a rename replaces, and a rename needs a name.
            try_lock(file);
            if (const int failure = MakeAtFreeName(
                    [&](const char *name) { return LinkTo(m_folder.Get(), name, file); })) {
                return failure;
            }
        }
        const int error = rename_host(Path().c_str(), m_target.c_str(), replace);
        m_hasName = error != 0;
        return error;
    }

private:
    static int LinkTo(int folder, const char *name, int file) {
        return error_of(
            linkat(AT_FDCWD, name_of_open_file(file).c_str(), folder, name, AT_SYMLINK_FOLLOW));
    }

    // Calls `make` with names until it returns something else than EEXIST.
    template <class Make>
    int MakeAtFreeName(Make make) {
        int error = m_folder ? EEXIST : errno;
        for (int number = 0; error == EEXIST && number < kReservedNames; ++number) {
            m_name = reserved_name(number);
            error = make(m_name.c_str());
            if (error == EEXIST && remove_leftover(m_folder.Get(), m_name.c_str())) {
                error = make(m_name.c_str());
            }
        }
        if (error == EEXIST) {  // others use or have planted all of them
            m_name = unguessable_name();
            error = make(m_name.c_str());
        }
        m_hasName = error == 0;
        return error;
    }

    const std::string m_target;
    const HostDescriptor m_folder;
    std::string m_name;
    bool m_hasName = false;
    bool m_hasNoName = false;
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

// Returns the errno of a failed write that the host reports only when a descriptor is closed, or 0.
// The file itself stays open, because its lock and its name belong to it.
int close_error(int file) {
    HostDescriptor copy(fcntl(file, F_DUPFD_CLOEXEC, 0));
    return copy ? copy.Close() : errno;
}

}  // namespace

std::string temporary_path(const std::string &beside) {
    return folder_of(beside).append("/").append(unguessable_name());
}

int copy_file(int source, const struct stat &facts, const std::string &target,
              const CopyMode &mode) {
    HostDescriptor file;  // closed, and so unlocked, after the temporary name is removed
    TemporaryEntry entry(target);
    file = entry.MakeFile();
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
    if (error == 0) {
        error = close_error(file.Get());
    }
    return error != 0 ? error : entry.GiveName(file.Get(), mode.replace);
}

int copy_link(const std::string &source, const struct stat &facts, const std::string &target,
              bool replace) {
    char text[PATH_MAX];
    const ssize_t length = readlink(source.c_str(), text, sizeof text - 1);
    if (length < 0) {
        return errno;
    }
    text[length] = '\0';
    TemporaryEntry entry(target);
    if (const int error = entry.MakeLink(text)) {
        return error;
    }
    const std::string path = entry.Path();
    const timespec times[] = {facts.st_atim, facts.st_mtim};
    [[maybe_unused]] const int owned = lchown(path.c_str(), facts.st_uid, facts.st_gid);
    if (utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    return entry.GiveName(-1, replace);
}

}  // namespace ostrel_platform
