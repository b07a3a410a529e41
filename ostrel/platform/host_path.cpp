#include "ostrel/platform/host_path.h"

#include <cstdlib>

#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/utf8.h"

namespace platform {
namespace {

constexpr bool is_letter(WCHAR c) {
    return towupper(c) >= u'A' && towupper(c) <= u'Z';
}

// The host directory of a drive: empty for C:, whose paths all begin at the root.
std::optional<std::string> drive_root(WCHAR letter) {
    if (towupper(letter) == u'C') {
        return std::string();
    }
    const char name[] = {'O', 'S', 'T', 'R', 'E', 'L', '_',
                         'D', 'R', 'I', 'V', 'E', '_', static_cast<char>(towupper(letter)),
                         '\0'};
    const char *const directory = std::getenv(name);
    if (directory == nullptr || *directory == '\0') {
        return std::nullopt;
    }
    return std::string(directory);
}

constexpr bool is_surrogate(WCHAR c) {
    return (c & 0xF800) == 0xD800;
}

// Appends `path`, with '/' for both separators. False when it holds a unit that stands for nothing.
bool append_host_name(const WCHAR *path, std::string *host) {
    for (; *path != 0; ++path) {
        if (is_surrogate(*path)) {
            const bool pair = *path < 0xDC00 && (path[1] & 0xFC00) == 0xDC00;
            if (!pair && (*path < 0xDC80 || *path > 0xDCFF)) {
                return false;
            }
            if (!pair) {
                host->push_back(static_cast<char>(*path - 0xDC00));
                continue;
            }
        }
        const std::size_t units = is_surrogate(*path) ? 2 : 1;
        char bytes[6];
        host->append(bytes, utf16_to_utf8(path, units, bytes));
        if (host->back() == '\\') {
            host->back() = '/';
        }
        path += units - 1;
    }
    return true;
}

}  // namespace

std::optional<std::string> host_path(const WCHAR *path) {
    std::optional<std::string> host = std::string();
    if (is_letter(path[0]) && path[1] == u':') {
        host = drive_root(path[0]);
        path += 2;
        if (host && *path != u'/' && *path != u'\\') {
            host->push_back('/');
        }
    }
    if (!host || !append_host_name(path, &*host)) {
        return std::nullopt;
    }
    return host;
}

}  // namespace platform
