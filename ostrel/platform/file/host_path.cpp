#include "ostrel/platform/file/host_path.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

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

constexpr bool is_separator(WCHAR c) {
    return c == u'\\' || c == u'/';
}

constexpr bool is_dots(std::string_view name) {
    return !name.empty() && name.size() <= 2 && name.front() == '.' && name.back() == '.';
}

// The names of a path: whether the host can have them, and whether one of them is "." or "..".
enum class Names { kImpossible, kOrdinary, kWithDots };

// Appends `path`, with '/' for both separators. Returns kImpossible for a lone surrogate that is
// not the unit of a byte.
Names append_names(const WCHAR *path, std::string *host) {
    bool with_dots = false;
    std::size_t name = host->size();  // where the current component begins
    const auto end_name = [&](std::size_t end) {
        with_dots |= is_dots(std::string_view(*host).substr(name, end - name));
        name = end + 1;
    };
    for (;;) {
        const std::size_t units = text_run(path);
        const std::size_t before = host->size();
        host->resize(before + 3 * units);
        host->resize(before + utf16_to_utf8(path, units, host->data() + before));
        char *const text = host->data();
        const std::size_t end = host->size();
        for (std::size_t i = before; i < end; ++i) {
            if (text[i] == '\\' || text[i] == '/') {
                text[i] = '/';
                end_name(i);
            }
        }
        path += units;
        if (*path == 0) {
            end_name(host->size());
            return with_dots ? Names::kWithDots : Names::kOrdinary;
        }
        // Only a backslash and the bytes from 0x80 have a unit, so no unit gives '/' or '.'.
        const unsigned byte = static_cast<unsigned>(*path++) - kEscape;
        if (byte != '\\' && (byte < 0x80 || byte > 0xFF)) {
            return Names::kImpossible;
        }
        host->push_back(static_cast<char>(byte));
    }
}

// Removes each "." and, with the component before it, each ".." behind the first `root` bytes of a
// host path. A ".." with nothing before it stays in a relative path, and otherwise disappears.
void resolve_dots(std::string *host, std::size_t root, bool is_relative) {
    char *const text = host->data();
    const bool ends_in_separator = host->back() == '/';
    std::size_t kept = root;  // the result ends here, without a separator
    std::size_t base = root;  // behind each ".." that stays
    for (std::size_t begin = root, end; begin < host->size(); begin = end + 1) {
        end = std::min(host->find('/', begin), host->size());
        const std::string_view name(text + begin, end - begin);
        if (name.empty() || name == ".") {
            continue;
        }
        const bool is_parent = name == "..";
        if (is_parent && kept > base) {
            const std::size_t separator = host->rfind('/', kept - 1);
            kept = separator == host->npos ? 0 : separator;
            continue;
        }
        if (is_parent && !is_relative) {
            continue;
        }
        if (kept > 0 || !is_relative) {
            text[kept++] = '/';
        }
        kept = static_cast<std::size_t>(std::copy(name.begin(), name.end(), text + kept) - text);
        base = is_parent ? kept : base;
    }
    if (kept == root && is_relative) {
        text[kept++] = '.';
    }
    if (kept == root || ends_in_separator) {
        text[kept++] = '/';
    }
    host->resize(kept);
}

// A path that begins with "\\?\", whose names the host receives as they are.
constexpr bool is_verbatim(const WCHAR *path) {
    return path[0] == u'\\' && path[1] == u'\\' && path[2] == u'?' && path[3] == u'\\';
}

constexpr std::size_t kVerbatimPrefix = 4;
constexpr std::size_t kMaxVerbatimPath = 32767;  // characters with the NUL

// Converts a path with "\\?\". Returns an error code.
DWORD convert_verbatim(const WCHAR *path, std::string *host) {
    path += kVerbatimPrefix;
    if (towupper(path[0]) == u'U' && towupper(path[1]) == u'N' && towupper(path[2]) == u'C' &&
        (path[3] == u'\\' || path[3] == 0)) {
        return ERROR_BAD_NETPATH;
    }
    std::optional<std::string> root = has_drive(path) ? drive_root(path[0]) : std::nullopt;
    if (!root || path[2] != u'\\' ||
        std::u16string_view(path).find(u'/') != std::u16string_view::npos) {
        return ERROR_PATH_NOT_FOUND;
    }
    *host = std::move(*root);
    return append_names(path + 2, host) == Names::kOrdinary ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

// Returns the code for a path that begins with two separators and is not verbatim: a device or a
// name on the network.
DWORD code_of_foreign(const WCHAR *path) {
    const bool is_device =
        (path[2] == u'.' || path[2] == u'?') && (path[3] == 0 || is_separator(path[3]));
    return is_device ? ERROR_FILE_NOT_FOUND : ERROR_BAD_NETPATH;
}

// Converts a path of any length. Returns an error code.
DWORD convert(const WCHAR *path, std::string *host) {
    if (is_separator(path[0]) && is_separator(path[1])) {
        return is_verbatim(path) ? convert_verbatim(path, host) : code_of_foreign(path);
    }
    const bool with_drive = has_drive(path);
    if (with_drive) {
        std::optional<std::string> root = drive_root(path[0]);
        if (!root) {
            return ERROR_PATH_NOT_FOUND;
        }
        *host = std::move(*root);
        path += 2;
    }
    const std::size_t root = host->size();
    if (with_drive && !is_separator(*path)) {
        host->push_back('/');
    }
    const Names names = append_names(path, host);
    if (names == Names::kWithDots) {
        resolve_dots(host, root, !with_drive && !is_separator(*path));
    }
    return names == Names::kImpossible ? ERROR_PATH_NOT_FOUND : ERROR_SUCCESS;
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

bool is_root(std::u16string_view path) {
    constexpr char16_t kSeparators[] = u"\\/";
    if (path.starts_with(u"\\\\?\\")) {
        path.remove_prefix(kVerbatimPrefix);
    }
    if (path.size() >= 2 && has_drive(path.data())) {
        path.remove_prefix(2);
    } else if (path.empty() || !is_separator(path.front())) {
        return false;
    }
    std::size_t depth = 0;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find_first_of(kSeparators), path.size());
        const std::u16string_view name = path.substr(0, end);
        if (name == u"..") {
            depth -= depth > 0 ? 1 : 0;
        } else if (!name.empty() && name != u".") {
            ++depth;
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return depth == 0;
}

std::optional<std::string> host_path(const WCHAR *path) {
    std::string host;
    return convert(path, &host) == ERROR_SUCCESS ? std::optional(std::move(host)) : std::nullopt;
}

std::optional<std::string> host_name(const WCHAR *name) {
    std::string host;
    return append_names(name, &host) != Names::kImpossible ? std::optional(std::move(host))
                                                           : std::nullopt;
}

std::size_t path_limit(const WCHAR *path) {
    return is_verbatim(path) ? kMaxVerbatimPath : MAX_PATH;
}

std::optional<std::string> file_path(const WCHAR *path) {
    if (path == nullptr || *path == 0) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return std::nullopt;
    }
    if (wcsnlen(path, path_limit(path)) == path_limit(path)) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return std::nullopt;
    }
    std::string host;
    const DWORD code = convert(path, &host);
    if (code != ERROR_SUCCESS) {
        SetLastError(code);
        return std::nullopt;
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
