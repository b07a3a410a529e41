// Creating one directory, copying and moving one file.

#include "ostrel/file/Std_Utils_File.h"

#include "ostrel/core/handles.h"
#include "ostrel/core/trace.h"
#include "ostrel/file/joined_path.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/time.h"
#include "ostrel/text/string_utils.h"

namespace NS_FileUtils {
namespace {

using OS::x_wstring;

constexpr DWORD kPassedDown =
    FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE;
constexpr DWORD kInTheWay = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;

// Gives new directories the attributes of existing ones.
struct Inheritance {
    bool no_hidden;
    bool no_system;

    void PassDown(const WCHAR *created) const {
        const DWORD ancestor = GetFileAttributesW(getParentDirectory(created, true));
        if (ancestor == INVALID_FILE_ATTRIBUTES) {
            return;
        }
        const DWORD own = GetFileAttributesW(created);
        if (own == INVALID_FILE_ATTRIBUTES) {
            return;
        }
        DWORD changed = own | (ancestor & kPassedDown);
        if (no_hidden) {
            changed &= ~(ancestor & FILE_ATTRIBUTE_HIDDEN);
        }
        if (no_system) {
            changed &= ~(ancestor & FILE_ATTRIBUTE_SYSTEM);
        }
        if (changed != own) {
            SetFileAttributesW(created, changed);
        }
    }

    bool Create(const WCHAR *path) const {
        if (!CreateDirectoryW(path, nullptr)) {
            return false;
        }
        PassDown(path);
        return true;
    }
};

// Returns the separators at the beginning of a path without a drive. splitWords drops them, and
// create_levels needs them.
x_wstring leading_separators(const WCHAR *directory) {
    std::size_t count = 0;
    while (directory[count] == TEXT('\\')) {
        ++count;
    }
    return x_wstring(std::u16string(count, TEXT('\\')));
}

// Creates the missing directories of a path, up to its last separator.
bool create_levels(const WCHAR *path, const Inheritance &inheritance) {
    WCHAR drive[_MAX_DRIVE];
    WCHAR directory[_MAX_DIR];
    _wsplitpath(path, drive, directory, nullptr, nullptr);
    std::vector<x_wstring> words;
    NS_StringUtils::splitWords(TEXT('\\'), directory, words, NS_StringUtils::SCharAdapter());
    x_wstring current = *drive != 0 ? drive : leading_separators(directory);
    for (const x_wstring &word : words) {
        current = NS_StringUtils::concatPath(current, word);
        if (!isDirectoryExist(current) && !inheritance.Create(current)) {
            return false;
        }
    }
    return true;
}

// Times and attributes of a file.
struct Stamp {
    FILETIME creation = {};
    FILETIME access = {};
    FILETIME write = {};
    DWORD attributes = 0;

    void Read(HANDLE file, const WCHAR *path) {
        GetFileTime(file, &creation, &access, &write);
        attributes = GetFileAttributesW(path);
    }

    // Returns true when the file at `path` has the same time of last write.
    bool IsThatOf(const WCHAR *path) const {
        const CHandle file(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                       nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        FILETIME other = {};
        return file != INVALID_HANDLE_VALUE && GetFileTime(file, nullptr, nullptr, &other) &&
               CompareFileTime(&write, &other) == 0;
    }

    void PutOn(const WCHAR *path) const {
        {
            const CHandle file(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                           nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
            if (file == INVALID_HANDLE_VALUE) {
                return;
            }
            SetFileTime(file, &creation, &access, &write);
        }
        SetFileAttributesW(path, attributes);
    }
};

HANDLE open_copy(const WCHAR *path, HANDLE source) {
    const platform_creation_limit limit(source);
    return CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}

// Renames a busy file. Leaves a path whose pieces are too long alone: all pieces are then empty,
// and the new name would lie in the current directory.
void move_aside(const WCHAR *path) {
    WCHAR drive[_MAX_DRIVE];
    WCHAR directory[_MAX_DIR];
    WCHAR name[_MAX_FNAME];
    WCHAR extension[_MAX_EXT];
    _wsplitpath(path, drive, directory, name, extension);
    if (*name == 0 && *extension == 0) {
        return;
    }
    x_wstring aside;
    aside.Format(TEXT("%s%s%s%d%s"), drive, directory, name, GetTickCount(), extension);
    MoveFileW(path, aside);
}

// Whether a handle is open on what may never come to an end: a FIFO, socket or device.
bool is_endless(HANDLE file) {
    const DWORD type = GetFileType(file);
    return type == FILE_TYPE_PIPE || type == FILE_TYPE_CHAR;
}

// A failed read ends the copy as the end of the file does. Returns false when a write fails.
bool copy_content(HANDLE source, HANDLE target) {
    char buffer[16383];
    DWORD read = 0;
    while (ReadFile(source, buffer, sizeof buffer, &read, nullptr) && read > 0) {
        DWORD written = 0;
        if (!WriteFile(target, buffer, read, &written, nullptr) || written < read) {
            return false;
        }
    }
    return true;
}

bool is_same_drive(const WCHAR *left, const WCHAR *right) {
    return towupper(getDriveLetter(left)) == towupper(getDriveLetter(right));
}

// Does the work of MoveFileExW with other calls.
bool move_by_hand(const WCHAR *source, const WCHAR *target, DWORD flags) {
    const bool replace = (flags & MOVEFILE_REPLACE_EXISTING) != 0;
    if (is_same_drive(source, target)) {
        if (replace) {
            DeleteFileW(target);
        }
        return MoveFileW(source, target) != FALSE;
    }
    return (flags & MOVEFILE_COPY_ALLOWED) != 0 &&
           CopyFileW(source, target, replace ? FALSE : TRUE) && DeleteFileW(source);
}

}  // namespace

bool createDirectory(const WCHAR *path, bool fPathHasFile, bool fNoHidden, bool fNoSystem) {
    const x_wstring target = fPathHasFile ? getFilePath(path) : x_wstring(path);
    const Inheritance inheritance = {fNoHidden, fNoSystem};
    if (isDirectoryExist(target) || inheritance.Create(target)) {
        return true;
    }
    return create_levels(target, inheritance) &&
           (isDirectoryExist(target) || inheritance.Create(target));
}

bool copyFileEx(const WCHAR *pszExisting, const WCHAR *pszNew, bool fMoveBusyAside) {
    OSTREL_TRACE(DBG::kLevelEntry,
                 TEXT("NS_FileUtils::copyFileEx(const TCHAR* pszExisting = %s, const TCHAR* pszNew "
                      "= %s)"),
                 pszExisting, pszNew);
    Stamp stamp;
    {
        const CHandle source(CreateFileW(pszExisting, GENERIC_READ, FILE_SHARE_READ, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (source == INVALID_HANDLE_VALUE || is_endless(source)) {
            return false;
        }
        stamp.Read(source, pszExisting);
        if (stamp.IsThatOf(pszNew)) {
            return true;
        }
        CHandle target(open_copy(pszNew, source));
        if (target == INVALID_HANDLE_VALUE && fMoveBusyAside) {
            move_aside(pszNew);
            target = open_copy(pszNew, source);
        }
        if (target == INVALID_HANDLE_VALUE || !copy_content(source, target)) {
            return false;
        }
    }
    stamp.PutOn(pszNew);
    return true;
}

bool moveFileEx(const WCHAR *pszExistingFile, const WCHAR *pszNewFile, DWORD dwFlag,
                int fIgnoreAttribute) {
    OSTREL_TRACE(DBG::kLevelEntry,
                 TEXT("NS_FileUtils::moveFileEx(pszExistingFile = %s, pszNewFile = %s, dwFlag = "
                      "%X, fIgnoreAttribute = %d)"),
                 pszExistingFile, pszNewFile, dwFlag, fIgnoreAttribute);
    if (fIgnoreAttribute != 0) {
        const DWORD attributes = GetFileAttributesW(pszExistingFile);
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & kInTheWay) != 0) {
            SetFileAttributesW(pszExistingFile, FILE_ATTRIBUTE_NORMAL);
        }
    }
    if (MoveFileExW(pszExistingFile, pszNewFile, dwFlag)) {
        return true;
    }
    return GetLastError() == ERROR_CALL_NOT_IMPLEMENTED &&
           move_by_hand(pszExistingFile, pszNewFile, dwFlag);
}

}  // namespace NS_FileUtils
