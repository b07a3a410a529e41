// Any bytes as the loader's cache: what is found is a text of the file.

#include <sys/mman.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/check.h"
#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/module/loader_cache.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    const ostrel_platform::HostDescriptor file(memfd_create("cache", MFD_CLOEXEC));
    check(ostrel_platform::write_all(file.Get(), bytes.data(), size) == 0);
    const std::string name = "/proc/self/fd/" + std::to_string(file.Get());
    const std::string path = ostrel_platform::find_in_loader_cache(name.c_str(), "a.so");
    check(bytes.find(path) != bytes.npos);
    return 0;
}
