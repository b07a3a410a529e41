#ifndef OSTREL_FILE_LINK_LOOP_H
#define OSTREL_FILE_LINK_LOOP_H

// Internal. Decides which subdirectories a walk may enter, so that links cannot make it endless.

#include "ostrel/platform/file.h"
#include "ostrel/platform/types.h"

namespace NS_FileUtils::detail {

inline bool is_directory(DWORD attributes) noexcept {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

inline bool is_link(DWORD attributes) noexcept {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// Returns true when the directory at `path` is one of those that the path leads through, or, for a
// path that begins at the current directory, that directory or one above it. Throws std::bad_alloc.
bool leads_back_up(const WCHAR *path);

// Returns true when a walk may enter the directory `path`, which has these attributes: any
// directory but a link that leads back up. Throws std::bad_alloc.
inline bool may_enter(DWORD attributes, const WCHAR *path) {
    return !is_link(attributes) || !leads_back_up(path);
}

}  // namespace NS_FileUtils::detail

#endif  // OSTREL_FILE_LINK_LOOP_H
