#ifndef OSTREL_FILE_JOINED_PATH_H
#define OSTREL_FILE_JOINED_PATH_H

// Internal. Paths of a directory's entries, joined as NS_StringUtils::concatPath does it, in full.

#include <string>
#include <utility>

#include "ostrel/core/x_string.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/text/string_utils.h"

namespace NS_FileUtils::detail {

// A null text as the empty one.
inline const WCHAR *or_empty(const WCHAR *text) noexcept {
    return text != nullptr ? text : TEXT("");
}

// One directory, joined with one name after the other in the same memory.
class JoinedPath {
public:
    // Neither text may be null, here and below. What `directory` points to must stay.
    explicit JoinedPath(const WCHAR *directory) : m_directory(directory) {}

    // Valid until the next call.
    const WCHAR *With(const WCHAR *name) {
        m_path.resize(wcslen(m_directory) + wcslen(name) + 1);  // + a separator
        NS_StringUtils::concatPath(m_directory, name, m_path.data());
        return m_path.c_str();
    }

    // With, as a string that the caller keeps.
    OS::x_wstring Take(const WCHAR *name) {
        m_path.resize(wcslen(With(name)));
        return std::exchange(m_path, {});
    }

    const WCHAR *Directory() const noexcept { return m_directory; }

private:
    const WCHAR *m_directory;
    std::u16string m_path;
};

}  // namespace NS_FileUtils::detail

#endif  // OSTREL_FILE_JOINED_PATH_H
