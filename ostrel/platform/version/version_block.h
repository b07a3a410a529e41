#ifndef OSTREL_PLATFORM_VERSION_VERSION_BLOCK_H
#define OSTREL_PLATFORM_VERSION_VERSION_BLOCK_H

// Internal. The tree of a version block, by Microsoft's "VS_VERSIONINFO structure". Nodes lie at
// multiples of 4 from the beginning of the block:
//
//   WORD    length of the node in bytes, with its children, without the padding behind it
//   WORD    length of the value, in characters for a text, else in bytes; linkers differ
//   WORD    1 for a text, 0 for bytes
//   char16  the name, with its NUL; then padding, the value, padding, the children

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// The largest block, because a node's length has 16 bits, and the smallest: a root without a value.
inline constexpr std::size_t kMaxVersionBlock = 0xFFFF;
inline constexpr std::size_t kMinVersionBlock = 40;

// The value of a node. `offset` is that of the value in the block.
struct VersionValue {
    std::size_t offset;
    std::size_t length;  // of a text in characters, with its NUL; else in bytes
};

// Returns the length that a block has in its first two bytes.
std::size_t length_of_version_block(const char *block);
void set_length_of_version_block(std::size_t length, char *block);

// Whether `block` begins like a version block, with the name VS_VERSION_INFO.
bool is_version_block(std::string_view block);

// Finds a value by the path that VerQueryValueW takes. The length of the root is that of `block`,
// whatever the root says. Returns 0 or an error code (VerQueryValueW).
DWORD find_version_value(std::string_view block, std::u16string_view path, VersionValue *value);

// Gives each text below StringFileInfo that lacks its NUL one. May make the block longer, up to
// kMaxVersionBlock: texts for which no room is left stay as they are. Stores the length of the
// block in its first two bytes.
void terminate_version_texts(std::string *block);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_VERSION_VERSION_BLOCK_H
