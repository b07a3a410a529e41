// Copying, moving and deleting directories with their content.

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/directory_search.h"
#include "ostrel/platform/system.h"

namespace NS_FileUtils {
namespace {

using detail::Entries;
using detail::JoinedPath;
using detail::or_empty;
using detail::Subdirectories;
using OS::x_wstring;

constexpr DWORD kMoveOver = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED;

bool exists_or_is_created(const WCHAR *directory) {
    return isFileExist(directory) || createDirectory(directory, false, false, false);
}

// Moves a link as a link. Reads the attributes at this point, not from the listing, because another
// process may have replaced the directory by a link since.
bool move_subdirectory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory) {
    const DWORD attributes = GetFileAttributesW(source);
    if (attributes != INVALID_FILE_ATTRIBUTES && detail::is_link(attributes)) {
        return moveFileEx(source, target, kMoveOver, 1);
    }
    return moveDirectory(source, target, fIncludeSubDirectory, 1) != 0;
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

}  // namespace

int copyDirectory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory,
                  int fContinueOnError, int fMoveBusyAside) {
    if (!exists_or_is_created(target)) {
        return 0;
    }
    JoinedPath from(or_empty(source));
    JoinedPath to(or_empty(target));
    int result = 1;
    if (fIncludeSubDirectory != 0) {
        std::vector<x_wstring> names;
        {
            Subdirectories below(&from);
            for (; below.Found(); below.Next()) {
                if (detail::may_enter(below.Attributes(), from.With(below.Name()))) {
                    names.emplace_back(below.Name());
                }
            }
            if (below.Failed()) {
                result = 0;
            }
        }
        for (const x_wstring &name : names) {
            if (copyDirectory(from.With(name), to.With(name), fIncludeSubDirectory, 1, 0) == 0) {
                return 0;
            }
        }
    }
    if (result == 0 && fContinueOnError == 0) {
        return 0;
    }
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

int moveDirectory(const WCHAR *source, const WCHAR *target, int fIncludeSubDirectory, int) {
    if (!exists_or_is_created(target)) {
        return 0;
    }
    JoinedPath from(or_empty(source));
    JoinedPath to(or_empty(target));
    std::vector<x_wstring> names;
    {
        Subdirectories below(&from);
        if (!below.IsThere() || below.Failed()) {
            return below.Failed() ? 0 : 1;
        }
        for (; below.Found() && fIncludeSubDirectory != 0; below.Next()) {
            names.emplace_back(below.Name());
        }
        if (below.Failed()) {
            return 0;
        }
    }
    for (const x_wstring &name : names) {
        if (!move_subdirectory(from.With(name), to.With(name), fIncludeSubDirectory)) {
            return 0;
        }
    }
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
    RemoveDirectoryW(from.Directory());
    return 1;
}

bool moveFiles(const WCHAR *source, const WCHAR *target, const WCHAR *spec, DWORD dwFlag,
               int fRecursive) {
    if (!exists_or_is_created(target)) {
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
    const DWORD attributes = GetFileAttributesW(directory);
    if (attributes == INVALID_FILE_ATTRIBUTES || !detail::is_link(attributes)) {
        JoinedPath path(dir);
        for (Entries entries(path.With(or_empty(spec))); entries.Found(); entries.Next()) {
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
