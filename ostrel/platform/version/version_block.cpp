#include "ostrel/platform/version/version_block.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/version.h"

namespace ostrel_platform {
namespace {

constexpr std::size_t kUnit = sizeof(WCHAR);
constexpr std::size_t kNodeHeader = 3 * sizeof(WORD);
constexpr DWORD kSignature = 0xFEEF04BD;

constexpr std::u16string_view kRootName = u"VS_VERSION_INFO";
constexpr std::u16string_view kTexts = u"StringFileInfo", kBytes = u"VarFileInfo";

std::size_t aligned(std::size_t offset) {
    return (offset + 3) / 4 * 4;
}

// Reads a number of 16 bits; `offset` + 2 is within the block.
WORD word_at(std::string_view block, std::size_t offset) {
    return static_cast<WORD>(static_cast<unsigned char>(block[offset]) |
                             static_cast<unsigned char>(block[offset + 1]) << 8);
}

void set_word(std::size_t number, char *bytes) {
    bytes[0] = static_cast<char>(number & 0xFF);
    bytes[1] = static_cast<char>(number >> 8 & 0xFF);
}

// A range of offsets in a block.
struct Range {
    std::size_t begin, end;
};

// A node. All offsets are within the block, and of the node's container but for the padding.
struct Node {
    std::size_t begin, end;
    std::size_t name_end;  // the offset of the name's NUL
    std::size_t value;     // behind the padding; `end` when the node ends before
    std::size_t value_length;
    bool is_text;
};

// Returns the offset of the first NUL character at or behind an offset, or `end`.
std::size_t find_nul(std::string_view block, Range range) {
    for (std::size_t at = range.begin; at + kUnit <= range.end; at += kUnit) {
        if (word_at(block, at) == 0) {
            return at;
        }
    }
    return range.end;
}

// Reads the node at the beginning of a range. Ends a node that is longer at the end of the range.
std::optional<Node> node_in(std::string_view block, Range range) {
    if (range.end < range.begin + kNodeHeader) {
        return std::nullopt;
    }
    Node node = {};
    node.begin = range.begin;
    node.end = std::min(node.begin + word_at(block, node.begin), range.end);
    node.value_length = word_at(block, node.begin + sizeof(WORD));
    node.is_text = word_at(block, node.begin + 2 * sizeof(WORD)) != 0;
    node.name_end = find_nul(block, {node.begin + kNodeHeader, node.end});
    if (node.name_end >= node.end) {
        return std::nullopt;  // also for a node that is shorter than its header
    }
    node.value = std::min(aligned(node.name_end + kUnit), node.end);
    return node;
}

bool has_name(std::string_view block, const Node &node, std::u16string_view name) {
    std::size_t at = node.begin + kNodeHeader;
    return node.name_end - at == name.size() * kUnit &&
           std::all_of(name.begin(), name.end(), [&](WCHAR unit) {
               const WCHAR own = word_at(block, at);
               at += kUnit;
               return to_upper(own) == to_upper(unit);
           });
}

// The children of a node. The value's length is in characters or bytes, as the type says.
Range children_of(const Node &node) {
    const std::size_t length = node.value_length * (node.is_text ? kUnit : 1);
    return {std::min(aligned(node.value + length), node.end), node.end};
}

// Calls take(node) for each node in a range, until `take` returns false.
template <class Take>
void for_each_node(std::string_view block, Range range, Take take) {
    while (const std::optional<Node> node = node_in(block, range)) {
        if (!take(*node)) {
            break;
        }
        range.begin = std::min(aligned(node->end), range.end);
    }
}

std::optional<Node> find_child(std::string_view block, const Node &parent,
                               std::u16string_view name) {
    std::optional<Node> found;
    for_each_node(block, children_of(parent), [&](const Node &node) {
        if (has_name(block, node, name)) {
            found = node;
        }
        return !found;
    });
    return found;
}

// Takes the first name from a path.
std::u16string_view take_name(std::u16string_view *path) {
    path->remove_prefix(std::min(path->find_first_not_of(u'\\'), path->size()));
    const std::u16string_view name = path->substr(0, path->find(u'\\'));
    path->remove_prefix(name.size());
    return name;
}

// Where the text of a node begins, at an even offset: the value of a node that ends before is at
// its end, which may be odd.
std::size_t text_of(const Node &node) {
    return node.value / kUnit * kUnit;
}

// The text of a node. Its NUL may lie in the padding behind the node. The length that the node
// tells is not used: linkers write it in characters or bytes, with the NUL or without.
DWORD find_text(std::string_view block, const Node &node, VersionValue *value) {
    const Range range = {text_of(node), std::min(aligned(node.end), block.size())};
    const std::size_t nul = find_nul(block, range);
    if (nul >= range.end) {
        return ERROR_BAD_FORMAT;
    }
    *value = {range.begin, (nul - range.begin) / kUnit + 1};
    return ERROR_SUCCESS;
}

// A text without a NUL: where the NUL belongs, and the offsets of the text and of the nodes around
// it but the root.
struct UnendedText {
    std::size_t nul;
    std::size_t nodes[3];
};

// Finds the texts that lack their NUL, in the order of the block.
std::vector<UnendedText> find_unended_texts(std::string_view block) {
    std::vector<UnendedText> texts;
    const auto look_at_text = [&](const Node &info, const Node &table, const Node &text) {
        VersionValue ignored;
        if (text.value_length > 0 && find_text(block, text, &ignored) != ERROR_SUCCESS) {
            const std::size_t nul = std::max(text_of(text), text.end / kUnit * kUnit);
            texts.push_back({nul, {text.begin, table.begin, info.begin}});
        }
        return true;
    };
    const std::optional<Node> root = node_in(block, {0, block.size()});
    for_each_node(block, root ? children_of(*root) : Range{}, [&](const Node &info) {
        if (has_name(block, info, kTexts)) {
            for_each_node(block, children_of(info), [&](const Node &table) {
                for_each_node(block, children_of(table),
                              [&](const Node &text) { return look_at_text(info, table, text); });
                return true;
            });
        }
        return true;
    });
    return texts;
}

DWORD find_numbers(std::string_view block, const Node &root, VersionValue *value) {
    const std::size_t length = std::min(root.value_length, root.end - root.value);
    VS_FIXEDFILEINFO numbers;
    if (length < sizeof numbers) {
        return ERROR_BAD_FORMAT;
    }
    std::memcpy(&numbers, block.data() + root.value, sizeof numbers);
    *value = {root.value, length};
    return numbers.dwSignature == kSignature ? ERROR_SUCCESS : ERROR_BAD_FORMAT;
}

}  // namespace

std::size_t length_of_version_block(const char *block) {
    return word_at({block, sizeof(WORD)}, 0);
}

void set_length_of_version_block(std::size_t length, char *block) {
    set_word(length, block);
}

bool is_version_block(std::string_view block) {
    const std::optional<Node> root = node_in(block, {0, block.size()});
    return root && has_name(block, *root, kRootName);
}

DWORD find_version_value(std::string_view block, std::u16string_view path, VersionValue *value) {
    std::optional<Node> node = node_in(block, {0, block.size()});
    if (!node) {
        return ERROR_BAD_FORMAT;
    }
    std::u16string_view name = take_name(&path);
    if (name.empty()) {
        return find_numbers(block, *node, value);
    }
    const bool holds_texts = is_same_name(name, kTexts), holds_bytes = is_same_name(name, kBytes);
    for (; !name.empty(); name = take_name(&path)) {
        node = find_child(block, *node, name);
        if (!node) {
            return ERROR_RESOURCE_TYPE_NOT_FOUND;
        }
    }
    if (node->value_length == 0) {
        *value = {node->name_end, 0};
        return ERROR_SUCCESS;
    }
    if (holds_texts || (node->is_text && !holds_bytes)) {
        return find_text(block, *node, value);
    }
    *value = {node->value, std::min(node->value_length, node->end - node->value)};
    return ERROR_SUCCESS;
}

void terminate_version_texts(std::string *block) {
    const std::vector<UnendedText> texts = find_unended_texts(*block);
    for (auto text = texts.rbegin(); text != texts.rend(); ++text) {  // those before do not move
        if (text->nul % 4 != 0) {
            // The NUL belongs into the padding.
            block->resize(std::max(block->size(), text->nul + kUnit));
            block->replace(text->nul, kUnit, kUnit, '\0');
        } else if (block->size() + 4 <= kMaxVersionBlock) {
            block->insert(text->nul, 4, '\0');
            for (const std::size_t node : text->nodes) {
                const std::size_t length = word_at(*block, node) + std::size_t{4};
                set_word(std::min(length, kMaxVersionBlock), block->data() + node);
            }
        }
    }
    set_length_of_version_block(block->size(), block->data());
}

}  // namespace ostrel_platform
