#include "ostrel/config/item_order.h"

#include <algorithm>

namespace OS::detail {
namespace {

using Entry = ItemsByLogicalID::Entry;

// Returns the length of the prefix that all texts share. The first `length` characters are known to
// be equal.
std::size_t common_length(const Entry *begin, const Entry *end, std::size_t length) {
    const WCHAR *const first = begin->logical_id;
    std::size_t common = length + std::char_traits<WCHAR>::length(first + length);
    for (const Entry *entry = begin + 1; entry != end; ++entry) {
        // A shorter text differs at its NUL, so the comparison never reads past its end.
        const WCHAR *const differs =
            std::mismatch(first + length, first + common, entry->logical_id + length).first;
        common = static_cast<std::size_t>(differs - first);
    }
    return common;
}

// Packs the characters from `offset` on into the part of each entry: the first character into the
// highest bits, zeros after the end of the text. Returns false when a character does not fit into
// kCharacterBits bits.
template <int kCharacterBits>
bool read_parts(Entry *begin, Entry *end, std::size_t offset) {
    WCHAR all = 0;
    for (Entry *entry = begin; entry != end; ++entry) {
        const WCHAR *at = entry->logical_id + offset;
        entry->part = 0;
        for (int shift = 64; shift != 0 && *at != 0; ++at) {
            all |= *at;
            shift -= kCharacterBits;
            entry->part |= std::uint64_t{*at} << shift;
        }
    }
    return all >> kCharacterBits == 0;
}

// Sorts entries whose texts are equal up to `offset`. The sort compares parts, several characters
// in one number, from the first difference on, and then sorts the entries of equal parts by the
// text after the part. Most names differ in the first part, so the sort seldom reads the texts.
void sort_entries(Entry *begin, Entry *end, std::size_t offset) {
    if (end - begin < 2) {
        return;
    }
    offset = common_length(begin, end, offset);
    int bits = 8;
    if (!read_parts<8>(begin, end, offset)) {
        bits = 16;
        read_parts<16>(begin, end, offset);
    }
    // The block holds the texts in the order of their items: addresses order equal texts.
    std::sort(begin, end, [](const Entry &left, const Entry &right) {
        return left.part != right.part ? left.part < right.part
                                       : left.logical_id < right.logical_id;
    });
    const std::uint64_t last_character = (std::uint64_t{1} << bits) - 1;
    const std::size_t next_offset = offset + static_cast<std::size_t>(64 / bits);
    for (Entry *same = begin; same != end;) {
        const std::uint64_t part = same->part;
        Entry *const next =
            std::find_if(same, end, [part](const Entry &entry) { return entry.part != part; });
        if ((part & last_character) != 0) {  // the text may continue
            sort_entries(same, next, next_offset);
        }
        same = next;
    }
}

}  // namespace

std::vector<IDMappingItem *> order_by_id(const Items &items) {
    std::vector<IDMappingItem *> order;
    order.reserve(items.size());
    for (const auto &item : items) {
        order.push_back(item.get());
    }
    const auto less = [](const IDMappingItem *left, const IDMappingItem *right) {
        return left->m_nID < right->m_nID;
    };
    if (!std::is_sorted(order.begin(), order.end(), less)) {
        std::stable_sort(order.begin(), order.end(), less);
    }
    return order;
}

ItemsByLogicalID::ItemsByLogicalID(const Items &items) {
    std::size_t characters = 0;
    for (const auto &item : items) {
        characters += item->m_strLogicalID.size() + 1;
    }
    m_texts.reserve(characters);
    m_entries.reserve(items.size());
    for (const auto &item : items) {
        m_entries.push_back({m_texts.data() + m_texts.size(), item.get(), 0});
        m_texts.append(item->m_strLogicalID.c_str(), item->m_strLogicalID.size() + 1);
    }
    sort_entries(m_entries.data(), m_entries.data() + m_entries.size(), 0);
}

}  // namespace OS::detail
