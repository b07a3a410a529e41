#include "ostrel/platform/process/host_process.h"

#include <dirent.h>
#include <linux/limits.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {
namespace {

// Returns the id that an entry of /proc stands for, or 0.
DWORD id_of_entry(const char *name) {
    DWORD id = 0;
    const char *const end = name + std::strlen(name);
    const auto [stop, error] = std::from_chars(name, end, id);
    return error == std::errc() && stop == end ? id : 0;
}

// Removes the mark that the host appends to the path of a file which is not in its place any more.
// A file may have the mark in its own name.
void strip_mark_of_removal(const char *link, std::string *path) {
    constexpr std::string_view kMark = " (deleted)";
    struct stat executed, named;
    if (path->ends_with(kMark) && !(stat(path->c_str(), &named) == 0 &&
                                    stat(link, &executed) == 0 && is_same_file(executed, named))) {
        path->resize(path->size() - kMark.size());
    }
}

}  // namespace

int list_processes(std::span<DWORD> ids, std::size_t *count) noexcept {
    *count = 0;
    const HostDescriptor folder = open_host("/proc", O_RDONLY | O_DIRECTORY);
    if (!folder) {
        return errno;
    }
    alignas(dirent64) char block[16384];
    while (*count < ids.size()) {
        const ssize_t size = getdents64(folder.Get(), block, sizeof block);
        if (size <= 0) {
            return size < 0 ? errno : 0;
        }
        for (ssize_t at = 0; at < size && *count < ids.size();) {
            const auto *const entry = reinterpret_cast<const dirent64 *>(block + at);
            at += entry->d_reclen;
            if (const DWORD id = id_of_entry(entry->d_name)) {
                ids[(*count)++] = id;
            }
        }
    }
    return 0;
}

ProcessFile::ProcessFile(pid_t id, const char *name) noexcept {
    constexpr std::string_view kProc = "/proc/";
    char *end = std::copy(kProc.begin(), kProc.end(), m_path);
    end = std::to_chars(end, std::end(m_path), id).ptr;
    *end++ = '/';
    std::strcpy(end, name);
}

int read_image_name(pid_t id, std::string *name) {
    const ProcessFile link(id, "exe");
    char buffer[PATH_MAX];
    const ssize_t size = readlink(link, buffer, sizeof buffer);
    if (size < 0) {
        name->clear();
        return errno == ENOENT || errno == ESRCH ? 0 : errno;
    }
    name->assign(buffer, static_cast<std::size_t>(size));
    strip_mark_of_removal(link, name);
    name->erase(0, name->rfind('/') + 1);
    return 0;
}

}  // namespace ostrel_platform
