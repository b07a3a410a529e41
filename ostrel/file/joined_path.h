#ifndef OSTREL_FILE_JOINED_PATH_H
#define OSTREL_FILE_JOINED_PATH_H

// Internal. Joins a directory with the names of its entries as NS_StringUtils::concatPath does, to
// paths of any length.

#include <string>
#include <utility>

#include "ostrel/core/x_string.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/text/string_utils.h"

namespace NS_FileUtils::detail {

// Returns the text, or the empty text for null.
inline const WCHAR *or_empty(const WCHAR *text) noexcept {
    return text != nullptr ? text : TEXT("");
}

// Joins one directory with one name after the other and reuses the memory.
class JoinedPath {
public:
    // Stores the pointer: `directory` must outlive the object. No argument may be null, here and
    // below.
    explicit JoinedPath(const WCHAR *directory) : m_directory(directory) {}

    // Returns the path of an entry, which is valid until the next call. An entry of the current
    // directory whose name begins like a drive (c:x) has the path .\c:x.
    const WCHAR *With(const WCHAR *name) {
        const bool is_like_drive = *m_directory == 0 && *name != 0 && name[1] == TEXT(':');
        return Join(is_like_drive ? TEXT(".") : m_directory, name);
    }

    // Returns the directory joined with a pattern, which may be a path; valid as above.
    const WCHAR *WithPattern(const WCHAR *pattern) { return Join(m_directory, pattern); }

    // Returns the joined path as a string.
    OS::x_wstring Take(const WCHAR *name) {
        m_path.resize(wcslen(With(name)));
        return std::exchange(m_path, {});
    }

    const WCHAR *Directory() const noexcept { return m_directory; }

private:
    const WCHAR *Join(const WCHAR *directory, const WCHAR *name) {
        m_path.resize(wcslen(directory) + wcslen(name) + 1);  // + a separator
        NS_StringUtils::concatPath(directory, name, m_path.data());
        return m_path.c_str();
    }

    const WCHAR *m_directory;
    std::u16string m_path;
};

}  // namespace NS_FileUtils::detail

#endif  // OSTREL_FILE_JOINED_PATH_H
