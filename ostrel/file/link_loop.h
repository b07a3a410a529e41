#ifndef OSTREL_FILE_LINK_LOOP_H
#define OSTREL_FILE_LINK_LOOP_H

// Internal. Which entries of a directory a walk may enter.

#include "ostrel/platform/file.h"
#include "ostrel/platform/types.h"

namespace NS_FileUtils::detail {

inline bool is_directory(DWORD attributes) noexcept {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

inline bool is_link(DWORD attributes) noexcept {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// Whether the directory at `path` is one that the path leads through, or that lies above it.
bool leads_back_up(const WCHAR *path);

// Whether a walk may enter the directory `path` with these attributes: anything but a link that
// leads back up, which would have no end.
inline bool may_enter(DWORD attributes, const WCHAR *path) {
    return !is_link(attributes) || !leads_back_up(path);
}

}  // namespace NS_FileUtils::detail

#endif  // OSTREL_FILE_LINK_LOOP_H
