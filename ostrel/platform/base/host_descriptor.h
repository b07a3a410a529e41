#ifndef OSTREL_PLATFORM_BASE_HOST_DESCRIPTOR_H
#define OSTREL_PLATFORM_BASE_HOST_DESCRIPTOR_H

// Internal. An owner of a descriptor of the host, and calls on open files and on stat results.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace ostrel_platform {

// Owns a descriptor, or none (-1), and closes it.
//
//   HostDescriptor file = open_host(path, O_RDONLY);
//   if (!file) return errno;
class HostDescriptor {
public:
    explicit HostDescriptor(int file = -1) noexcept : m_file(file) {}
    HostDescriptor(HostDescriptor &&other) noexcept : m_file(std::exchange(other.m_file, -1)) {}
    HostDescriptor &operator=(HostDescriptor &&other) noexcept {
        std::swap(m_file, other.m_file);
        return *this;
    }
    ~HostDescriptor() {
        if (m_file >= 0) {
            close(m_file);
        }
    }

    explicit operator bool() const { return m_file >= 0; }
    int Get() const { return m_file; }
    int Release() { return std::exchange(m_file, -1); }

    // Closes the descriptor. Returns 0, or errno when the host reports a failed write only here.
    int Close() { return close(Release()) == 0 ? 0 : errno; }

private:
    int m_file;
};

// A file: its name in an open directory, or with AT_FDCWD its path. With an empty name, `directory`
// is the open file itself.
struct FileRef {
    int directory;
    const char *name;
};

// Opens a file with O_CLOEXEC and O_NOCTTY added to `flags`, and retries on EINTR. On failure
// returns no descriptor and sets errno.
HostDescriptor open_host(const FileRef &file, int flags, mode_t mode = 0666) noexcept;
HostDescriptor open_host(const char *path, int flags, mode_t mode = 0666) noexcept;

// Opens a file for writing. `flags` has no access mode. A regular or a new file is opened for
// reading too, which share locks need, unless the host refuses with EACCES. Any other file is
// opened for writing alone: a FIFO opened both ways is its own peer, even if only for a moment, and
// closing it ends the FIFO's readers. On failure returns no descriptor and sets errno.
HostDescriptor open_host_to_write(const FileRef &file, int flags) noexcept;

// Returns 0 for the result 0 of a host call, errno otherwise.
inline int error_of(int result) {
    return result == 0 ? 0 : errno;
}

// Writes all bytes at the file position. Returns 0, or errno of the host call that failed.
int write_all(int file, const char *bytes, std::size_t count) noexcept;

// Writes the entries of an open directory to the disk. A file system that keeps nothing on a disk
// refuses with EINVAL or EROFS, which counts as success. Returns 0 or errno.
int sync_directory(int directory) noexcept;

// Whether the owner may not write to the file. Only regular files are read-only.
inline bool is_read_only(const struct stat &facts) {
    return S_ISREG(facts.st_mode) && (facts.st_mode & S_IWUSR) == 0;
}

inline bool is_same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether a name, with links followed, still leads to an open file. Other processes may have
// deleted or replaced the file.
inline bool still_names(const FileRef &name, const struct stat &open_file) noexcept {
    struct stat facts;
    return fstatat(name.directory, name.name, &facts, 0) == 0 && is_same_file(facts, open_file);
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_HOST_DESCRIPTOR_H
