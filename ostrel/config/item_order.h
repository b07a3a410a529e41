#ifndef OSTREL_CONFIG_ITEM_ORDER_H
#define OSTREL_CONFIG_ITEM_ORDER_H

// Internal. The items of a mapping in the order of their keys. A map that is filled in order is
// filled without a search, and its nodes lie in order in memory.
//
// Items of one key keep the order in which they stand in `items`.

#include <cstdint>
#include <string>
#include <vector>

#include "ostrel/config/cm_IdMapping.h"

namespace OS::detail {

using Items = std::vector<CAutoPtr<IDMappingItem>>;

std::vector<IDMappingItem *> order_by_id(const Items &items);

// By logical ID, which must hold no NUL. The IDs are copied to one block, since the items that come
// one after the other in this order lie anywhere in memory: whoever walks them meets one place that
// is far from the last, not one for the item and one for its text.
class ItemsByLogicalID {
public:
    struct Entry {
        const WCHAR *logicalID;  // as long as the list
        IDMappingItem *item;
        std::uint64_t part;  // what of the ID was compared last
    };

    explicit ItemsByLogicalID(const Items &items);
    ItemsByLogicalID(const ItemsByLogicalID &) = delete;
    ItemsByLogicalID &operator=(const ItemsByLogicalID &) = delete;

    const std::vector<Entry> &Entries() const { return m_entries; }

private:
    std::basic_string<WCHAR> m_texts;  // each with a NUL behind it
    std::vector<Entry> m_entries;
};

}  // namespace OS::detail

#endif  // OSTREL_CONFIG_ITEM_ORDER_H
