#ifndef OSTREL_PLATFORM_FILE_NO_ATTRIBUTE_CACHE_H
#define OSTREL_PLATFORM_FILE_NO_ATTRIBUTE_CACHE_H

// Internal. Files that were seen to keep none of the layer's attributes: most do not, and to ask
// each time would double the host's calls of a search.
//
// Whoever changes a file's extended attributes changes its ctime, which nobody can set. So what was
// seen of a file holds for as long as device, inode and ctime are the same, on file systems that
// are known to keep to this, and once the ctime has aged by more than its step: a change within the
// same step would not show.
//
// A file is remembered by 64 bits that device, inode and ctime are mixed into, in a table of fixed
// size; a later one with the same place takes it over. Any thread.

#include <sys/stat.h>

#include "ostrel/platform/file/stored_attributes.h"

namespace ostrel_platform {

bool is_known_without_attributes(const struct statx &file) noexcept;

// `file` was asked before its attributes were. Both must have been of one file: `place` is an open
// file, or a name in an open directory that is no link, which cannot lead to another file without a
// change of the first one's ctime. Other places are not noted.
void remember_without_attributes(const struct statx &file, const FileRef &ref) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_NO_ATTRIBUTE_CACHE_H
