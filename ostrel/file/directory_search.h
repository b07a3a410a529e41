#ifndef OSTREL_FILE_DIRECTORY_SEARCH_H
#define OSTREL_FILE_DIRECTORY_SEARCH_H

// Internal. Searches as loops over the entries of a directory.
//
//   for (Entries entries(path.WithPattern(spec)); entries.Found(); entries.Next()) { entries->name
//   ... }

#include <cerrno>
#include <cstdint>
#include <vector>

#include "ostrel/core/handles.h"
#include "ostrel/file/joined_path.h"
#include "ostrel/file/walk.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/find.h"

namespace NS_FileUtils::detail {

// The entries that match a pattern. A search that fails finds nothing.
class Entries {
public:
    explicit Entries(const WCHAR *pattern)
        : m_first(_wfindfirst64i32(pattern, &m_entry)),
          m_error(m_first != -1 ? 0 : errno),
          m_search(m_first != -1 ? m_first : 0),
          m_found(m_first != -1) {}

    // Returns true when the directory exists and could not be listed, or an entry was left out
    // because its facts could not be read.
    bool Failed() const noexcept { return m_error != 0 && m_error != ENOENT; }

    bool Found() const noexcept { return m_found; }

    // Goes to the next entry whose facts can be read.
    void Next() noexcept {
        m_found = false;
        for (int error = EIO; !m_found && error != ENOENT && error != EINVAL;) {
            m_found = _wfindnext64i32(m_first, &m_entry) == 0;
            error = m_found ? ENOENT : errno;
            m_error = error != ENOENT ? error : m_error;
        }
    }
    _wfinddata64i32_t *operator->() noexcept { return &m_entry; }

    bool IsDirectory() const noexcept { return is_directory(m_entry.attrib); }

private:
    _wfinddata64i32_t m_entry;
    std::intptr_t m_first;
    int m_error;
    CAutoFindClose m_search;
    bool m_found;
};

// The subdirectories of a directory, links to directories included, whose names do not begin with
// '.'.
class Subdirectories {
public:
    // Joins `path` with the pattern, which overwrites the text that With returned before.
    explicit Subdirectories(JoinedPath *path)
        : m_search(FindFirstFileExW(path->With(TEXT("*.*")), FindExInfoBasic, &m_entry,
                                    FindExSearchLimitToDirectories, nullptr, 0)),
          m_found(m_search != INVALID_HANDLE_VALUE),
          m_error(m_found ? ERROR_SUCCESS : GetLastError()) {
        SkipOthers();
    }

    // Returns true when the directory exists. ERROR_FILE_NOT_FOUND is not a missing directory: the
    // root of a drive without directories gives that code.
    bool IsThere() const noexcept {
        return m_error != ERROR_PATH_NOT_FOUND && m_error != ERROR_DIRECTORY;
    }
    // Returns true when the directory exists and could not be listed, or an entry was left out
    // because its facts could not be read.
    bool Failed() const noexcept {
        return m_error != ERROR_SUCCESS && m_error != ERROR_FILE_NOT_FOUND && IsThere();
    }

    bool Found() const noexcept { return m_found; }
    void Next() noexcept {
        Advance();
        SkipOthers();
    }
    const WCHAR *Name() const noexcept { return m_entry.cFileName; }
    DWORD Attributes() const noexcept { return m_entry.dwFileAttributes; }

private:
    void Advance() noexcept {
        m_found = false;
        for (DWORD error = ERROR_SUCCESS; !m_found && error != ERROR_NO_MORE_FILES;) {
            m_found = FindNextFileW(m_search, &m_entry) != FALSE;
            error = m_found ? ERROR_NO_MORE_FILES : GetLastError();
            if (error == ERROR_INVALID_HANDLE) {
                return;
            }
            m_error = error != ERROR_NO_MORE_FILES ? error : m_error;
        }
    }
    void SkipOthers() noexcept {
        while (m_found && (!is_directory(Attributes()) || *Name() == TEXT('.'))) {
            Advance();
        }
    }

    WIN32_FIND_DATAW m_entry;
    CFindHandle m_search;
    bool m_found;
    DWORD m_error;
};

// Adds the files that match a pattern to `files`, in the order of collectFiles. Returns false when
// a part of the tree could not be listed.
bool collect_files(const WCHAR *dir, const WCHAR *spec, bool recursive,
                   std::vector<OS::x_wstring> *files);

}  // namespace NS_FileUtils::detail

#endif  // OSTREL_FILE_DIRECTORY_SEARCH_H
