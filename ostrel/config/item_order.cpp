#include "ostrel/config/item_order.h"

#include <algorithm>

namespace OS::detail {
namespace {

using Entry = ItemsByLogicalID::Entry;

// The length of the text that all have in common, which is at least `length`.
std::size_t common_length(const Entry *begin, const Entry *end, std::size_t length) {
    const WCHAR *const first = begin->logicalID;
    std::size_t common = length + std::char_traits<WCHAR>::length(first + length);
    for (const Entry *entry = begin + 1; entry != end; ++entry) {
        // The NUL of the other differs from what stands in front of the end of the first.
        const WCHAR *const differs =
            std::mismatch(first + length, first + common, entry->logicalID + length).first;
        common = static_cast<std::size_t>(differs - first);
    }
    return common;
}

// Makes each part of the characters from `offset` on, the first in the highest place, with NULs
// behind the end. False if a character does not fit into its bits.
template <int kCharacterBits>
bool read_parts(Entry *begin, Entry *end, std::size_t offset) {
    WCHAR all = 0;
    for (Entry *entry = begin; entry != end; ++entry) {
        const WCHAR *at = entry->logicalID + offset;
        entry->part = 0;
        for (int place = 64; place != 0 && *at != 0; ++at) {
            all |= *at;
            place -= kCharacterBits;
            entry->part |= std::uint64_t{*at} << place;
        }
    }
    return all >> kCharacterBits == 0;
}

// Sorts entries whose texts agree up to `offset`: by the part in which they begin to differ,
// several characters in one number, then those of each part by what follows. Names are mostly told
// apart by the first part, and the sort need not go to the texts.
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
    // Equal texts stand in the block in the order of their items.
    std::sort(begin, end, [](const Entry &left, const Entry &right) {
        return left.part != right.part ? left.part < right.part : left.logicalID < right.logicalID;
    });
    const std::uint64_t last_character = (std::uint64_t{1} << bits) - 1;
    const std::size_t next_offset = offset + static_cast<std::size_t>(64 / bits);
    for (Entry *same = begin; same != end;) {
        const std::uint64_t part = same->part;
        Entry *const next =
            std::find_if(same, end, [part](const Entry &entry) { return entry.part != part; });
        if ((part & last_character) != 0) {  // there may be more text
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
