#include "ostrel/platform/file/host_path.h"

#include <algorithm>
#include <cstdlib>

#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/text/utf8.h"

namespace ostrel_platform {
namespace {

// kEscape plus the byte is the unit for a byte that is not part of valid UTF-8 or is a backslash.
constexpr WCHAR kEscape = 0xDC00;

// Returns the host directory of a drive: empty for C:, since its paths begin at the host's root.
// Returns nothing when the drive does not exist.
std::optional<std::string> drive_root(WCHAR letter) {
    if (towupper(letter) == u'C') {
        return std::string();
    }
    const char name[] = {'O', 'S', 'T', 'R', 'E', 'L', '_',
                         'D', 'R', 'I', 'V', 'E', '_', static_cast<char>(towupper(letter)),
                         '\0'};
    const char *const directory = secure_getenv(name);
    if (directory == nullptr || *directory == '\0') {
        return std::nullopt;
    }
    return std::string(directory);
}

constexpr bool is_surrogate(WCHAR c) {
    return (c & 0xF800) == 0xD800;
}

constexpr bool is_pair(const WCHAR *units) {
    return (units[0] & 0xFC00) == 0xD800 && (units[1] & 0xFC00) == 0xDC00;
}

// Returns the number of units before the NUL or the first lone surrogate.
std::size_t text_run(const WCHAR *path) {
    const WCHAR *end = path;
    while (*end != 0 && (!is_surrogate(*end) || is_pair(end))) {
        end += is_surrogate(*end) ? 2 : 1;
    }
    return static_cast<std::size_t>(end - path);
}

// Appends `path`, with '/' for both separators. Returns false for a lone surrogate that is not the
// unit of a byte.
bool append_host_name(const WCHAR *path, std::string *host) {
    for (;;) {
        const std::size_t units = text_run(path);
        const std::size_t before = host->size();
        host->resize(before + 3 * units);
        host->resize(before + utf16_to_utf8(path, units, host->data() + before));
        std::replace(host->begin() + static_cast<std::ptrdiff_t>(before), host->end(), '\\', '/');
        path += units;
        if (*path == 0) {
            return true;
        }
        // Only a backslash and the bytes from 0x80 have a unit, so no unit gives '/' or '.'.
        const unsigned byte = static_cast<unsigned>(*path++) - kEscape;
        if (byte != '\\' && (byte < 0x80 || byte > 0xFF)) {
            return false;
        }
        host->push_back(static_cast<char>(byte));
    }
}

// Returns the number of bytes at the start of `name` that are valid UTF-8 without a backslash.
std::size_t plain_run(std::string_view name) {
    const auto *const bytes = reinterpret_cast<const unsigned char *>(name.data());
    std::size_t pos = 0;
    while (pos < name.size() && bytes[pos] != '\\') {
        const std::size_t length = utf8_length(bytes[pos]);
        const bool whole = length == 1
                               ? bytes[pos] < 0x80
                               : utf8_sound_length(bytes + pos, name.size() - pos) == length;
        if (!whole) {
            break;
        }
        pos += length;
    }
    return pos;
}

}  // namespace

bool has_drive(const WCHAR *path) {
    const WCHAR letter = towupper(path[0]);
    return letter >= u'A' && letter <= u'Z' && path[1] == u':';
}

bool is_root(const WCHAR *path) {
    const std::u16string_view text = path;
    const std::size_t drive = has_drive(path) ? 2 : 0;
    return !text.empty() && text.find_first_not_of(u"\\/", drive) == text.npos;
}

std::optional<std::string> host_path(const WCHAR *path) {
    std::optional<std::string> host = std::string();
    if (has_drive(path)) {
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

std::optional<std::string> file_path(const WCHAR *path) {
    if (path == nullptr || *path == 0) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return std::nullopt;
    }
    if (std::find(path, path + MAX_PATH, u'\0') == path + MAX_PATH) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return std::nullopt;
    }
    std::optional<std::string> host = host_path(path);
    if (!host) {
        SetLastError(ERROR_PATH_NOT_FOUND);
    }
    return host;
}

std::size_t name_from_host(std::string_view name, WCHAR *units) {
    bool plain = true;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto byte = static_cast<unsigned char>(name[i]);
        units[i] = byte;
        plain &= byte < 0x80 && byte != '\\';
    }
    if (plain) {
        return name.size();
    }
    std::size_t stored = 0;
    for (;;) {
        const std::size_t run = plain_run(name);
        std::size_t taken = 0;
        stored += utf8_to_utf16(name.data(), run, true, units + stored, &taken);
        name.remove_prefix(run);
        if (name.empty()) {
            return stored;
        }
        units[stored++] = static_cast<WCHAR>(kEscape + static_cast<unsigned char>(name.front()));
        name.remove_prefix(1);
    }
}

std::u16string path_from_host(std::string_view path) {
    std::u16string result = u"C:";
    result.resize(2 + path.size());
    result.resize(2 + name_from_host(path, result.data() + 2));
    std::replace(result.begin(), result.end(), u'/', u'\\');
    return result;
}

}  // namespace ostrel_platform
