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
    std::string text(reinterpret_cast<const char *>(&value), sizeof value);
    text.resize(bytes);
    return text;
}

inline std::string words(const std::vector<DWORD> &values) {
    return {reinterpret_cast<const char *>(values.data()), 4 * values.size()};
}

inline std::string utf16(std::u16string_view text) {
    return {reinterpret_cast<const char *>(text.data()), 2 * text.size()};
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
    std::string node = number(value_length << 16, 4) + number(type, 2) + utf16(name) + number(0, 2);
    node = value.empty() ? node : padded(node) + value;
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
    return words({0xFEEF04BD, 0x10000, ms, ls, 0, 0, 0, 0, 0, 0, 0, 0, 0});
}

inline std::string version_block(const std::vector<std::string> &children,
                                 const std::string &numbers = version_numbers()) {
    return version_node(u"VS_VERSION_INFO", 0, numbers, numbers.size(), children);
}

// Where parts of a PE file are.
inline constexpr DWORD kPeHeader = 0x80, kPeResources = 0x400, kPeResourceAddress = 0x3000;

using PeBlocks = std::map<DWORD, std::string>;  // by their languages

// The tree of resources with version blocks, as a section's content.
inline std::string pe_resources(const PeBlocks &blocks) {
    const auto count = static_cast<DWORD>(blocks.size());
    std::string tables = words(
        {0, 0, 0, 1 << 16, 16, 0x80000018, 0, 0, 0, 1 << 16, 1, 0x80000030, 0, 0, 0, count << 16});
    const std::size_t first_entry = tables.size() + 8 * blocks.size();
    const std::size_t first_data = first_entry + 16 * blocks.size();
    std::string entries, content;
    for (const auto &[language, block] : blocks) {
        tables += number(language, 4) + number(first_entry + entries.size(), 4);
        entries += number(kPeResourceAddress + first_data + content.size(), 4) +
                   number(block.size(), 4) + number(0, 8);
        content += padded(block);
    }
    return tables + entries + content;
}

// A PE file of 32 or 64 bits with a section of code and one with version blocks.
inline std::string pe_version(const PeBlocks &blocks, int bits = 64) {
    const std::string content = padded(pe_resources(blocks), 0x200);
    const DWORD size = static_cast<DWORD>(content.size()), optional_size = bits == 64 ? 240 : 224;
    std::string image =
        padded(padded("MZ", 0x3C) + words({kPeHeader}), kPeHeader) +
        words({0x4550, 2 << 16, 0, 0, 0, optional_size, bits == 64 ? 0x20Bu : 0x10B});
    image.resize(kPeHeader + 24 + optional_size - 16 * 8 - 4);
    image += words({16, 0, 0, 0, 0, kPeResourceAddress});
    image.resize(kPeHeader + 24 + optional_size);
    image += words({0, 0, 0, 0x1000, 0x200, 0x200, 0, 0, 0, 0, 0, 0, 0, kPeResourceAddress, size,
                    kPeResources});
    return padded(image, kPeResources) + content;
}

inline std::string pe_version(const std::string &block, int bits = 64) {
    return pe_version(PeBlocks{{0x409, block}}, bits);
}

using ElfNotes = std::vector<std::pair<std::string, std::string>>;  // names and contents

// An ELF file of 32 or 64 bits whose only segment holds notes.
inline std::string elf_image(const ElfNotes &notes, int bits = 64) {
    std::string content;
    for (const auto &[name, bytes] : notes) {
        content += number(name.size() + 1, 4) + number(bytes.size(), 4) + number(1, 4) +
                   padded(name + '\0') + padded(bytes);
    }
    const std::size_t word = bits == 64 ? 8 : 4, header = bits == 64 ? 64 : 52;
    const std::size_t segment = bits == 64 ? 56 : 32;
    return padded(std::string("\x7F") + "ELF" + (bits == 64 ? '\2' : '\1') + "\1\1", 16) +
           number(3, 8 + word) + number(header, 2 * word + 4) + number(header | segment << 16, 4) +
           number(1, 8) + number(4, word) + number(header + segment, 3 * word) +
           number(content.size(), segment - 4 * word) + content;
}

#endif  // TESTS_SUPPORT_VERSION_IMAGE_H
