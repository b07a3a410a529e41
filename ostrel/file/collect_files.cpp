// Listing directory trees and adding up sizes.

#include <iterator>
#include <string>
#include <string_view>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/directory_search.h"
#include "ostrel/platform/pinned_directory.h"

namespace NS_FileUtils {
namespace {

using detail::Entries;
using detail::JoinedPath;
using detail::or_empty;
using detail::Subdirectories;
using detail::Walk;
using ostrel_platform::PinnedDirectory;
using Facts = PinnedDirectory::Facts;

bool takes_all(const std::u16string_view spec) {
    return spec == TEXT("*.*") || spec == TEXT("*");
}

// One collecting call.
struct Collection {
    const WCHAR *spec;
    bool directories;  // gathers directories, otherwise files
    bool recursive;
    Walk walk = {};
    bool failed = false;  // a part of the tree could not be listed

    bool Gathers(const Entries &entries) const { return entries.IsDirectory() == directories; }
};

// What collectFiles does for a pattern that matches all names, with one search for each directory.
// Keeps the paths of a directory until those of its subdirectories have been added.
LONG collect_all(const WCHAR *dir, Collection *collection, std::vector<OS::x_wstring> *paths) {
    const Walk::Level level(&collection->walk, dir);
    std::vector<OS::x_wstring> here;
    std::vector<OS::x_wstring> below;
    {
        const PinnedDirectory pin(dir, PinnedDirectory::kNone, Facts::kKinds);
        JoinedPath path(dir);
        Entries entries(path.With(TEXT("*.*")));
        for (; entries.Found(); entries.Next()) {
            const WCHAR *const full = path.With(entries->name);
            if (collection->Gathers(entries)) {
                here.emplace_back(full);
            }
            if (collection->recursive && entries.IsDirectory() && entries->name[0] != TEXT('.') &&
                collection->walk.Enters(entries->attrib, full)) {
                below.emplace_back(full);
            }
        }
        collection->failed = collection->failed || entries.Failed();
    }
    auto count = static_cast<LONG>(here.size());
    for (const OS::x_wstring &subdirectory : below) {
        count += collect_all(subdirectory, collection, paths);
    }
    paths->insert(paths->end(), std::make_move_iterator(here.begin()),
                  std::make_move_iterator(here.end()));
    return count;
}

// The walk of both collecting functions. Calls `take(path, entry)` for each entry; `path` holds the
// directory. Keeps no entries, so the subdirectories, which come first, need their own search.
template <class Take>
LONG collect(const WCHAR *dir, Facts facts, Collection *collection, const Take &take) {
    PinnedDirectory pin(dir, PinnedDirectory::kNone, Facts::kKinds);
    const Walk::Level level(&collection->walk, dir);
    LONG count = 0;
    JoinedPath path(dir);
    if (collection->recursive) {
        Subdirectories below(&path);
        for (; below.Found(); below.Next()) {
            const WCHAR *const subdirectory = path.With(below.Name());
            if (collection->walk.Enters(below.Attributes(), subdirectory)) {
                count += collect(subdirectory, facts, collection, take);
            }
        }
        collection->failed = collection->failed || below.Failed();
    }
    pin.Want(facts);
    Entries entries(path.WithPattern(collection->spec));
    for (; entries.Found(); entries.Next()) {
        if (collection->Gathers(entries)) {
            take(&path, entries.operator->());
            ++count;
        }
    }
    collection->failed = collection->failed || entries.Failed();
    return count;
}

LONG collect_paths(const WCHAR *dir, Collection *collection, std::vector<OS::x_wstring> *paths) {
    if (takes_all(collection->spec)) {
        return collect_all(dir, collection, paths);
    }
    return collect(dir, Facts::kKinds, collection,
                   [paths](JoinedPath *path, const _wfinddata64i32_t *entry) {
                       paths->emplace_back(path->With(entry->name));
                   });
}

DWORD add_sizes(const WCHAR *dir, const WCHAR *spec, bool recursive, Walk *walk) {
    PinnedDirectory pin(dir, PinnedDirectory::kNone, Facts::kKinds);
    const Walk::Level level(walk, dir);
    DWORD sum = 0;
    JoinedPath path(dir);
    for (Entries entries(path.WithPattern(spec)); entries.Found(); entries.Next()) {
        const WCHAR *const full = path.With(entries->name);
        if (!entries.IsDirectory()) {
            DWORD size = 0;
            pin.Want(Facts::kSizes);
            sum += getFileSize(full, size) ? size : 0;
        } else if (recursive && entries->name[0] != TEXT('.') &&
                   walk->Enters(entries->attrib, full)) {
            sum += add_sizes(full, spec, recursive, walk);
        }
    }
    return sum;
}

}  // namespace

namespace detail {

bool collect_files(const WCHAR *dir, const WCHAR *spec, bool recursive,
                   std::vector<OS::x_wstring> *files) {
    Collection collection = {spec, false, recursive};
    collect_paths(dir, &collection, files);
    return !collection.failed;
}

}  // namespace detail

LONG collectFiles(std::vector<OS::x_wstring> &files, const WCHAR *dir, const WCHAR *spec,
                  unsigned int attrib, LONG *, bool fRecursive, const WCHAR *) {
    Collection collection = {or_empty(spec), detail::is_directory(attrib), fRecursive};
    return collect_paths(or_empty(dir), &collection, &files);
}

LONG collectFilesEx(void (*callback)(unsigned int, std::int64_t, std::int64_t, std::int64_t, DWORD,
                                     WCHAR *, void *),
                    void *context, const WCHAR *dir, const WCHAR *spec, unsigned int attrib, LONG *,
                    bool fRecursive, const WCHAR *) {
    Collection collection = {or_empty(spec), detail::is_directory(attrib), fRecursive};
    const auto take = [callback, context](JoinedPath *, _wfinddata64i32_t *entry) {
        if (callback != nullptr) {
            callback(entry->attrib, entry->time_create, entry->time_access, entry->time_write,
                     entry->size, entry->name, context);
        }
    };
    return collect(or_empty(dir), callback != nullptr ? Facts::kAll : Facts::kKinds, &collection,
                   take);
}

DWORD calcFileSize(const WCHAR *dir, const WCHAR *spec, unsigned int, LONG *, bool fRecursive,
                   const WCHAR *) {
    Walk walk;
    return add_sizes(or_empty(dir), or_empty(spec), fRecursive, &walk);
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
    const PinnedDirectory pin(dir, PinnedDirectory::kNone, Facts::kSizes);
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
