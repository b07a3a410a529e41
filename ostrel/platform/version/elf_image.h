#ifndef OSTREL_PLATFORM_VERSION_ELF_IMAGE_H
#define OSTREL_PLATFORM_VERSION_ELF_IMAGE_H

// Internal. Finds the version block in an ELF file: the content of a note. Linkers put notes near
// the beginning of a file, so that one read of a page finds the block, and keep them where they
// drop unused sections or symbols.

#include "ostrel/platform/version/image_file.h"

namespace ostrel_platform {

// Stores the place of the version block of an ELF file, of 32 or 64 bits and little-endian order.
// Looks at no more than 1000 notes. Returns 0 or an error code (GetFileVersionInfoSizeW).
DWORD find_in_elf(ImageFile *file, Extent *block);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_VERSION_ELF_IMAGE_H
