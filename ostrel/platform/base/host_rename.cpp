#include "ostrel/platform/base/host_rename.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {
namespace {

// Renames without replacing, for file systems that do not support RENAME_NOREPLACE. The host
// refuses a link to an existing name, so that a file never replaces another. For a directory, and
// for a file that cannot be linked, the call can only check the target first.
int rename_in_steps(const char *source, const char *target) noexcept {
    struct stat facts;
    if (lstat(source, &facts) != 0) {
        return errno;
    }
    if (!S_ISDIR(facts.st_mode)) {
        if (link(source, target) == 0) {
            const int error = error_of(unlink(source));
            if (error != 0) {
                unlink(target);
            }
            return error;
        }
        if (errno == EEXIST) {
            return errno;
        }
    }
    return lstat(target, &facts) == 0 ? EEXIST : error_of(rename(source, target));
}

std::string name_in_folder(const std::string &path) {
    const std::size_t end = path.find_last_not_of('/') + 1;
    const std::size_t begin = path.find_last_of('/', end - 1) + 1;
    return path.substr(begin, end - begin);
}

}  // namespace

std::string folder_of(const std::string &path) {
    const std::size_t separator = path.find_last_of('/', path.find_last_not_of('/'));
    if (separator == path.npos) {
        return ".";
    }
    return path.substr(0, separator == 0 ? 1 : separator);
}

int sync_folder_of(const std::string &path) {
    const HostDescriptor folder = open_host(folder_of(path).c_str(), O_RDONLY | O_DIRECTORY);
    return folder ? sync_directory(folder.Get()) : errno;
}

bool is_same_entry(const std::string &a, const std::string &b) {
    struct stat facts_a, facts_b;
    if (lstat(a.c_str(), &facts_a) != 0 || lstat(b.c_str(), &facts_b) != 0 ||
        !is_same_file(facts_a, facts_b)) {
        return false;
    }
    if (S_ISDIR(facts_a.st_mode) || facts_a.st_nlink == 1) {
        return true;
    }
    return name_in_folder(a) == name_in_folder(b) && stat(folder_of(a).c_str(), &facts_a) == 0 &&
           stat(folder_of(b).c_str(), &facts_b) == 0 && is_same_file(facts_a, facts_b);
}

int rename_host(const char *source, const char *target, bool replace) noexcept {
    if (replace) {
        return error_of(rename(source, target));
    }
    const int error = error_of(renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE));
    return error == EINVAL || error == ENOSYS ? rename_in_steps(source, target) : error;
}

bool are_two_links_to_one_file(const std::string &a, const std::string &b) {
    struct stat facts_a, facts_b;
    return lstat(a.c_str(), &facts_a) == 0 && lstat(b.c_str(), &facts_b) == 0 &&
           is_same_file(facts_a, facts_b) && !is_same_entry(a, b);
}

int rename_over(const std::string &source, const std::string &target) {
    return are_two_links_to_one_file(source, target)
               ? error_of(unlink(source.c_str()))
               : rename_host(source.c_str(), target.c_str(), true);
}

}  // namespace ostrel_platform
