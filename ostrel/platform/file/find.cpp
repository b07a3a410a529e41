#include "ostrel/platform/find.h"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <new>

#include "ostrel/platform/base/no_cancellation.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/file/search.h"
#include "ostrel/platform/time/system_time.h"

namespace {

using ostrel_platform::HandleKind;
using ostrel_platform::HandleTable;
using ostrel_platform::Search;
using ostrel_platform::SearchEntry;
using ostrel_platform::SearchResult;

void put_name(std::u16string_view name, WCHAR *buffer) {
    *std::copy(name.begin(), name.end(), buffer) = 0;
}

void put_entry(const SearchEntry &entry, WIN32_FIND_DATAW *data) {
    data->dwFileAttributes = entry.facts.attributes;
    data->ftCreationTime = entry.facts.creation;
    data->ftLastAccessTime = entry.facts.access;
    data->ftLastWriteTime = entry.facts.write;
    data->nFileSizeHigh = static_cast<DWORD>(entry.facts.size >> 32);
    data->nFileSizeLow = static_cast<DWORD>(entry.facts.size);
    data->dwReserved0 = 0;
    data->dwReserved1 = 0;
    put_name(entry.name, data->cFileName);
    data->cAlternateFileName[0] = 0;
}

std::int64_t seconds_of(const FILETIME &time) {
    constexpr std::int64_t kSecondsTo1970 = ostrel_platform::kMillisecondsTo1970 / 1000;
    return ostrel_platform::ticks_of(time).value_or(0) / ostrel_platform::kTicksOfSecond -
           kSecondsTo1970;
}

void put_entry(const SearchEntry &entry, _wfinddata64i32_t *data) {
    data->attrib = entry.facts.attributes & ~FILE_ATTRIBUTE_NORMAL;
    data->time_create = seconds_of(entry.facts.creation);
    data->time_access = seconds_of(entry.facts.access);
    data->time_write = seconds_of(entry.facts.write);
    data->size = static_cast<std::uint32_t>(entry.facts.size);
    put_name(entry.name, data->name);
}

template <class Data>
SearchResult begin(HandleKind kind, const WCHAR *path, bool mayLeaveOutFiles, Data *data,
                   std::uintptr_t *handle) {
    const ostrel_platform::NoCancellation uncancelled;
    try {
        const auto search = std::make_shared<Search>(mayLeaveOutFiles);
        SearchEntry entry;
        const SearchResult failure = search->First(path, &entry);
        if (!failure) {
            *handle = HandleTable::Instance().Open(kind, search);
            put_entry(entry, data);
        }
        return failure;
    } catch (const std::bad_alloc &) {
        return ostrel_platform::SearchFailure{ERROR_NOT_ENOUGH_MEMORY, ENOMEM};
    }
}

template <class Data>
SearchResult go_on(HandleKind kind, std::uintptr_t handle, Data *data) {
    const ostrel_platform::NoCancellation uncancelled;
    const auto object = HandleTable::Instance().Find(kind, handle);
    if (object == nullptr) {
        return ostrel_platform::SearchFailure{ERROR_INVALID_HANDLE, EINVAL};
    }
    auto &search = static_cast<Search &>(*object);
    const std::lock_guard lock(search.Mutex());  // until put_entry has copied the name
    SearchEntry entry;
    const SearchResult failure = search.Next(&entry);
    if (!failure) {
        put_entry(entry, data);
    }
    return failure;
}

}  // namespace

HANDLE FindFirstFileW(const WCHAR *path, WIN32_FIND_DATAW *data) noexcept {
    return FindFirstFileExW(path, FindExInfoStandard, data, FindExSearchNameMatch, nullptr, 0);
}

HANDLE FindFirstFileExW(const WCHAR *path, FINDEX_INFO_LEVELS level, LPVOID data,
                        FINDEX_SEARCH_OPS operation, LPVOID filter, DWORD flags) noexcept {
    const bool directories = operation == FindExSearchLimitToDirectories;
    if (data == nullptr) {
        SetLastError(ERROR_NOACCESS);
        return INVALID_HANDLE_VALUE;
    }
    if ((level != FindExInfoStandard && level != FindExInfoBasic) ||
        (operation != FindExSearchNameMatch && !directories) || filter != nullptr || flags != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    std::uintptr_t handle = 0;
    if (const SearchResult failure = begin(HandleKind::kFind, path, directories,
                                           static_cast<WIN32_FIND_DATAW *>(data), &handle)) {
        SetLastError(failure->code);
        return INVALID_HANDLE_VALUE;
    }
    return reinterpret_cast<HANDLE>(handle);
}

BOOL FindNextFileW(HANDLE search, WIN32_FIND_DATAW *data) noexcept {
    if (data == nullptr) {
        SetLastError(ERROR_NOACCESS);
        return FALSE;
    }
    const auto handle = reinterpret_cast<std::uintptr_t>(search);
    if (const SearchResult failure = go_on(HandleKind::kFind, handle, data)) {
        SetLastError(failure->code);
        return FALSE;
    }
    return TRUE;
}

BOOL FindClose(HANDLE search) noexcept {
    return ostrel_platform::close_handle(HandleKind::kFind, search);
}

std::intptr_t _wfindfirst64i32(const WCHAR *path, _wfinddata64i32_t *data) noexcept {
    std::uintptr_t handle = 0;
    if (path == nullptr || data == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (const SearchResult failure = begin(HandleKind::kCrtFind, path, false, data, &handle)) {
        errno = failure->error;
        return -1;
    }
    return static_cast<std::intptr_t>(handle);
}

int _wfindnext64i32(std::intptr_t search, _wfinddata64i32_t *data) noexcept {
    if (data == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const auto handle = static_cast<std::uintptr_t>(search);
    if (const SearchResult failure = go_on(HandleKind::kCrtFind, handle, data)) {
        errno = failure->error;
        return -1;
    }
    return 0;
}

int _findclose(std::intptr_t search) noexcept {
    if (HandleTable::Instance().Close(HandleKind::kCrtFind, static_cast<std::uintptr_t>(search))) {
        return 0;
    }
    errno = EINVAL;
    return -1;
}
