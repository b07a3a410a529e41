#include "ostrel/platform/version/image_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>
#include <string>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file/host_name.h"
#include "ostrel/platform/module/find_module.h"

namespace ostrel_platform {

DWORD ImageFile::Open(const WCHAR *name) {
    if (name == nullptr || *name == 0) {
        return ERROR_INVALID_PARAMETER;
    }
    std::string module;
    if (find_module(name, &module) == ERROR_SUCCESS) {
        const int error = OpenRegular({AT_FDCWD, module.c_str()});
        return error != 0 ? code_of_errno(error) : ERROR_SUCCESS;
    }
    const std::optional<HostName> host = resolve_file(name);
    if (!host) {
        return GetLastError();
    }
    const int error = OpenRegular(host->Ref());
    return error != 0 ? host->CodeOf(error) : ERROR_SUCCESS;
}

// Opens what is a regular file and nothing else: a FIFO's writer or a device would notice. Returns
// 0 or an errno.
int ImageFile::OpenRegular(const FileRef &file) {
    struct stat facts;
    if (fstatat(file.directory, file.name, &facts, 0) != 0) {
        return errno;
    }
    if (!S_ISREG(facts.st_mode)) {
        return EACCES;
    }
    m_file = open_host(file, O_RDONLY | O_NONBLOCK);
    if (!m_file || fstat(m_file.Get(), &facts) != 0) {
        return errno;
    }
    if (!S_ISREG(facts.st_mode)) {
        return EACCES;
    }
    // The host would read pages ahead that nobody needs.
    posix_fadvise(m_file.Get(), 0, 0, POSIX_FADV_RANDOM);
    return 0;
}

bool ImageFile::Read(std::uint64_t offset, void *bytes, std::size_t size) {
    auto *target = static_cast<char *>(bytes);
    while (size > 0) {
        if (offset - m_offset >= m_size && !ReadPage(offset)) {
            return false;
        }
        const std::size_t begin = offset - m_offset;
        const std::size_t count = std::min(size, m_size - begin);
        std::memcpy(target, m_page + begin, count);
        target += count;
        offset += count;
        size -= count;
    }
    return true;
}

// Reads the page that holds an offset, or more of it, as far as the offset at least. On failure,
// also when the file ends before the offset, returns false.
bool ImageFile::ReadPage(std::uint64_t offset) {
    if (offset > std::uint64_t{std::numeric_limits<off_t>::max()} - kPage) {
        m_error = ERROR_BAD_FORMAT;
        return false;
    }
    if (m_offset != offset / kPage * kPage) {
        m_offset = offset / kPage * kPage;
        m_size = 0;
    }
    while (offset - m_offset >= m_size) {
        const ssize_t count = pread(m_file.Get(), m_page + m_size, kPage - m_size,
                                    static_cast<off_t>(m_offset + m_size));
        if (count > 0) {
            m_size += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            m_error = count == 0 ? ERROR_BAD_FORMAT : code_of_errno(errno);
            return false;
        }
    }
    return true;
}

}  // namespace ostrel_platform
