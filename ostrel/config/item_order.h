#ifndef OSTREL_CONFIG_ITEM_ORDER_H
#define OSTREL_CONFIG_ITEM_ORDER_H

// Internal. The items of a mapping in the order of their keys. A map that is filled in order is
// filled without a search, and its nodes lie in order in memory.

#include <vector>

#include "ostrel/config/cm_IdMapping.h"

namespace OS::detail {

using Items = std::vector<CAutoPtr<IDMappingItem>>;

// Items of one key keep the order in which they stand in `items`.
std::vector<IDMappingItem *> order_by_id(const Items &items);
std::vector<IDMappingItem *> order_by_logical_id(const Items &items);

}  // namespace OS::detail

#endif  // OSTREL_CONFIG_ITEM_ORDER_H
