#ifndef OSTREL_PLATFORM_FIND_H
#define OSTREL_PLATFORM_FIND_H

// Searches in directories. Paths, names, attributes, links, path errors and host errors are
// described in file.h.
//
//   WIN32_FIND_DATAW data;
//   const HANDLE search = FindFirstFileW(TEXT("C:\\srv\\*.txt"), &data);
//   for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileW(search, &data)) {
//       add(data.cFileName);
//   }
//   FindClose(search);
//
// Implemented with getdents64 for the names and statx for the facts.
//
// Patterns. The last component of a path is a pattern if it holds a '*' or a '?'. '*' matches any
// run of characters, also none. '?' matches one character; at a dot and at the end of a name also
// none. "*.*" is "*", "*." matches the names without a dot, "name.*" matches "name" too, and any
// other dot at the end of a pattern is ignored. Letters match without regard to the case of A to Z.
// In the directories before the last component '*' and '?' are ordinary characters. There are no
// short names.
//
// What a search finds. A pattern matches "." and ".." like other names, and the search finds these
// two first; "*." matches both. In the root of a drive there is no "." and no "..". The other names
// come in the host's order. A path without a pattern finds that one file, by its exact spelling. A
// pattern that matches no entry finds the file whose name the pattern spells exactly, if there is
// one.
//
// An entry that others create or remove while a search is open may be found or not. The search
// finds every other entry once. The search skips an entry that disappears before its facts are
// read.
//
// Threads: any. Calls on one search run one after the other, so each entry goes to one caller.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <io.h>

#else

#include <cstddef>
#include <cstdint>

// One entry. `cFileName` is the name alone, without its directory. The size is 0 for a directory.
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

// Begins a search and stores its first entry in `*data`. Returns the search, which the caller
// closes with FindClose. On failure returns INVALID_HANDLE_VALUE, leaves `*data` as it is and sets
// the last error:
//   ERROR_FILE_NOT_FOUND  nothing matches, or `path` ends in a separator or is a drive alone
//   ERROR_PATH_NOT_FOUND  the searched directory is missing, or a directory on the way to it is
//                         missing or is a file
//   ERROR_DIRECTORY       the searched directory is a file
//   ERROR_NOACCESS        `data` is null
// or another path error or a host error.
OSTREL_PLATFORM_API HANDLE FindFirstFileW(const WCHAR *path, WIN32_FIND_DATAW *data) noexcept;

// Begins a search like FindFirstFileW; `data` points to a WIN32_FIND_DATAW. `level` is
// FindExInfoStandard or FindExInfoBasic, which give the same here. `filter` must be null and
// `flags` 0.
//
// With FindExSearchLimitToDirectories the search of a pattern skips entries that the host's listing
// marks as neither a directory nor a link, without asking for their facts. The search may still
// find other entries than directories, so check the attributes.
//
// Returns and fails like FindFirstFileW. Other arguments give ERROR_INVALID_PARAMETER.
enum FINDEX_INFO_LEVELS { FindExInfoStandard, FindExInfoBasic };
enum FINDEX_SEARCH_OPS { FindExSearchNameMatch, FindExSearchLimitToDirectories };
OSTREL_PLATFORM_API HANDLE FindFirstFileExW(const WCHAR *path, FINDEX_INFO_LEVELS level,
                                            LPVOID data, FINDEX_SEARCH_OPS operation, LPVOID filter,
                                            DWORD flags) noexcept;

// Stores the next entry in `*data`. Returns TRUE. On failure returns FALSE, leaves `*data` as it is
// and sets the last error:
//   ERROR_NO_MORE_FILES   there is no further entry
//   ERROR_INVALID_HANDLE  `search` is no open search of FindFirstFileW or FindFirstFileExW
//   ERROR_NOACCESS        `data` is null
// or a host error.
OSTREL_PLATFORM_API BOOL FindNextFileW(HANDLE search, WIN32_FIND_DATAW *data) noexcept;

// Closes a search of FindFirstFileW or FindFirstFileExW. Returns TRUE. For any other value has no
// effect, returns FALSE and sets the last error to ERROR_INVALID_HANDLE.
OSTREL_PLATFORM_API BOOL FindClose(HANDLE search) noexcept;

// One entry in the runtime's form. Times are seconds since 1970-01-01 00:00:00 UTC, rounded down.
// `attrib` has the same bits as above without FILE_ATTRIBUTE_NORMAL. `size` is the low 32 bits.
struct _wfinddata64i32_t {
    std::uint32_t attrib;
    std::int64_t time_create;
    std::int64_t time_access;
    std::int64_t time_write;
    std::uint32_t size;
    WCHAR name[260];
};

// Begins a search like FindFirstFileW. Returns the search, which the caller closes with _findclose.
// On failure returns -1, leaves `*data` as it is and sets errno to ENOENT (nothing matches; `path`
// is empty or ends in a separator; the directory is missing or is a file; the drive does not
// exist), to EINVAL (a null argument), to ENAMETOOLONG (`path` has more than 259 characters), or to
// another errno of the host.
OSTREL_PLATFORM_API std::intptr_t _wfindfirst64i32(const WCHAR *path,
                                                   _wfinddata64i32_t *data) noexcept;

// Stores the next entry in `*data`. Returns 0. On failure returns -1, leaves `*data` as it is and
// sets errno to ENOENT when there is no further entry, to EINVAL when `search` is no open search of
// _wfindfirst64i32 or `data` is null, or to the errno of the host.
OSTREL_PLATFORM_API int _wfindnext64i32(std::intptr_t search, _wfinddata64i32_t *data) noexcept;

// Closes a search of _wfindfirst64i32. Returns 0. For any other value has no effect, returns -1 and
// sets errno to EINVAL.
OSTREL_PLATFORM_API int _findclose(std::intptr_t search) noexcept;

#endif

#endif  // OSTREL_PLATFORM_FIND_H
