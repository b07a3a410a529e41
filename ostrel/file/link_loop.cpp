#include "ostrel/file/link_loop.h"

#include <string>
#include <tuple>

#include "ostrel/core/handles.h"

namespace NS_FileUtils::detail {
namespace {

// Volume and file index, equal only for the same directory; all 0 when the directory cannot be
// read.
using Identity = std::tuple<DWORD, DWORD, DWORD>;

Identity identity_of(const WCHAR *path) {
    const CHandle directory(
        CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    BY_HANDLE_FILE_INFORMATION facts = {};
    if (directory == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(directory, &facts)) {
        return {};
    }
    return {facts.dwVolumeSerialNumber, facts.nFileIndexHigh, facts.nFileIndexLow};
}

bool is_separator(WCHAR c) {
    return c == TEXT('\\') || c == TEXT('/');
}

// Returns true when `directory` is the current directory or one above it.
bool is_above_here(const Identity &directory) {
    std::u16string path = TEXT(".");
    Identity below;
    Identity here = identity_of(path.c_str());
    while (here != below) {  // the parent of the root is the root
        if (here == directory) {
            return true;
        }
        path += TEXT("\\..");
        below = here;
        here = identity_of(path.c_str());
    }
    return false;
}

}  // namespace

bool leads_back_up(const WCHAR *path) {
    const Identity target = identity_of(path);
    std::u16string way;
    for (const WCHAR *end = path; *end != 0; ++end) {
        way += *end;
        if (is_separator(*end) && identity_of(way.c_str()) == target) {
            return true;
        }
    }
    const bool begins_here = !is_separator(*path) && (*path == 0 || path[1] != TEXT(':'));
    return begins_here && is_above_here(target);
}

}  // namespace NS_FileUtils::detail
