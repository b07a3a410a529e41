#ifndef OSTREL_PLATFORM_MODULE_ELF_OBJECT_H
#define OSTREL_PLATFORM_MODULE_ELF_OBJECT_H

// Internal. What the layer reads of an ELF object before the host's loader sees it. The loader
// waits for the writer of a FIFO, and maps a file that is cut short, so that touching what is
// missing raises SIGBUS. The format is that of the System V ABI, "Object Files".

#include <sys/stat.h>

#include <string>
#include <vector>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Opens a regular file for reading and stores its facts. Opens no other kind of file, not even for
// a moment, unless somebody replaces the file during the call. Returns 0 or an error code.
DWORD open_module_file(const std::string &path, HostDescriptor *file, struct stat *facts);

// Checks that an open file of `size` bytes is a whole shared object of the process's class, byte
// order and machine. Stores the names of the libraries that the object needs (DT_NEEDED) unless
// `needed` is null. Returns 0 or ERROR_BAD_EXE_FORMAT.
DWORD read_object(int file, std::uint64_t size, std::vector<std::string> *needed);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_MODULE_ELF_OBJECT_H
