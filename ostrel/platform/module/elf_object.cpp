#include "ostrel/platform/module/elf_object.h"

#include <elf.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ostrel/platform/error.h"
#include "ostrel/platform/module/find_module.h"

// The layer's own ELF header, a symbol of the linker.
extern "C" __attribute__((visibility("hidden"))) const ElfW(Ehdr) __ehdr_start;

namespace ostrel_platform {
namespace {

constexpr std::uint64_t kMaxDynamic = 1 << 20;  // bytes of the table that names the libraries
constexpr std::uint64_t kMaxName = 256;         // bytes with the NUL

// An open file, read piece by piece: others may cut a mapped one short.
class ObjectFile {
public:
    ObjectFile(int file, std::uint64_t size) : m_file(file), m_size(size) {}

    bool Holds(std::uint64_t offset, std::uint64_t count) const {
        return count <= m_size && offset <= m_size - count;
    }

    // Reads `count` bytes. Returns false when the file does not hold them all.
    bool Read(std::uint64_t offset, void *bytes, std::uint64_t count) const {
        auto *next = static_cast<char *>(bytes);
        while (count > 0) {
            const ssize_t done =
                Holds(offset, count) ? pread(m_file, next, count, static_cast<off_t>(offset)) : 0;
            if (done == 0 || (done < 0 && errno != EINTR)) {
                return false;
            }
            const std::uint64_t taken = done > 0 ? static_cast<std::uint64_t>(done) : 0;
            next += taken;
            offset += taken;
            count -= taken;
        }
        return true;
    }

    std::uint64_t Size() const { return m_size; }

private:
    int m_file;
    std::uint64_t m_size;
};

bool is_native(const ElfW(Ehdr) & header) {
    const auto is_same = [&header](int index) {
        return header.e_ident[index] == __ehdr_start.e_ident[index];
    };
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && is_same(EI_CLASS) &&
           is_same(EI_DATA) && header.e_machine == __ehdr_start.e_machine &&
           header.e_type == ET_DYN && header.e_phentsize == sizeof(ElfW(Phdr));
}

using Segments = std::vector<ElfW(Phdr)>;

// Returns the file offset of a loaded address, or the file's size when no segment holds it.
std::uint64_t offset_of(const ObjectFile &file, const Segments &segments, std::uint64_t address) {
    for (const auto &segment : segments) {
        if (segment.p_type == PT_LOAD && address >= segment.p_vaddr &&
            address - segment.p_vaddr < segment.p_filesz) {
            return address - segment.p_vaddr + segment.p_offset;
        }
    }
    return file.Size();
}

// Reads the table of a dynamic segment, without what follows its DT_NULL.
std::vector<ElfW(Dyn)> read_dynamic(const ObjectFile &file, const Segments &segments) {
    const auto segment = std::find_if(segments.begin(), segments.end(),
                                      [](const auto &each) { return each.p_type == PT_DYNAMIC; });
    if (segment == segments.end() || segment->p_filesz > kMaxDynamic) {
        return {};
    }
    std::vector<ElfW(Dyn)> entries(segment->p_filesz / sizeof(ElfW(Dyn)));
    if (!file.Read(segment->p_offset, entries.data(), entries.size() * sizeof(ElfW(Dyn)))) {
        return {};
    }
    entries.erase(std::find_if(entries.begin(), entries.end(),
                               [](const auto &entry) { return entry.d_tag == DT_NULL; }),
                  entries.end());
    return entries;
}

std::vector<std::string> read_needed(const ObjectFile &file, const Segments &segments) {
    const std::vector<ElfW(Dyn)> entries = read_dynamic(file, segments);
    const auto texts = std::find_if(entries.begin(), entries.end(),
                                    [](const auto &entry) { return entry.d_tag == DT_STRTAB; });
    std::vector<std::string> needed;
    if (texts == entries.end()) {
        return needed;
    }
    const std::uint64_t base = offset_of(file, segments, texts->d_un.d_ptr);
    for (const auto &entry : entries) {
        const std::uint64_t room = file.Size() - base;
        if (entry.d_tag != DT_NEEDED || entry.d_un.d_val >= room) {
            continue;
        }
        const std::uint64_t count = std::min(kMaxName, room - entry.d_un.d_val);
        char name[kMaxName];
        if (file.Read(base + entry.d_un.d_val, name, count)) {
            const std::size_t size = strnlen(name, count);
            if (size > 0 && size < count) {
                needed.emplace_back(name, size);
            }
        }
    }
    return needed;
}

DWORD check_regular(const struct stat &facts) {
    return S_ISREG(facts.st_mode)   ? ERROR_SUCCESS
           : S_ISDIR(facts.st_mode) ? ERROR_ACCESS_DENIED
                                    : ERROR_BAD_EXE_FORMAT;
}

}  // namespace

DWORD open_module_file(const std::string &path, HostDescriptor *file, struct stat *facts) {
    if (stat(path.c_str(), facts) != 0) {
        return code_of_module_path(errno);
    }
    if (const DWORD code = check_regular(*facts)) {
        return code;
    }
    *file = open_host(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (!*file || fstat(file->Get(), facts) != 0) {
        return code_of_module_path(errno);
    }
    return check_regular(*facts);
}

DWORD read_object(int descriptor, std::uint64_t size, std::vector<std::string> *needed) {
    const ObjectFile file(descriptor, size);
    ElfW(Ehdr) header;
    if (!file.Read(0, &header, sizeof header) || !is_native(header)) {
        return ERROR_BAD_EXE_FORMAT;
    }
    Segments segments(header.e_phnum);
    const bool is_whole =
        file.Read(header.e_phoff, segments.data(), segments.size() * sizeof(ElfW(Phdr))) &&
        std::all_of(segments.begin(), segments.end(), [&file](const auto &segment) {
            return segment.p_type != PT_LOAD || file.Holds(segment.p_offset, segment.p_filesz);
        });
    if (!is_whole) {
        return ERROR_BAD_EXE_FORMAT;
    }
    if (needed != nullptr) {
        *needed = read_needed(file, segments);
    }
    return ERROR_SUCCESS;
}

}  // namespace ostrel_platform
