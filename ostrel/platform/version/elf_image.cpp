#include "ostrel/platform/version/elf_image.h"

#include <elf.h>

#include <algorithm>
#include <cstring>

#include "ostrel/platform/error.h"

namespace ostrel_platform {
namespace {

// The note that cmake/OstrelVersionResource.cmake writes.
constexpr char kNoteName[] = "Ostrel";
constexpr Elf64_Word kNoteType = 1;

// A file may hold any number of notes without content; programs have a handful.
constexpr int kMaxNotes = 1000;

template <class Header, class Segment>
class ElfImage {
public:
    explicit ElfImage(ImageFile *file) : m_file(*file) {}

    DWORD FindBlock(Extent *block) {
        Header header;
        if (!m_file.Read(0, &header, sizeof header)) {
            return m_file.Error();
        }
        if (header.e_type != ET_EXEC && header.e_type != ET_DYN) {
            return ERROR_RESOURCE_DATA_NOT_FOUND;
        }
        DWORD code = ERROR_RESOURCE_DATA_NOT_FOUND;
        for (DWORD i = 0; i < header.e_phnum && code == ERROR_RESOURCE_DATA_NOT_FOUND; ++i) {
            Segment segment;
            if (!m_file.Read(header.e_phoff + std::uint64_t{i} * header.e_phentsize, &segment,
                             sizeof segment)) {
                return m_file.Error();
            }
            if (segment.p_type == PT_NOTE) {
                code = FindNote(segment.p_offset, segment.p_filesz, segment.p_align, block);
            }
        }
        return code;
    }

private:
    // Looks for the note in a segment.
    DWORD FindNote(std::uint64_t at, std::uint64_t size, std::uint64_t align, Extent *block) {
        constexpr std::uint64_t kWord = 4, kDoubleWord = 8;
        const std::uint64_t unit = align == kDoubleWord ? kDoubleWord : kWord;
        const auto padded = [unit](std::uint64_t length) {
            return (length + unit - 1) / unit * unit;
        };
        Elf64_Nhdr note;  // the same for 32 bits
        while (size >= sizeof note && m_notes < kMaxNotes) {
            ++m_notes;
            char name[sizeof kNoteName];
            if (!m_file.Read(at, &note, sizeof note)) {
                return m_file.Error();
            }
            const std::uint64_t content = padded(sizeof note + note.n_namesz);
            const std::uint64_t length = content + padded(note.n_descsz);
            if (content + note.n_descsz > size) {
                return ERROR_BAD_FORMAT;
            }
            if (note.n_type == kNoteType && note.n_namesz == sizeof name) {
                if (!m_file.Read(at + sizeof note, name, sizeof name)) {
                    return m_file.Error();
                }
                if (std::memcmp(name, kNoteName, sizeof name) == 0) {
                    *block = {at + content, note.n_descsz};
                    return ERROR_SUCCESS;
                }
            }
            at += length;
            size -= std::min(length, size);
        }
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    }

    ImageFile &m_file;
    int m_notes = 0;
};

}  // namespace

DWORD find_in_elf(ImageFile *file, Extent *block) {
    unsigned char identity[EI_NIDENT];
    if (!file->Read(0, identity, sizeof identity)) {
        return file->Error();
    }
    if (identity[EI_DATA] != ELFDATA2LSB) {
        return ERROR_RESOURCE_DATA_NOT_FOUND;
    }
    return identity[EI_CLASS] == ELFCLASS64
               ? ElfImage<Elf64_Ehdr, Elf64_Phdr>(file).FindBlock(block)
               : ElfImage<Elf32_Ehdr, Elf32_Phdr>(file).FindBlock(block);
}

}  // namespace ostrel_platform
