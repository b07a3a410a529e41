#include "ostrel/config/item_order.h"

#include <algorithm>
#include <cstdint>

namespace OS::detail {
namespace {

// An item with the part of its logical ID that is compared at a time, several characters in one
// number: names are mostly told apart by it, and the sort need not go to the text, which lies
// anywhere in memory.
struct Entry {
    IDMappingItem *item;
    std::size_t position;
    std::uint64_t part;

    const x_wstring &text() const { return item->m_strLogicalID; }
};

// The length of the text that all have in common, which is at least `length`.
std::size_t common_length(const Entry *begin, const Entry *end, std::size_t length) {
    const WCHAR *const first = begin->text().data();
    std::size_t common = begin->text().size();
    for (const Entry *entry = begin + 1; entry != end; ++entry) {
        const x_wstring &text = entry->text();
        const WCHAR *const limit = first + std::min(common, text.size());
        common = static_cast<std::size_t>(
            std::mismatch(first + length, limit, text.data() + length).first - first);
    }
    return common;
}

// Makes each part of the characters from `offset` on, the first in the highest place, with NULs
// behind the end. False if a character does not fit into its bits.
template <int kCharacterBits>
bool read_parts(Entry *begin, Entry *end, std::size_t offset) {
    WCHAR all = 0;
    for (Entry *entry = begin; entry != end; ++entry) {
        const x_wstring &text = entry->text();
        const std::size_t limit = std::min(text.size(), offset + 64 / kCharacterBits);
        entry->part = 0;
        int place = 64;
        for (std::size_t i = offset; i < limit; ++i) {
            all |= text.data()[i];
            place -= kCharacterBits;
            entry->part |= std::uint64_t{text.data()[i]} << place;
        }
    }
    return all >> kCharacterBits == 0;
}

// Sorts entries whose texts agree up to `offset`: by the part in which they begin to differ, then
// those of each part by what follows.
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
    std::sort(begin, end, [](const Entry &left, const Entry &right) {
        return left.part != right.part ? left.part < right.part : left.position < right.position;
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

std::vector<IDMappingItem *> order_by_logical_id(const Items &items) {
    std::vector<Entry> entries;
    entries.reserve(items.size());
    for (const auto &item : items) {
        entries.push_back({item.get(), entries.size(), 0});
    }
    sort_entries(entries.data(), entries.data() + entries.size(), 0);
    std::vector<IDMappingItem *> order;
    order.reserve(entries.size());
    for (const Entry &entry : entries) {
        order.push_back(entry.item);
    }
    return order;
}

}  // namespace OS::detail
