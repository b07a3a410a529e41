// Modules, pieces of paths, temporary names, and facts about one file or drive.

#include <cstdlib>
#include <memory>
#include <string_view>

#include "ostrel/core/handles.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/joined_path.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/system.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/timezone.h"
#include "ostrel/platform/volume.h"
#include "ostrel/text/string_utils.h"

namespace NS_FileUtils {
namespace {

using OS::x_wstring;

struct Pieces {
    WCHAR drive[_MAX_DRIVE];
    WCHAR directory[_MAX_DIR];
    WCHAR name[_MAX_FNAME];
    WCHAR extension[_MAX_EXT];

    explicit Pieces(const WCHAR *path) { _wsplitpath(path, drive, directory, name, extension); }

    x_wstring Path() const { return x_wstring(drive) + directory; }
    x_wstring NameWithExtension() const { return x_wstring(name) + extension; }
};

// Returns the value of an environment variable if something exists at that path, else null.
const WCHAR *existing_path_in(const WCHAR *variable) {
    const WCHAR *const value = _wgetenv(variable);
    return value != nullptr && _waccess(value, 0) != -1 ? value : nullptr;
}

// Finds the file of a path. The host lets names hold '*' and '?': of the files that such a path
// matches the one of that very name comes before all others.
bool find(const WCHAR *path, WIN32_FIND_DATAW *data) {
    const CFindHandle search(FindFirstFileW(path, data));
    if (search == INVALID_HANDLE_VALUE) {
        return false;
    }
    const std::u16string_view text(path);
    const std::u16string_view name = text.substr(text.find_last_of(TEXT("\\/:")) + 1);
    if (name.find_first_of(TEXT("*?")) == name.npos) {
        return true;
    }
    if (name != data->cFileName) {
        WIN32_FIND_DATAW entry;
        while (FindNextFileW(search, &entry)) {
            if (name == entry.cFileName) {
                *data = entry;
                break;
            }
        }
    }
    return true;
}

}  // namespace

x_wstring getAppFullPathName(HINSTANCE module) {
    WCHAR path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(module, path, MAX_PATH);
    return length > 0 && length < MAX_PATH ? path : TEXT("");
}

x_wstring getAppPath(HINSTANCE module) {
    return getFilePath(getAppFullPathName(module));
}

x_wstring getAppFilename(HINSTANCE module) {
    return getFilename(getAppFullPathName(module));
}

x_wstring getAppFilenameWithExt(HINSTANCE module) {
    return getFilenameWithExt(getAppFullPathName(module));
}

x_wstring getFilename(const WCHAR *path) {
    return Pieces(path).name;
}

x_wstring getFilenameWithExt(const WCHAR *path) {
    return Pieces(path).NameWithExtension();
}

x_wstring getFileExt(const WCHAR *path) {
    return Pieces(path).extension;
}

x_wstring getFilePath(const WCHAR *path) {
    return Pieces(path).Path();
}

WCHAR getDriveLetter(const WCHAR *path) {
    return Pieces(path).drive[0];
}

x_wstring getParentDirectory(const WCHAR *path, bool fUp) {
    const Pieces pieces(path);
    std::vector<x_wstring> words;
    NS_StringUtils::splitWords(TEXT('\\'), pieces.directory, words, NS_StringUtils::SCharAdapter());
    if (fUp && !words.empty()) {
        words.pop_back();
    }
    x_wstring parent = pieces.drive;
    for (const x_wstring &word : words) {
        parent = NS_StringUtils::concatPath(parent, word);
    }
    return parent;
}

x_wstring getTempPath() {
    for (const WCHAR *const variable : {TEXT("TMP"), TEXT("TEMP")}) {
        if (const WCHAR *const path = existing_path_in(variable)) {
            return path;
        }
    }
    WCHAR path[MAX_PATH];
    const DWORD length = GetTempPathW(MAX_PATH, path);
    return length > 0 && length < MAX_PATH ? path : TEXT("");
}

x_wstring getTempFile(const WCHAR *dir, const WCHAR *prefix) {
    const std::unique_ptr<WCHAR, decltype(&std::free)> name(_wtempnam(dir, prefix), &std::free);
    return name.get();
}

bool isFileExist(const WCHAR *path) {
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
}

bool isDirectoryExist(const WCHAR *path) {
    const DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool isDiskExist(const WCHAR *path) {
    const WCHAR root[] = {getDriveLetter(path), TEXT(':'), TEXT('\\'), 0};
    const DWORD type = GetDriveTypeW(root);
    return type != DRIVE_NO_ROOT_DIR && type != DRIVE_CDROM;
}

bool isEnoughFreeDiskSpace(WCHAR drive, DWORD required) {
    const WCHAR root[] = {drive, TEXT(':'), TEXT('\\'), 0};
    DWORD sectors_per_cluster = 0, bytes_per_sector = 0, free_clusters = 0, total_clusters = 0;
    if (!GetDiskFreeSpaceW(root, &sectors_per_cluster, &bytes_per_sector, &free_clusters,
                           &total_clusters)) {
        return false;
    }
    // The product of all three would need up to 96 bits. A number of sectors has more than
    // `required` bytes exactly when it is greater than the number of whole sectors in `required`.
    const std::uint64_t free_sectors = std::uint64_t{free_clusters} * sectors_per_cluster;
    return bytes_per_sector > 0 && free_sectors > required / bytes_per_sector;
}

bool getFileSize(const WCHAR *path, DWORD &size) {
    WIN32_FIND_DATAW data;
    if (!find(path, &data)) {
        return false;
    }
    size = data.nFileSizeLow;
    return true;
}

bool getFileTime(const WCHAR *path, FILETIME *creation, FILETIME *access, FILETIME *write) {
    WIN32_FIND_DATAW data;
    if (!find(path, &data)) {
        return false;
    }
    if (creation != nullptr) {
        *creation = data.ftCreationTime;
    }
    if (access != nullptr) {
        *access = data.ftLastAccessTime;
    }
    if (write != nullptr) {
        *write = data.ftLastWriteTime;
    }
    return true;
}

bool setFileTime(const WCHAR *path, FILETIME *creation, FILETIME *access, FILETIME *write) {
    const CHandle file(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                   OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    const DWORD attributes = GetFileAttributesW(path);
    SetFileTime(file, creation, access, write);
    SetFileAttributesW(path, attributes);
    return true;
}

void convertTime(const WCHAR *text, int fUtc, FILETIME *out) {
    if (out == nullptr) {
        return;
    }
    WCHAR digits[] = TEXT("00000000000000");
    const WCHAR *const given = detail::or_empty(text);
    for (int i = 0; digits[i] != 0 && given[i] != 0; ++i) {
        digits[i] = given[i];
    }
    SYSTEMTIME time = {};
    NS_StringUtils::convertTime(digits, time);
    FILETIME utc = {};
    *out = {};
    if (SystemTimeToFileTime(&time, &utc)) {
        if (fUtc != 0) {
            *out = utc;
        } else {
            FileTimeToLocalFileTime(&utc, out);
        }
    }
}

}  // namespace NS_FileUtils
