#include "ostrel/config/item_order.h"

#include <algorithm>
#include <cstdint>

namespace OS::detail {
namespace {

// An item with the part of its logical ID that is compared at a time, four characters in one
// number: names are mostly told apart by it, and the sort need not go to the text.
struct Entry {
    IDMappingItem *item;
    std::size_t position;
    std::uint64_t part;
};

constexpr std::size_t kPart = 4;

// The characters from `offset` on, the first in the highest place, with NULs behind the end.
std::uint64_t part_of(const x_wstring &text, std::size_t offset) {
    std::uint64_t part = 0;
    for (std::size_t i = offset; i < offset + kPart; ++i) {
        part = part << 16 | (i < text.size() ? text.c_str()[i] : 0);
    }
    return part;
}

// Sorts entries whose texts agree up to `offset`: by the next part, then those of each part by what
// follows.
void sort_entries(Entry *begin, Entry *end, std::size_t offset) {
    for (Entry *entry = begin; entry != end; ++entry) {
        entry->part = part_of(entry->item->m_strLogicalID, offset);
    }
    std::sort(begin, end, [](const Entry &left, const Entry &right) {
        return left.part != right.part ? left.part < right.part : left.position < right.position;
    });
    for (Entry *same = begin; same != end;) {
        const std::uint64_t part = same->part;
        Entry *const next =
            std::find_if(same, end, [part](const Entry &entry) { return entry.part != part; });
        const bool ends_here = (part & 0xFFFF) == 0;
        if (next - same > 1 && !ends_here) {
            sort_entries(same, next, offset + kPart);
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
