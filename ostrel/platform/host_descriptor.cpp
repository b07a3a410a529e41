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
    HostDescriptor file = open_host(path, flags | O_RDWR);
    struct stat facts;
    const bool regular = file && fstat(file.Get(), &facts) == 0 && S_ISREG(facts.st_mode);
    if (regular || (!file && errno != EACCES)) {
        return file;
    }
    file = HostDescriptor();  // a FIFO must not have us as its reader while we wait for another
    return open_host(path, flags | O_WRONLY);
}

}  // namespace platform
