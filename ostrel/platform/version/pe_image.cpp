#include "ostrel/platform/version/pe_image.h"

#include <limits>
#include <string_view>

#include "ostrel/platform/error.h"

namespace ostrel_platform {
namespace {

constexpr WORD kMagic32 = 0x10B, kMagic64 = 0x20B;  // of the optional header
constexpr DWORD kVersionType = 16, kVersionName = 1;
constexpr DWORD kTableBit = 0x80000000;  // of an entry's offset: another table, no data

struct CoffHeader {
    char signature[4];
    WORD machine, section_count;
    DWORD time, symbols, symbol_count;
    WORD optional_size, characteristics;
};

struct DataDirectory {
    DWORD address, size;
};

struct Section {
    char name[8];
    DWORD virtual_size, address, raw_size, raw_offset, other[4];
};

struct ResourceTable {
    DWORD characteristics, time;
    WORD major, minor, named_count, id_count;
};

struct ResourceEntry {
    DWORD id, offset;
};

struct ResourceData {
    DWORD address, size, code_page, reserved;
};

static_assert(sizeof(CoffHeader) == 24 && sizeof(Section) == 40 && sizeof(ResourceTable) == 16);

constexpr int kUnwanted = std::numeric_limits<int>::max();

int rank_of_type(DWORD type) {
    return type == kVersionType ? 0 : kUnwanted;
}

int rank_of_name(DWORD name) {
    return name == kVersionName ? 0 : kUnwanted;
}

int rank_of_language(DWORD language) {
    constexpr DWORD kNeutral = 0, kInvariant = 0x7F, kUsEnglish = 0x409, kEnglish = 9;
    constexpr DWORD kPrimary = 0x3FF;  // the bits of a language without its region
    return language == kNeutral                ? 0
           : language == kInvariant            ? 1
           : language == kUsEnglish            ? 2
           : (language & kPrimary) == kEnglish ? 3
                                               : 4;
}

// A level of the tree of resources: which number is wanted, the lowest rank first, and the code
// when there is none.
struct Level {
    int (*rank)(DWORD id);
    DWORD missing;
    bool leads_to_table;
};

constexpr Level kLevels[] = {{rank_of_type, ERROR_RESOURCE_TYPE_NOT_FOUND, true},
                             {rank_of_name, ERROR_RESOURCE_NAME_NOT_FOUND, true},
                             {rank_of_language, ERROR_RESOURCE_LANG_NOT_FOUND, false}};

class PeImage {
public:
    explicit PeImage(ImageFile *file) : m_file(*file) {}

    DWORD FindBlock(Extent *block) {
        DWORD code = ReadHeaders();
        if (code == ERROR_SUCCESS) {
            code = FindSection(m_resources.address);
        }
        DWORD offset = 0;  // in the resources
        for (const Level &level : kLevels) {
            if (code == ERROR_SUCCESS) {
                code = FindEntry(level, &offset);
            }
        }
        ResourceData data;
        if (code == ERROR_SUCCESS) {
            code = ReadResources(offset, &data);
        }
        if (code == ERROR_SUCCESS) {
            code = FindSection(data.address);
        }
        if (code != ERROR_SUCCESS) {
            return code;
        }
        block->size = data.size;
        return Locate(data.address, data.size, &block->offset);
    }

private:
    template <class Value>
    DWORD Read(std::uint64_t offset, Value *value) {
        return m_file.Read(offset, value, sizeof *value) ? ERROR_SUCCESS : m_file.Error();
    }

    DWORD ReadHeaders() {
        constexpr std::uint64_t kHeaderPointer = 0x3C;
        DWORD header = 0;
        CoffHeader coff;
        DWORD code = Read(kHeaderPointer, &header);
        if (code == ERROR_SUCCESS) {
            code = Read(header, &coff);
        }
        if (code != ERROR_SUCCESS) {
            return code;
        }
        if (std::string_view(coff.signature, sizeof coff.signature) !=
            std::string_view("PE\0\0", 4)) {
            return ERROR_BAD_EXE_FORMAT;
        }
        const std::uint64_t optional = std::uint64_t{header} + sizeof coff;
        m_sectionTable = optional + coff.optional_size;
        m_sectionCount = coff.section_count;
        return ReadDirectory(optional, coff.optional_size);
    }

    // Reads where the resources are from the optional header.
    DWORD ReadDirectory(std::uint64_t optional, std::uint64_t size) {
        WORD magic = 0;
        if (const DWORD code = Read(optional, &magic)) {
            return code;
        }
        if (magic != kMagic32 && magic != kMagic64) {
            return ERROR_BAD_EXE_FORMAT;
        }
        constexpr DWORD kResources = 2;  // the number of the directory
        const std::uint64_t directories = magic == kMagic64 ? 112 : 96;
        DWORD count = 0;
        DWORD code = Read(optional + directories - sizeof count, &count);
        const std::uint64_t resources = directories + kResources * sizeof m_resources;
        if (code == ERROR_SUCCESS && count > kResources && resources + sizeof m_resources <= size) {
            code = Read(optional + resources, &m_resources);
        }
        return code == ERROR_SUCCESS && m_resources.address == 0 ? ERROR_RESOURCE_DATA_NOT_FOUND
                                                                 : code;
    }

    // Replaces the offset of a table by that of its best entry.
    DWORD FindEntry(const Level &level, DWORD *offset) {
        ResourceTable table;
        if (const DWORD code = ReadResources(*offset, &table)) {
            return code;
        }
        int best = kUnwanted;
        ResourceEntry chosen = {};
        std::uint64_t at = std::uint64_t{*offset} + sizeof table +
                           std::uint64_t{table.named_count} * sizeof chosen;
        for (DWORD i = 0; i < table.id_count && best > 0; ++i, at += sizeof chosen) {
            ResourceEntry entry;
            if (const DWORD code = ReadResources(at, &entry)) {
                return code;
            }
            if (level.rank(entry.id) < best) {
                best = level.rank(entry.id);
                chosen = entry;
            }
        }
        if (best == kUnwanted) {
            return level.missing;
        }
        *offset = chosen.offset & ~kTableBit;
        const bool is_table = (chosen.offset & kTableBit) != 0;
        return is_table == level.leads_to_table ? ERROR_SUCCESS : ERROR_BAD_FORMAT;
    }

    // The tree lies in the section in which it begins: a search for the section of each entry
    // would take hours in a file that is made for it.
    template <class Value>
    DWORD ReadResources(std::uint64_t offset, Value *value) {
        std::uint64_t place = 0;
        const DWORD code = Locate(m_resources.address + offset, sizeof *value, &place);
        return code == ERROR_SUCCESS ? Read(place, value) : code;
    }

    // Reads the section whose part of the file holds an address of the loaded image.
    DWORD FindSection(std::uint64_t address) {
        for (DWORD i = 0; !IsIn(m_section, address); ++i) {
            if (i == m_sectionCount) {
                return ERROR_BAD_FORMAT;
            }
            if (const DWORD code = Read(m_sectionTable + i * sizeof m_section, &m_section)) {
                return code;
            }
        }
        return ERROR_SUCCESS;
    }

    // Stores the place in the file of what lies at an address, all of it in the section that
    // FindSection has read. Returns 0 or an error code.
    DWORD Locate(std::uint64_t address, std::uint64_t size, std::uint64_t *place) const {
        const std::uint64_t begin = address - m_section.address;
        *place = m_section.raw_offset + begin;
        return IsIn(m_section, address) && size <= m_section.raw_size - begin ? ERROR_SUCCESS
                                                                              : ERROR_BAD_FORMAT;
    }

    static bool IsIn(const Section &section, std::uint64_t address) {
        return address >= section.address && address - section.address < section.raw_size;
    }

    ImageFile &m_file;
    std::uint64_t m_sectionTable = 0;
    WORD m_sectionCount = 0;
    DataDirectory m_resources = {};
    Section m_section = {};  // the last one that was read
};

}  // namespace

DWORD find_in_pe(ImageFile *file, Extent *block) {
    return PeImage(file).FindBlock(block);
}

}  // namespace ostrel_platform
