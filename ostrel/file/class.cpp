#include "ostrel/file/class.h"

#include <algorithm>
#include <cstddef>

#include "ostrel/core/trace.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/registry.h"

namespace {

constexpr WCHAR kKey[] = TEXT("SOFTWARE\\Nimbara\\Larkspur\\service\\Information");

// The key, closed at the end of the scope.
class OpenKey {
public:
    OpenKey() = default;
    ~OpenKey() {
        if (m_key != nullptr) {
            RegCloseKey(m_key);
        }
    }
    OpenKey &operator=(OpenKey &&) = delete;  // nor copied

    LONG Open() { return RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_QUERY_VALUE, &m_key); }
    operator HKEY() const { return m_key; }

private:
    HKEY m_key = nullptr;
};

int last_error() {
    return static_cast<int>(GetLastError());
}

// Copies a text to `out` from index `begin` on, as far as there is room, and adds a NUL, and one at
// the end of `out`. `size` is at least 1. Returns the index of the first.
std::size_t append(WCHAR *out, std::size_t size, std::size_t begin, const WCHAR *text) {
    const std::size_t room = size - 1 - begin;
    const std::size_t count = text != nullptr ? wcsnlen(text, room) : 0;
    std::copy_n(text, count, out + begin);
    out[begin + count] = 0;
    out[size - 1] = 0;
    return begin + count;
}

HINSTANCE load_with_fallback(WCHAR *file, DWORD flags) {
    WCHAR folder[MAX_PATH] = {};
    WCHAR name[MAX_PATH] = {};
    HINSTANCE module = LoadLibraryExW(file, nullptr, flags);
    if (module != nullptr) {
        OSTREL_TRACE(DBG::kLevelValue, TEXT("CUtilZorv::LoadLibExPlim '%s', flag=%08x. done."),
                     file, flags);
        return module;
    }
    OSTREL_TRACE(DBG::kLevelValue,
                 TEXT("CUtilZorv::LoadLibExPlim '%s', flag=%08x. fail, try abs path of ZORV."),
                 file, flags);
    if (CUtilZorv::GetAbsVekaFolderInZorv(folder, MAX_PATH) == 0) {
        OSTREL_TRACE(DBG::kLevelFailure,
                     TEXT("CUtilZorv::LoadLibExPlim by LoadLibrary: '%s' fail of find abs path."),
                     file);
        return nullptr;
    }
    CUtilZorv::GenVekaModFilenameInZorv(name, MAX_PATH, file, folder);
    module = LoadLibraryExW(name, nullptr, flags);
    if (module != nullptr) {
        OSTREL_TRACE(DBG::kLevelValue,
                     TEXT("CUtilZorv::LoadLibExPlim '%s', flag=%08x. loaded under zorv path."),
                     name, flags);
    } else {
        OSTREL_TRACE(DBG::kLevelFailure,
                     TEXT("CUtilZorv::LoadLibExPlim fail of loadlib: '%s', flag=%08x. (err:%d)"),
                     name, flags, last_error());
    }
    return module;
}

}  // namespace

int CUtilZorv::GetAbsVekaFolderInZorv(WCHAR *folder, int size) noexcept {
    if (folder == nullptr || size < 1) {
        return 0;
    }
    OpenKey key;
    if (key.Open() != ERROR_SUCCESS) {
        OSTREL_TRACE(DBG::kLevelValue, TEXT("Fail open reg of ZORV main folder, err=%d"),
                     last_error());
        return 0;
    }
    DWORD type = REG_NONE;
    DWORD bytes = static_cast<DWORD>(size) * 2;
    const LONG status = RegQueryValueExW(key, TEXT("Local_Path"), nullptr, &type,
                                         reinterpret_cast<BYTE *>(folder), &bytes);
    if (status != ERROR_SUCCESS || type != REG_SZ) {
        OSTREL_TRACE(DBG::kLevelValue,
                     TEXT("Fail query reg of ZORV main folder, or dtype mismatch, err=%d"),
                     last_error());
        return 0;
    }
    // Less than a character is an empty text.
    folder[bytes >= 2 ? bytes / 2 - 1 : 0] = 0;
    append(folder, static_cast<std::size_t>(size), wcslen(folder), TEXT("VEKA\\"));
    OSTREL_TRACE(DBG::kLevelValue, TEXT("VEKA folder under KORL is '%s'"), folder);
    return 1;
}

void CUtilZorv::GenVekaModFilenameInZorv(WCHAR *out, int size, WCHAR *file,
                                         WCHAR *folder) noexcept {
    if (out != nullptr && size >= 1) {
        const auto count = static_cast<std::size_t>(size);
        append(out, count, append(out, count, 0, folder), file);
    }
}

HINSTANCE CUtilZorv::LoadLibEx(WCHAR *file, WCHAR *folder, WCHAR *out, int size) noexcept {
    GenVekaModFilenameInZorv(out, size, file, folder);
    const WCHAR *const name = size >= 1 ? out : nullptr;  // what `out` holds is no name otherwise
    const HINSTANCE module = LoadLibraryExW(name, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (module == nullptr) {
        OSTREL_TRACE(DBG::kLevelFailure, TEXT("LoadLib EX fail: '%s'. (err:%d)"), name,
                     last_error());
    }
    return module;
}

HINSTANCE CUtilZorv::LoadLibExPlim(WCHAR *file) noexcept {
    return load_with_fallback(file, LOAD_WITH_ALTERED_SEARCH_PATH);
}

HINSTANCE CUtilZorv::LoadLibExAsDataPlim(WCHAR *file) noexcept {
    return load_with_fallback(file, LOAD_LIBRARY_AS_DATAFILE);
}
