#ifndef TESTS_SUPPORT_VERSION_IMAGE_H
#define TESTS_SUPPORT_VERSION_IMAGE_H

// Version blocks and PE files, made from bytes.

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ostrel/platform/types.h"

// A number of so many bytes, low ones first.
inline std::string number(std::uint64_t value, std::size_t bytes) {
    std::string text;
    for (; bytes > 0; --bytes, value >>= 8) {
        text += static_cast<char>(value & 0xFF);
    }
    return text;
}

inline std::string utf16(std::u16string_view text) {
    std::string bytes;
    for (const WCHAR unit : text) {
        bytes += number(unit, 2);
    }
    return bytes;
}

inline std::string padded(std::string bytes, std::size_t unit = 4) {
    bytes.resize((bytes.size() + unit - 1) / unit * unit);
    return bytes;
}

inline void patch(std::string *bytes, std::size_t offset, std::uint64_t value, std::size_t size) {
    bytes->replace(offset, size, number(value, size));
}

// A node of a version block. `value_length` is in the unit of the type.
inline std::string version_node(std::u16string_view name, WORD type, const std::string &value,
                                std::size_t value_length,
                                const std::vector<std::string> &children = {}) {
    std::string node = number(0, 2) + number(value_length, 2) + number(type, 2) + utf16(name);
    node += number(0, 2);
    if (!value.empty()) {
        node = padded(node) + value;
    }
    for (const std::string &child : children) {
        node = padded(node) + child;
    }
    patch(&node, 0, node.size(), 2);
    return node;
}

inline std::string version_text(std::u16string_view name, std::u16string text) {
    text += u'\0';
    return version_node(name, 1, utf16(text), text.size());
}

inline std::string version_texts(std::u16string_view digits,
                                 const std::vector<std::string> &texts) {
    return version_node(u"StringFileInfo", 1, "", 0, {version_node(digits, 1, "", 0, texts)});
}

// Pairs of a language in the high and a code page in the low 16 bits, as the digits have them.
inline std::string version_translations(const std::vector<DWORD> &pairs) {
    std::string value;
    for (const DWORD pair : pairs) {
        value += number(pair >> 16, 2) + number(pair, 2);
    }
    return version_node(u"VarFileInfo", 1, "", 0,
                        {version_node(u"Translation", 0, value, value.size())});
}

// The numbers, with the file version 5.1.2600.1106.
inline std::string version_numbers(DWORD ms = 0x00050001, DWORD ls = 0x0A280452) {
    return number(0xFEEF04BD, 4) + number(0x10000, 4) + number(ms, 4) + number(ls, 4) +
           number(ms, 4) + number(0, 4) + number(0x3F, 4) + std::string(24, '\0');
}

inline std::string version_block(const std::vector<std::string> &children,
                                 const std::string &numbers = version_numbers()) {
    return version_node(u"VS_VERSION_INFO", 0, numbers, numbers.size(), children);
}

// Where parts of a PE file of pe_image are.
inline constexpr std::size_t kPeHeader = 0x80, kPeResources = 0x400, kPeResourceAddress = 0x3000;

using PeLanguages = std::map<DWORD, std::string>;                   // the data by its language
using PeResources = std::map<DWORD, std::map<DWORD, PeLanguages>>;  // by type and name

// The tree of resources as a section's content.
inline std::string pe_resources(const PeResources &resources) {
    const auto table = [](std::size_t count) { return std::string(14, '\0') + number(count, 2); };
    std::string tables[3], entries, content;
    std::size_t sizes[3] = {16 + 8 * resources.size(), 0, 0}, count = 0;
    for (const auto &[type, names] : resources) {
        sizes[1] += 16 + 8 * names.size();
        for (const auto &[name, languages] : names) {
            sizes[2] += 16 + 8 * languages.size();
            count += languages.size();
        }
    }
    const std::size_t first_entry = sizes[0] + sizes[1] + sizes[2];
    const std::size_t first_data = first_entry + 16 * count;
    constexpr std::uint64_t kTable = 0x80000000;
    tables[0] = table(resources.size());
    for (const auto &[type, names] : resources) {
        tables[0] += number(type, 4) + number(kTable | (sizes[0] + tables[1].size()), 4);
        tables[1] += table(names.size());
        for (const auto &[name, languages] : names) {
            tables[1] +=
                number(name, 4) + number(kTable | (sizes[0] + sizes[1] + tables[2].size()), 4);
            tables[2] += table(languages.size());
            for (const auto &[language, bytes] : languages) {
                tables[2] += number(language, 4) + number(first_entry + entries.size(), 4);
                entries += number(kPeResourceAddress + first_data + content.size(), 4) +
                           number(bytes.size(), 4) + number(0, 8);
                content += padded(bytes);
            }
        }
    }
    return tables[0] + tables[1] + tables[2] + entries + content;
}

// A PE file of 32 or 64 bits with a section of code and one with `resources`.
inline std::string pe_image(int bits, const std::string &resources) {
    const bool is_wide = bits == 64;
    const std::size_t optional_size = is_wide ? 240 : 224;
    const std::string raw = padded(resources, 0x200);
    std::string optional = number(is_wide ? 0x20B : 0x10B, 2);
    optional.resize(optional_size - 16 * 8 - 4);
    optional += number(16, 4) + std::string(16, '\0') + number(kPeResourceAddress, 4) +
                number(resources.size(), 4);
    optional.resize(optional_size);
    const auto section = [](const char *name, std::size_t size, std::size_t address,
                            std::size_t raw_size, std::size_t offset) {
        return padded(name, 8) + number(size, 4) + number(address, 4) + number(raw_size, 4) +
               number(offset, 4) + std::string(16, '\0');
    };
    std::string image = "MZ";
    image.resize(0x3C);
    image += number(kPeHeader, 4);
    image.resize(kPeHeader);
    image += std::string("PE\0\0", 4) + number(is_wide ? 0x8664 : 0x14C, 2) + number(2, 2) +
             std::string(12, '\0') + number(optional_size, 2) + number(2, 2) + optional +
             section(".text", 0x10, 0x1000, 0x200, 0x200) +
             section(".rsrc", resources.size(), kPeResourceAddress, raw.size(), kPeResources);
    image.resize(kPeResources);
    return image + raw;
}

// A PE file with one version block.
inline std::string pe_version(const std::string &block, int bits = 64) {
    return pe_image(bits, pe_resources({{16, {{1, {{0x409, block}}}}}}));
}

using ElfNotes = std::vector<std::pair<std::string, std::string>>;  // names and contents

// An ELF file of 32 or 64 bits whose only segment holds notes.
inline std::string elf_image(const ElfNotes &notes, int bits = 64) {
    std::string content;
    for (const auto &[name, bytes] : notes) {
        content += number(name.size() + 1, 4) + number(bytes.size(), 4) + number(1, 4) +
                   padded(name + '\0') + padded(bytes);
    }
    const bool is_wide = bits == 64;
    const std::size_t word = is_wide ? 8 : 4, header = is_wide ? 64 : 52;
    const std::size_t segment = is_wide ? 56 : 32;
    // In 32 bits the flags of a segment come later.
    return std::string("\x7F") + "ELF" + (is_wide ? '\2' : '\1') + "\1\1" + std::string(9, '\0') +
           number(3, 2) + number(62, 2) + number(1, 4) + number(0, word) + number(header, word) +
           number(0, word) + number(0, 4) + number(header, 2) + number(segment, 2) + number(1, 2) +
           number(0, 6) + number(4, is_wide ? 8 : 4) + number(header + segment, word) +
           number(0, 2 * word) + number(content.size(), word) + number(content.size(), word) +
           number(0, is_wide ? 0 : 4) + number(4, word) + content;
}

#endif  // TESTS_SUPPORT_VERSION_IMAGE_H
