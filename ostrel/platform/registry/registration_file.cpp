#include "ostrel/platform/registry/registration_file.h"

#include <stdlib.h>

#include <algorithm>
#include <cerrno>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/base/host_rename.h"

namespace ostrel_platform {

int write_registration_file(const std::string &path, std::string_view text, bool replaces) {
    std::string temporary = folder_of(path) + "/.ostrel-XXXXXX";
    const HostDescriptor file(mkostemp(temporary.data(), O_CLOEXEC));
    if (!file) {
        return errno;
    }
    int error = write_all(file.Get(), text.data(), text.size());
    if (error == 0) {
        error = error_of(fsync(file.Get()));
    }
    if (error == 0) {
        error = rename_host(temporary.c_str(), path.c_str(), replaces);
    }
    if (error != 0) {
        unlink(temporary.c_str());
        return error;
    }
    return sync_folder_of(path);
}

int read_registration_file(int file, std::string *text) {
    constexpr std::size_t kMaxFile = std::size_t{4} << 30;  // far above what a registry holds
    constexpr std::size_t kBlock = std::size_t{64} << 10;
    std::size_t size = 0;
    for (;;) {
        if (size > kMaxFile) {
            return EFBIG;
        }
        if (text->size() < size + kBlock) {
            text->resize(std::max(size + kBlock, 2 * text->size()));
        }
        const ssize_t count = read(file, text->data() + size, text->size() - size);
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        if (count == 0) {
            text->resize(size);
            return 0;
        }
        size += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

}  // namespace ostrel_platform
