// Listing directory trees and adding up sizes.

#include <string>
#include <string_view>
#include <utility>

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

// Does what `collect` does for a pattern that matches all names, with one search for each
// directory. Keeps a `Kept` of each gathered entry of a directory, and passes them to `take` when
// those of its subdirectories have been passed.
template <class Kept, class Take>
LONG collect_all(const WCHAR *dir, Facts facts, Collection *collection, Take &take) {
    const PinnedDirectory pin(dir, PinnedDirectory::kNone, facts);
    const Walk::Level level(&collection->walk, dir);
    std::vector<Kept> here;
    std::vector<OS::x_wstring> below;
    {
        JoinedPath path(dir);
        Entries entries(path.With(TEXT("*.*")));
        for (; entries.Found(); entries.Next()) {
            if (collection->Gathers(entries)) {
                here.emplace_back(&path, *entries.operator->());
            }
            if (collection->recursive && entries.IsDirectory() && entries->name[0] != TEXT('.')) {
                const WCHAR *const full = path.With(entries->name);
                if (collection->walk.Enters(entries->attrib, full)) {
                    below.emplace_back(full);
                }
            }
        }
        collection->failed = collection->failed || entries.Failed();
    }
    LONG count = static_cast<LONG>(here.size());
    for (const OS::x_wstring &subdirectory : below) {
        count += collect_all<Kept>(subdirectory, facts, collection, take);
    }
    for (Kept &kept : here) {
        take(&kept);
    }
    return count;
}

// The walk of both collecting functions, for any pattern. Keeps no entries, so the subdirectories,
// which come first, need their own search.
template <class Kept, class Take>
LONG collect_matches(const WCHAR *dir, Facts facts, Collection *collection, Take &take) {
    PinnedDirectory pin(dir, PinnedDirectory::kNone, Facts::kKinds);
    const Walk::Level level(&collection->walk, dir);
    LONG count = 0;
    JoinedPath path(dir);
    if (collection->recursive) {
        Subdirectories below(&path);
        for (; below.Found(); below.Next()) {
            const WCHAR *const subdirectory = path.With(below.Name());
            if (collection->walk.Enters(below.Attributes(), subdirectory)) {
                count += collect_matches<Kept>(subdirectory, facts, collection, take);
            }
        }
        collection->failed = collection->failed || below.Failed();
    }
    pin.Want(facts);
    Entries entries(path.With(collection->spec));
    for (; entries.Found(); entries.Next()) {
        if (collection->Gathers(entries)) {
            Kept kept(&path, *entries.operator->());
            take(&kept);
            ++count;
        }
    }
    collection->failed = collection->failed || entries.Failed();
    return count;
}

template <class Kept, class Take>
LONG collect(const WCHAR *dir, Facts facts, Collection *collection, Take take) {
    return takes_all(collection->spec) ? collect_all<Kept>(dir, facts, collection, take)
                                       : collect_matches<Kept>(dir, facts, collection, take);
}

// What collectFiles keeps of an entry.
struct FullPath {
    OS::x_wstring path;

    FullPath(JoinedPath *joined, const _wfinddata64i32_t &entry) : path(joined->With(entry.name)) {}
};

// What collectFilesEx keeps of an entry.
struct Record {
    unsigned attributes;
    std::int64_t creation, access, write;
    DWORD size;
    std::u16string name;

    Record(JoinedPath *, const _wfinddata64i32_t &entry)
        : attributes(entry.attrib),
          creation(entry.time_create),
          access(entry.time_access),
          write(entry.time_write),
          size(entry.size),
          name(entry.name) {}
};

LONG collect_paths(const WCHAR *dir, Collection *collection, std::vector<OS::x_wstring> *paths) {
    return collect<FullPath>(dir, Facts::kKinds, collection,
                             [paths](FullPath *kept) { paths->push_back(std::move(kept->path)); });
}

DWORD add_sizes(const WCHAR *dir, const WCHAR *spec, bool recursive, Walk *walk) {
    PinnedDirectory pin(dir, PinnedDirectory::kNone, Facts::kKinds);
    const Walk::Level level(walk, dir);
    DWORD sum = 0;
    JoinedPath path(dir);
    for (Entries entries(path.With(spec)); entries.Found(); entries.Next()) {
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
    return collect<Record>(or_empty(dir), Facts::kAll, &collection,
                           [callback, context](Record *kept) {
                               if (callback != nullptr) {
                                   callback(kept->attributes, kept->creation, kept->access,
                                            kept->write, kept->size, kept->name.data(), context);
                               }
                           });
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
