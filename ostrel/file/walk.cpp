#include "ostrel/file/walk.h"

#include <string>

#include "ostrel/core/handles.h"

namespace NS_FileUtils::detail {
namespace {

bool is_separator(WCHAR c) {
    return c == TEXT('\\') || c == TEXT('/');
}

}  // namespace

Walk::Identity Walk::IdentityOf(const WCHAR *path) {
    const CHandle directory(
        CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    BY_HANDLE_FILE_INFORMATION facts = {};
    if (directory == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(directory, &facts)) {
        return {};
    }
    return {facts.dwVolumeSerialNumber, facts.nFileIndexHigh, facts.nFileIndexLow};
}

void Walk::AddCurrentDirectories(std::set<Identity> *directories) {
    std::u16string path = TEXT(".");
    // The parent of the root is the root.
    while (directories->insert(IdentityOf(path.c_str())).second) {
        path += TEXT("\\..");
    }
}

void Walk::FindDirectoriesAbove() {
    const WCHAR *const first = m_way.front().path;
    if (!is_separator(*first) && (*first == 0 || first[1] != TEXT(':'))) {
        AddCurrentDirectories(&m_above);
    }
    std::u16string way;
    for (const WCHAR *end = first; *end != 0; ++end) {
        way += *end;
        if (is_separator(*end)) {
            m_above.insert(IdentityOf(way.c_str()));
        }
    }
}

bool Walk::EntersLink(const WCHAR *path) {
    const Identity target = IdentityOf(path);
    if (target == Identity()) {
        return true;  // the listing will fail
    }
    if (m_above.empty() && !m_way.empty()) {
        FindDirectoriesAbove();
    }
    for (Directory &directory : m_way) {
        if (directory.identity == Identity()) {
            directory.identity = IdentityOf(*directory.path != 0 ? directory.path : TEXT("."));
        }
        if (directory.identity == target) {
            return false;
        }
    }
    return m_above.count(target) == 0 && m_entered.insert(target).second;
}

}  // namespace NS_FileUtils::detail
