#ifndef OSTREL_PLATFORM_FIND_H
#define OSTREL_PLATFORM_FIND_H

// Searches in directories. Paths, names, attributes and links are told in file.h.
//
// A search takes a path whose last component may be a pattern: '*' is any run of characters, also
// none; '?' one character, at a dot or at the end of a name also none. "*.*" is "*", "*." matches
// names without a dot, "name.*" matches "name" too, any other dot at the end of a pattern is
// ignored. Letters match without regard to case, A-Z only. In the folders before the last component
// '*' and '?' are plain characters. There are no short names.
//
// A pattern with a '*' or a '?' matches "." and ".." like other names (they have an empty
// extension), except in the root of a drive; they come first. Other names come in the order of the
// host. A path without a pattern finds that one file, as it is spelled; so does a pattern that is
// the very name of a file, when no other file matches it before.
//
// Entries that come or go while a search is open may be found or not; no other is missed or found
// twice. An entry that goes between being found and having its facts read is left out.
//
// Threads: a search belongs to one thread at a time.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <io.h>

#else

#include <cstddef>
#include <cstdint>

// What a search finds. The name has no folder. Size is 0 for a directory.
struct WIN32_FIND_DATAW {
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh;
    DWORD nFileSizeLow;
    DWORD dwReserved0;  // 0
    DWORD dwReserved1;  // 0
    WCHAR cFileName[260];
    WCHAR cAlternateFileName[14];  // empty
};

// Begins a search and gives its first entry. Result: the search, for FindClose;
// INVALID_HANDLE_VALUE on failure, with `*data` as it was and the last error ERROR_FILE_NOT_FOUND
// (nothing matches, or the path ends in a separator), ERROR_PATH_NOT_FOUND (the folder is missing;
// an empty or null path; a drive that does not exist), ERROR_DIRECTORY (the folder is a file),
// ERROR_FILENAME_EXCED_RANGE, ERROR_NOACCESS (null `data`), or what the host's refusal becomes.
OSTREL_PLATFORM_API HANDLE FindFirstFileW(const WCHAR *path, WIN32_FIND_DATAW *data) noexcept;

// The same with a choice. `level` is FindExInfoStandard or FindExInfoBasic, which are one here.
// FindExSearchLimitToDirectories asks for directories only, "." and ".." among them: what the
// host's listing tells to be something else is left out without being looked at; the caller still
// has to look at the attributes, as everywhere. `filter` must be null, `flags` 0: otherwise
// ERROR_INVALID_PARAMETER.
enum FINDEX_INFO_LEVELS { FindExInfoStandard, FindExInfoBasic };
enum FINDEX_SEARCH_OPS { FindExSearchNameMatch, FindExSearchLimitToDirectories };
OSTREL_PLATFORM_API HANDLE FindFirstFileExW(const WCHAR *path, FINDEX_INFO_LEVELS level,
                                            LPVOID data, FINDEX_SEARCH_OPS operation, LPVOID filter,
                                            DWORD flags) noexcept;

// The next entry. Result: FALSE, with `*data` as it was and the last error ERROR_NO_MORE_FILES at
// the end, ERROR_INVALID_HANDLE, ERROR_NOACCESS, or what the host's refusal becomes.
OSTREL_PLATFORM_API BOOL FindNextFileW(HANDLE search, WIN32_FIND_DATAW *data) noexcept;

// Ends a search of FindFirstFileW. Result: TRUE, or FALSE with the last error ERROR_INVALID_HANDLE
// for a value that is no open search.
OSTREL_PLATFORM_API BOOL FindClose(HANDLE search) noexcept;

// The runtime's form: times in seconds since 1970-01-01 00:00:00 UTC, rounded down, the low 32 bits
// of the size, attributes as above without FILE_ATTRIBUTE_NORMAL.
struct _wfinddata64i32_t {
    std::uint32_t attrib;
    std::int64_t time_create;
    std::int64_t time_access;
    std::int64_t time_write;
    std::uint32_t size;
    WCHAR name[260];
};

// Result: the search, for _findclose; -1 on failure, with `*data` as it was and errno ENOENT
// (nothing matches, the folder is missing or none, or the drive), EINVAL (null arguments),
// ENAMETOOLONG (more than 259 characters), or what the host gives.
OSTREL_PLATFORM_API std::intptr_t _wfindfirst64i32(const WCHAR *path,
                                                   _wfinddata64i32_t *data) noexcept;

// Result: 0; -1, with `*data` as it was and errno ENOENT at the end, EINVAL for a value that is no
// open search, or what the host gives.
OSTREL_PLATFORM_API int _wfindnext64i32(std::intptr_t search, _wfinddata64i32_t *data) noexcept;

// Ends a search of the runtime's family. Result: 0, or -1 with errno EINVAL for a value that is no
// open search.
OSTREL_PLATFORM_API int _findclose(std::intptr_t search) noexcept;

#endif

#endif  // OSTREL_PLATFORM_FIND_H
