// Any bytes as an ELF object: what is read of it lies within the file, and names are names.

#include <sys/mman.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "ostrel/platform/module/elf_object.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const ostrel_platform::HostDescriptor file(memfd_create("object", MFD_CLOEXEC));
    check(ostrel_platform::write_all(file.Get(), reinterpret_cast<const char *>(data), size) == 0);
    std::vector<std::string> needed;
    if (ostrel_platform::read_object(file.Get(), size, &needed) == 0) {
        check(size >= 64);
        for (const std::string &name : needed) {
            check(!name.empty() && name.size() < 256 && name.find('\0') == name.npos);
        }
    }
    return 0;
}
