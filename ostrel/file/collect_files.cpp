// Listing directory trees and adding up sizes.

#include <iterator>
#include <string_view>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/directory_search.h"

namespace NS_FileUtils {
namespace {

using detail::Entries;
using detail::JoinedPath;
using detail::or_empty;
using detail::Subdirectories;

bool takes_all(const std::u16string_view spec) {
    return spec == TEXT("*.*") || spec == TEXT("*");
}

// Does what `collect` does for a pattern that matches all names, with one search for each
// directory. Keeps the paths of a directory until those of its subdirectories have been added.
LONG collect_all(const WCHAR *dir, bool directories, bool recursive,
                 std::vector<OS::x_wstring> *paths, bool *failed) {
    std::vector<OS::x_wstring> here;
    std::vector<OS::x_wstring> below;
    JoinedPath path(dir);
    Entries entries(path.With(TEXT("*.*")));
    for (; entries.Found(); entries.Next()) {
        const WCHAR *const full = path.With(entries->name);
        if (entries.IsDirectory() == directories) {
            here.emplace_back(full);
        }
        if (recursive && entries.IsDirectory() && entries->name[0] != TEXT('.') &&
            detail::may_enter(entries->attrib, full)) {
            below.emplace_back(full);
        }
    }
    *failed = *failed || entries.Failed();
    LONG count = static_cast<LONG>(here.size());
    for (const OS::x_wstring &subdirectory : below) {
        count += collect_all(subdirectory, directories, true, paths, failed);
    }
    paths->insert(paths->end(), std::make_move_iterator(here.begin()),
                  std::make_move_iterator(here.end()));
    return count;
}

// The walk of both collecting functions. Calls `take(path, entry)` for each entry; `path` holds the
// directory. Keeps no entries, so the subdirectories, which come first, need their own search.
template <class Take>
LONG collect(const WCHAR *dir, const WCHAR *spec, bool directories, bool recursive, Take &take,
             bool *failed) {
    LONG count = 0;
    JoinedPath path(dir);
    if (recursive) {
        Subdirectories below(&path);
        for (; below.Found(); below.Next()) {
            const WCHAR *const subdirectory = path.With(below.Name());
            if (detail::may_enter(below.Attributes(), subdirectory)) {
                count += collect(subdirectory, spec, directories, recursive, take, failed);
            }
        }
        *failed = *failed || below.Failed();
    }
    Entries entries(path.With(spec));
    for (; entries.Found(); entries.Next()) {
        if (entries.IsDirectory() == directories) {
            take(&path, entries.operator->());
            ++count;
        }
    }
    *failed = *failed || entries.Failed();
    return count;
}

LONG collect_paths(const WCHAR *dir, const WCHAR *spec, bool directories, bool recursive,
                   std::vector<OS::x_wstring> *paths, bool *failed) {
    if (takes_all(spec)) {
        return collect_all(dir, directories, recursive, paths, failed);
    }
    auto take = [paths](JoinedPath *path, const _wfinddata64i32_t *entry) {
        paths->emplace_back(path->With(entry->name));
    };
    return collect(dir, spec, directories, recursive, take, failed);
}

}  // namespace

namespace detail {

bool collect_files(const WCHAR *dir, const WCHAR *spec, bool recursive,
                   std::vector<OS::x_wstring> *files) {
    bool failed = false;
    collect_paths(dir, spec, false, recursive, files, &failed);
    return !failed;
}

}  // namespace detail

LONG collectFiles(std::vector<OS::x_wstring> &files, const WCHAR *dir, const WCHAR *spec,
                  unsigned int attrib, LONG *, bool fRecursive, const WCHAR *) {
    bool failed = false;
    return collect_paths(or_empty(dir), or_empty(spec), detail::is_directory(attrib), fRecursive,
                         &files, &failed);
}

LONG collectFilesEx(void (*callback)(unsigned int, std::int64_t, std::int64_t, std::int64_t, DWORD,
                                     WCHAR *, void *),
                    void *context, const WCHAR *dir, const WCHAR *spec, unsigned int attrib, LONG *,
                    bool fRecursive, const WCHAR *) {
    auto take = [callback, context](JoinedPath *, _wfinddata64i32_t *entry) {
        if (callback != nullptr) {
            callback(entry->attrib, entry->time_create, entry->time_access, entry->time_write,
                     entry->size, entry->name, context);
        }
    };
    bool failed = false;
    return collect(or_empty(dir), or_empty(spec), detail::is_directory(attrib), fRecursive, take,
                   &failed);
}

DWORD calcFileSize(const WCHAR *dir, const WCHAR *spec, unsigned int attrib, LONG *reserved,
                   bool fRecursive, const WCHAR *reservedText) {
    DWORD sum = 0;
    JoinedPath path(or_empty(dir));
    for (Entries entries(path.With(or_empty(spec))); entries.Found(); entries.Next()) {
        const WCHAR *const full = path.With(entries->name);
        if (!entries.IsDirectory()) {
            DWORD size = 0;
            sum += getFileSize(full, size) ? size : 0;
        } else if (fRecursive && entries->name[0] != TEXT('.') &&
                   detail::may_enter(entries->attrib, full)) {
            sum += calcFileSize(full, spec, attrib, reserved, fRecursive, reservedText);
        }
    }
    return sum;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes a copy
DWORD calcFileSize(std::vector<OS::x_wstring> files) {
    DWORD sum = 0;
    for (const OS::x_wstring &file : files) {
        DWORD size = 0;
        if (getFileSize(file, size)) {
            sum += size;
        }
    }
    return sum;
}

bool getDirectorySize(const WCHAR *dir, DWORD &size) {
    if (dir == nullptr || *dir == 0) {
        return false;
    }
    std::u16string pattern = dir;
    if (pattern.back() != TEXT('\\') && pattern.back() != TEXT('/')) {
        pattern += TEXT('\\');
    }
    pattern += TEXT("*.*");
    WIN32_FIND_DATAW entry;
    const CFindHandle search(FindFirstFileW(pattern.c_str(), &entry));
    if (search == INVALID_HANDLE_VALUE) {
        return false;
    }
    size = 0;
    do {
        size += entry.nFileSizeLow;
    } while (FindNextFileW(search, &entry));
    return true;
}

}  // namespace NS_FileUtils
