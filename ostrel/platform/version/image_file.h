#ifndef OSTREL_PLATFORM_VERSION_IMAGE_FILE_H
#define OSTREL_PLATFORM_VERSION_IMAGE_FILE_H

// Internal. Reads pieces of a module's file. A file that others cut meanwhile would end a process
// that maps it (SIGBUS), so the file is read, one page at a time.

#include <cstddef>
#include <cstdint>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// A place in a file.
struct Extent {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

// A regular file, open for reading.
//
//   ImageFile file;
//   if (const DWORD code = file.Open(name)) return code;
//   std::uint16_t magic;
//   if (!file.Read(0, &magic, sizeof magic)) return file.Error();
//
// Threads: one at a time.
class ImageFile {
public:
    // Opens the file of a module. Never waits for a FIFO or a device, and refuses both. Returns 0
    // or an error code (GetFileVersionInfoSizeW).
    DWORD Open(const WCHAR *name);

    // Reads all of `size` bytes. Offsets may lie anywhere. On failure returns false.
    bool Read(std::uint64_t offset, void *bytes, std::size_t size);

    // Why Read has failed: ERROR_BAD_FORMAT when the file ends before, or the code of an errno.
    DWORD Error() const { return m_error; }

private:
    // The unit of the host's cache: a call that reads a piece of one costs one page.
    static constexpr std::size_t kPage = 4096;

    int OpenRegular(const FileRef &file);
    bool ReadPage(std::uint64_t offset);

    HostDescriptor m_file;
    DWORD m_error = 0;
    std::uint64_t m_offset = 0;  // of the page, of which `m_size` bytes are there
    std::size_t m_size = 0;
    char m_page[kPage];
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_VERSION_IMAGE_FILE_H
