#include "ostrel/platform/module/loader_cache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {
namespace {

// The format is that of glibc since 2.2 (sysdeps/generic/dl-cache.h): a header, an array of
// entries, and texts, whose offsets count from the header.
constexpr std::string_view kMagic = "glibc-ld.so.cache1.1";

struct Header {
    char magic[20];
    std::uint32_t entry_count;
    std::uint32_t text_size;
    std::uint32_t unused[5];
};

struct Entry {
    std::int32_t flags;
    std::uint32_t name;
    std::uint32_t path;
    std::uint32_t unused;
    std::uint64_t processor;  // not 0 for a library that only some processors can run
};

#if defined(__x86_64__) && defined(__LP64__)
constexpr std::int32_t kNativeFlags = 0x0303;
#elif defined(__aarch64__) && defined(__LP64__)
constexpr std::int32_t kNativeFlags = 0x0A03;
#else
constexpr std::int32_t kNativeFlags = 0x0003;
#endif

constexpr off_t kMaxSize = off_t{64} << 20;

std::string read_file(const char *path) {
    std::string bytes;
    struct stat facts;
    const HostDescriptor file = open_host(path, O_RDONLY | O_NONBLOCK);
    if (!file || fstat(file.Get(), &facts) != 0 || !S_ISREG(facts.st_mode) ||
        facts.st_size > kMaxSize) {
        return bytes;
    }
    bytes.resize(static_cast<std::size_t>(facts.st_size));
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t count = read(file.Get(), bytes.data() + done, bytes.size() - done);
        if (count == 0 || (count < 0 && errno != EINTR)) {
            break;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    bytes.resize(done);
    return bytes;
}

// Returns the text at an offset, or an empty one for an offset or a text beyond the end.
std::string_view text_at(std::string_view bytes, std::uint32_t offset) {
    const std::size_t end = bytes.find('\0', offset);
    return end == bytes.npos ? std::string_view() : bytes.substr(offset, end - offset);
}

}  // namespace

std::string find_in_loader_cache(const char *cache, std::string_view library) {
    const std::string bytes = read_file(cache);
    Header header;
    if (!bytes.starts_with(kMagic) || bytes.size() < sizeof header) {
        return {};
    }
    std::memcpy(&header, bytes.data(), sizeof header);
    const std::size_t room = (bytes.size() - sizeof header) / sizeof(Entry);
    for (std::size_t i = 0; i < header.entry_count && i < room; ++i) {
        Entry entry;
        std::memcpy(&entry, bytes.data() + sizeof header + i * sizeof entry, sizeof entry);
        const bool is_native = entry.flags == kNativeFlags && entry.processor == 0;
        if (is_native && text_at(bytes, entry.name) == library) {
            return std::string(text_at(bytes, entry.path));
        }
    }
    return {};
}

}  // namespace ostrel_platform
