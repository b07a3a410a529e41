#ifndef OSTREL_PLATFORM_BASE_HOST_DESCRIPTOR_H
#define OSTREL_PLATFORM_BASE_HOST_DESCRIPTOR_H

// Internal. Open files of the host, their owner, and what the host tells of files.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace ostrel_platform {

// Owns a descriptor, or none.
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

    // Result: 0, or the errno of a write that fails only now.
    int Close() { return close(Release()) == 0 ? 0 : errno; }

private:
    int m_file;
};

// Opens with O_CLOEXEC and O_NOCTTY added. Result: none on failure, with errno.
HostDescriptor open_host(const char *path, int flags, mode_t mode = 0666) noexcept;

// Opens for writing: a regular file for reading as well if that is allowed, since sharing stands on
// it; nothing else, not even for a moment, since who reads a FIFO counts as its peer and takes its
// readers with it when it goes. `flags` has no access mode.
HostDescriptor open_host_to_write(const char *path, int flags) noexcept;

// Returns 0 for the result 0 of a host call, errno otherwise.
inline int error_of(int result) {
    return result == 0 ? 0 : errno;
}

// Writes all bytes at the file position. Returns 0, or errno of the host call that failed.
int write_all(int file, const char *bytes, std::size_t count) noexcept;

// Writes the entries of an open directory to the disk. A file system that keeps nothing on a disk
// refuses with EINVAL or EROFS, which counts as success. Returns 0 or errno.
int sync_directory(int directory) noexcept;

// Whether the owner may not write to it. Only regular files are read-only.
inline bool is_read_only(const struct stat &facts) {
    return S_ISREG(facts.st_mode) && (facts.st_mode & S_IWUSR) == 0;
}

inline bool is_same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether a path, followed through links, still leads to a file that is open. It need not once
// others have deleted the file or put another in its place.
inline bool path_still_names(const char *path, const struct stat &open_file) noexcept {
    struct stat facts;
    return stat(path, &facts) == 0 && is_same_file(facts, open_file);
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_HOST_DESCRIPTOR_H
