#ifndef OSTREL_PLATFORM_VERSION_PE_IMAGE_H
#define OSTREL_PLATFORM_VERSION_PE_IMAGE_H

// Internal. Finds the version block in a PE file, by Microsoft's "PE Format": headers, section
// table, and the tree of resources by type, name and language.

#include "ostrel/platform/version/image_file.h"

namespace ostrel_platform {

// Stores the place of the version block of a PE file. Each number of the file is checked before it
// is used, and the tree has three levels whatever the file says. Returns 0 or an error code
// (GetFileVersionInfoSizeW).
DWORD find_in_pe(ImageFile *file, Extent *block);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_VERSION_PE_IMAGE_H
