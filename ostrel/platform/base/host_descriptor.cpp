#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {

HostDescriptor open_host(const FileRef &file, int flags, mode_t mode) noexcept {
    int descriptor;
    do {
        descriptor = openat(file.directory, file.name, flags | O_CLOEXEC | O_NOCTTY, mode);
    } while (descriptor < 0 && errno == EINTR);
    return HostDescriptor(descriptor);
}

HostDescriptor open_host(const char *path, int flags, mode_t mode) noexcept {
    int file;
    do {
        file = open(path, flags | O_CLOEXEC | O_NOCTTY, mode);
    } while (file < 0 && errno == EINTR);
    return HostDescriptor(file);
}

HostDescriptor open_host_to_write(const FileRef &file, int flags) noexcept {
    struct stat facts;
    const bool exists = fstatat(file.directory, file.name, &facts, 0) == 0;
    if (!exists && errno == ENOENT && (flags & O_CREAT) == 0) {
        return HostDescriptor();
    }
    if (!exists || S_ISREG(facts.st_mode)) {
        HostDescriptor opened = open_host(file, flags | O_RDWR);
        if (opened || errno != EACCES) {
            return opened;
        }
    }
    return open_host(file, flags | O_WRONLY);
}

int write_all(int file, const char *bytes, std::size_t count) noexcept {
    while (count > 0) {
        const ssize_t written = write(file, bytes, count);
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        if (written > 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        }
    }
    return 0;
}

int sync_directory(int directory) noexcept {
    const int error = error_of(fsync(directory));
    return error == EINVAL || error == EROFS ? 0 : error;
}

}  // namespace ostrel_platform
