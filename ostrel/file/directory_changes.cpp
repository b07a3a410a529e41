// Copying, moving and deleting directories with their content.

#include <optional>

#include "ostrel/core/handles.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/directory_search.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/pinned_directory.h"
#include "ostrel/platform/system.h"

namespace NS_FileUtils {
namespace {

using detail::Entries;
using detail::JoinedPath;
using detail::or_empty;
using detail::Subdirectories;
using detail::Walk;
using OS::x_wstring;
using ostrel_platform::PinnedDirectory;
using Facts = PinnedDirectory::Facts;

constexpr DWORD kMoveOver = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED;

// Makes a missing directory for a copy of `source`, or of what it holds. The new directory is no
// more open to others than `source`.
bool exists_or_is_created(const WCHAR *directory, const WCHAR *source) {
    if (isFileExist(directory)) {
        return true;
    }
    const CHandle original(CreateFileW(*source != 0 ? source : TEXT("."), 0,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                       nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                                       nullptr));
    std::optional<platform_creation_limit> limit;
    if (original != INVALID_HANDLE_VALUE) {
        limit.emplace(original);
    }
    return createDirectory(directory, false, false, false);
}

// Removes the separators at the end, with which a link would be followed.
x_wstring without_separators_at_end(const WCHAR *path) {
    std::u16string bare = path;
    while (bare.size() > 1 && (bare.back() == TEXT('\\') || bare.back() == TEXT('/')) &&
           bare[bare.size() - 2] != TEXT(':')) {
        bare.pop_back();
    }
    return bare;
}

// The flags of a pinned directory of a source: of the top one the user decides, and a link that the
// walk enters is followed.
unsigned source_flags(bool is_top, DWORD attributes) {
    return is_top || detail::is_link(attributes) ? PinnedDirectory::kNone
                                                 : PinnedDirectory::kNotALink;
}

// Below the top, a link in a target is not followed: others may have put it there.
unsigned target_flags(bool is_top) {
    return PinnedDirectory::kNoLinksInIt |
           (is_top ? PinnedDirectory::kNone : PinnedDirectory::kNotALink);
}

// Whether a subdirectory that was found is still there and cannot be entered: others have put a
// link or a file in its place.
bool was_replaced(const PinnedDirectory &pin, const WCHAR *directory) {
    return !pin.IsPinned() && GetFileAttributesW(directory) != INVALID_FILE_ATTRIBUTES;
}

struct Subdirectory {
    x_wstring name;
    DWORD attributes;
};

// A call of copyDirectory, as its subdirectories see it.
struct Copy {
    int include_subdirectories;
    Walk walk = {};
};

// Lists the subdirectories that a copy enters. Returns false when there may be more.
bool list_subdirectories(JoinedPath *from, Walk *walk, std::vector<Subdirectory> *found) {
    Subdirectories below(from);
    for (; below.Found(); below.Next()) {
        if (walk->Enters(below.Attributes(), from->With(below.Name()))) {
            found->push_back({below.Name(), below.Attributes()});
        }
    }
    return !below.Failed();
}

int copy_directory(const WCHAR *source, const WCHAR *target, int fContinueOnError,
                   int fMoveBusyAside, bool is_top, DWORD attributes, Copy *copy) {
    if (!exists_or_is_created(target, source)) {
        return 0;
    }
    JoinedPath from(source);
    JoinedPath to(target);
    PinnedDirectory source_pin(source, source_flags(is_top, attributes), Facts::kKinds);
    const PinnedDirectory target_pin(target, target_flags(is_top));
    const Walk::Level level(&copy->walk, source);
    if (!is_top && was_replaced(source_pin, source)) {
        return 0;
    }
    int result = 1;
    if (copy->include_subdirectories != 0) {
        std::vector<Subdirectory> found;
        result = list_subdirectories(&from, &copy->walk, &found) ? 1 : 0;
        for (const Subdirectory &subdirectory : found) {
            if (copy_directory(from.With(subdirectory.name), to.With(subdirectory.name), 1, 0,
                               false, subdirectory.attributes, copy) == 0) {
                return 0;
            }
        }
    }
    if (result == 0 && fContinueOnError == 0) {
        return 0;
    }
    source_pin.Want(Facts::kKinds);
    Entries entries(from.With(TEXT("*.*")));
    const auto goes_on = [&] {
        return fContinueOnError != 0 || (result != 0 && !entries.Failed());
    };
    for (; entries.Found() && goes_on(); entries.Next()) {
        if (!entries.IsDirectory() &&
            !copyFileEx(from.With(entries->name), to.With(entries->name), fMoveBusyAside != 0)) {
            result = 0;
        }
    }
    return entries.Failed() ? 0 : result;
}

int move_directory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory,
                   bool is_top) {
    if (!exists_or_is_created(target, source)) {
        return 0;
    }
    JoinedPath from(source);
    JoinedPath to(target);
    {
        PinnedDirectory source_pin(source, source_flags(is_top, 0), Facts::kKinds);
        const PinnedDirectory target_pin(target, target_flags(is_top));
        if (!is_top && was_replaced(source_pin, source)) {
            return 0;
        }
        std::vector<Subdirectory> found;
        {
            Subdirectories below(&from);
            if (!below.IsThere() || below.Failed()) {
                return below.Failed() ? 0 : 1;
            }
            for (; below.Found() && fIncludeSubDirectory != 0; below.Next()) {
                found.push_back({below.Name(), below.Attributes()});
            }
            if (below.Failed()) {
                return 0;
            }
        }
        for (const auto &[name, attributes] : found) {
            const bool moved =
                detail::is_link(attributes)
                    ? moveFileEx(from.With(name), to.With(name), kMoveOver, 1)  // as a link
                    : move_directory(from.With(name), to.With(name), fIncludeSubDirectory, false) !=
                          0;
            if (!moved) {
                return 0;
            }
        }
        source_pin.Want(Facts::kKinds);
        Entries entries(from.With(TEXT("*.*")));
        for (; entries.Found() && !entries.Failed(); entries.Next()) {
            if (!entries.IsDirectory() &&
                !moveFileEx(from.With(entries->name), to.With(entries->name), kMoveOver, 1)) {
                return 0;
            }
        }
        if (entries.Failed()) {
            return 0;
        }
    }
    RemoveDirectoryW(source);
    return 1;
}

}  // namespace

int copyDirectory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory,
                  int fContinueOnError, int fMoveBusyAside) {
    Copy copy = {fIncludeSubDirectory};
    return copy_directory(or_empty(source), or_empty(target), fContinueOnError, fMoveBusyAside,
                          true, 0, &copy);
}

int moveDirectory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory, int) {
    return move_directory(or_empty(source), or_empty(target), fIncludeSubDirectory, true);
}

bool moveFiles(const WCHAR *source, const WCHAR *target, const WCHAR *spec, DWORD dwFlag,
               int fRecursive) {
    if (!exists_or_is_created(target, or_empty(source))) {
        return false;
    }
    std::vector<x_wstring> files;
    if (!detail::collect_files(or_empty(source), or_empty(spec), fRecursive != 0, &files)) {
        return false;
    }
    JoinedPath to(or_empty(target));
    for (const x_wstring &file : files) {
        const x_wstring path = x_wstring(to.With(getFilename(file))) + getFileExt(file);
        if (!moveFileEx(file, path, dwFlag, 0)) {
            return false;
        }
    }
    return true;
}

void deleteTree(const WCHAR *dir, void (*callback)(const WCHAR *path, int result, void *context),
                void *context, int fRemoveDirectory, int fRecursive, const WCHAR *spec) {
    if (dir == nullptr) {
        return;
    }
    const x_wstring directory = without_separators_at_end(dir);
    {
        PinnedDirectory pin(directory, PinnedDirectory::kNotALink | PinnedDirectory::kDeletes,
                            Facts::kKinds);
        JoinedPath path(dir);
        Entries entries(path.WithPattern(or_empty(spec)));
        pin.Want(Facts::kAll);
        for (; entries.Found(); entries.Next()) {
            const WCHAR *const full = path.With(entries->name);
            if (!entries.IsDirectory()) {
                SetFileAttributesW(full, FILE_ATTRIBUTE_NORMAL);
                const BOOL deleted = DeleteFileW(full);
                if (callback != nullptr) {
                    callback(full, deleted, context);
                }
            } else if (fRecursive != 0 && entries->name[0] != TEXT('.')) {
                deleteTree(full, callback, context, fRemoveDirectory, fRecursive, spec);
            }
        }
    }
    if (fRemoveDirectory != 0) {
        SetFileAttributesW(directory, FILE_ATTRIBUTE_NORMAL);
        if (!RemoveDirectoryW(directory) && callback != nullptr) {
            callback(dir, 0, context);
        }
    }
}

void deleteFilesUntilReboot(const std::vector<x_wstring> &files) {
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    GetVersionExW(&version);
    if (version.dwPlatformId == VER_PLATFORM_WIN32_NT) {
        for (const x_wstring &file : files) {
            MoveFileExW(file, nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
        }
    }
}

}  // namespace NS_FileUtils
