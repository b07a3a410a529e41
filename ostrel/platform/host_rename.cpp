#include "ostrel/platform/host_rename.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace platform {
namespace {

int result_of(int result) {
    return result == 0 ? 0 : errno;
}

// For a file system that has no rename of this kind. A link to a new name is refused where one is,
// so that a file never takes the place of another; a directory, and a file where links are refused,
// can only be looked at before.
int rename_in_steps(const char *source, const char *target) noexcept {
    struct stat facts;
    if (lstat(source, &facts) != 0) {
        return errno;
    }
    if (!S_ISDIR(facts.st_mode)) {
        if (link(source, target) == 0) {
            const int error = result_of(unlink(source));
            if (error != 0) {
                unlink(target);
            }
            return error;
        }
        if (errno == EEXIST) {
            return errno;
        }
    }
    return lstat(target, &facts) == 0 ? EEXIST : result_of(rename(source, target));
}

}  // namespace

std::string folder_of(const std::string &path) {
    const std::size_t separator = path.find_last_of('/', path.find_last_not_of('/'));
    if (separator == path.npos) {
        return ".";
    }
    return path.substr(0, separator == 0 ? 1 : separator);
}

int rename_host(const char *source, const char *target, bool replace) noexcept {
    if (replace) {
        return result_of(rename(source, target));
    }
    const int error = result_of(renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE));
    return error == EINVAL || error == ENOSYS ? rename_in_steps(source, target) : error;
}

}  // namespace platform
