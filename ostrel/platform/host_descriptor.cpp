#include "ostrel/platform/host_descriptor.h"

namespace platform {

HostDescriptor open_host(const char *path, int flags, mode_t mode) noexcept {
    int file;
    do {
        file = open(path, flags | O_CLOEXEC | O_NOCTTY, mode);
    } while (file < 0 && errno == EINTR);
    return HostDescriptor(file);
}

HostDescriptor open_host_to_write(const char *path, int flags) noexcept {
    struct stat facts;
    if (stat(path, &facts) != 0 || S_ISREG(facts.st_mode)) {
        HostDescriptor file = open_host(path, flags | O_RDWR);
        if (file || errno != EACCES) {
            return file;
        }
    }
    return open_host(path, flags | O_WRONLY);
}

}  // namespace platform
