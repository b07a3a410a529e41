#include "ostrel/config/cm_IdMapping.h"

#include <utility>

#include "ostrel/config/item_order.h"
#include "ostrel/config/line_tokens.h"
#include "ostrel/core/trace.h"

namespace {

constexpr const WCHAR *kFile = TEXT("config\\cfg_IdMapping.txt");
constexpr const WCHAR *kDelimiters = TEXT(" \t\n");

// Calls take(fields) if the line holds an entry.
template <class Take>
void take_entry(CINIReader::CIterateEachLineCallback &splitter, const WCHAR *line, Take take) {
    CLineReaderTokenCallback fields(line, kDelimiters);
    splitter.Enumerate(fields);
    if (!fields.m_strToken1.IsEmpty() && !fields.m_strToken2.IsEmpty()) {
        OSTREL_TRACE(DBG::kLevelValue, TEXT("ID         = %d"), fields.m_nID);
        OSTREL_TRACE(DBG::kLevelValue, TEXT("Logical ID = %s"), fields.m_strToken1.c_str());
        OSTREL_TRACE(DBG::kLevelValue, TEXT("Category   = %s"), fields.m_strToken2.c_str());
        take(fields);
    }
}

// Moves the one entry of a map to another map, where the entry replaces one with the same key.
template <class Map>
void move_entry(Map *from, Map *to) noexcept {
    const auto inserted = to->insert(from->extract(from->begin()));
    if (!inserted.inserted) {
        inserted.position->second = inserted.node.mapped();
    }
}

}  // namespace

constinit OS::CAutoPtr<CIDMapping> CIDMapping::s_pInstance;

CIDMapping::CLineReaderCallback::~CLineReaderCallback() = default;

void CIDMapping::CLineReaderCallback::Begin(int) {}

void CIDMapping::CLineReaderCallback::End() {}

bool CIDMapping::CLineReaderCallback::operator()(int, const WCHAR *line) {
    take_entry(*this, line, [this](const CLineReaderTokenCallback &fields) {
        if (m_pMapping != nullptr) {
            m_pMapping->AddItem(fields.m_nID, fields.m_strToken1, fields.m_strToken2);
        }
    });
    return true;
}

// Stores the items of a whole file. The constructor fills the maps after the text has been freed,
// which is faster than an insertion for each line and lowers the peak of memory.
class CIDMapping::CFileLoader : public CLineReaderCallback {
public:
    explicit CFileLoader(CIDMapping *mapping) : CLineReaderCallback(mapping), m_mapping(*mapping) {}

    bool operator()(int, const WCHAR *line) override {
        take_entry(*this, line, [this](CLineReaderTokenCallback &fields) {
            m_mapping.Store(fields.m_nID, std::move(fields.m_strToken1),
                            std::move(fields.m_strToken2));
        });
        return true;
    }

private:
    CIDMapping &m_mapping;
};

CIDMapping *CIDMapping::Instance() {
    if (!s_pInstance) {
        s_pInstance.reset(new CIDMapping(kFile));
    }
    return s_pInstance.get();
}

CIDMapping::CIDMapping(const WCHAR *file) {
    {
        CFileLoader loader(this);
        CINIReader reader;
        reader.Parse(file, TEXT("r"));
        reader.Enumerate(loader);
    }
    FillMaps();
}

// Takes the items last, and the assignment allocates before it takes the first one: when anything
// throws, the source still owns the items that its maps point at.
CIDMapping::CIDMapping(const CIDMapping &source)
    : m_byID(source.m_byID), m_byLogicalID(source.m_byLogicalID) {
    m_items = source.m_items;
}

CIDMapping &CIDMapping::operator=(const CIDMapping &source) {
    CIDMapping copy(source);
    m_items.swap(copy.m_items);
    m_byID.swap(copy.m_byID);
    m_byLogicalID.swap(copy.m_byLogicalID);
    return *this;
}

CIDMapping::~CIDMapping() = default;

IDMappingItem *CIDMapping::Store(int id, OS::x_wstring logicalID, OS::x_wstring category) {
    m_items.push_back(OS::CAutoPtr<IDMappingItem>(
        new IDMappingItem{id, std::move(logicalID), std::move(category)}));
    return m_items.back().get();
}

void CIDMapping::FillMaps() {
    {
        constexpr std::size_t kAhead = 16;
        const OS::detail::ItemsByLogicalID items(m_items);
        const auto &entries = items.Entries();
        for (std::size_t i = 0; i < entries.size(); ++i) {
            if (i + kAhead < entries.size()) {
                __builtin_prefetch(entries[i + kAhead].logical_id);
            }
            m_byLogicalID.insert_or_assign(m_byLogicalID.end(), entries[i].logical_id,
                                           entries[i].item);
        }
    }
    for (IDMappingItem *const item : OS::detail::order_by_id(m_items)) {
        m_byID.insert_or_assign(m_byID.end(), item->m_nID, item);
    }
}

// Allocates everything, the nodes of the maps too, before it changes what the table answers.
void CIDMapping::AddItem(int id, const WCHAR *logicalID, const WCHAR *category) {
    const OS::CAutoPtr<IDMappingItem> item(new IDMappingItem{id, logicalID, category});
    decltype(m_byID) by_id;
    decltype(m_byLogicalID) by_logical_id;
    by_id[id] = item.get();
    by_logical_id[item->m_strLogicalID] = item.get();
    m_items.push_back(item);
    move_entry(&by_id, &m_byID);
    move_entry(&by_logical_id, &m_byLogicalID);
}

const WCHAR *CIDMapping::GetID(int id) const {
    const WCHAR *logical_id = nullptr;
    const auto found = m_byID.find(id);
    if (found == m_byID.end()) {
        OSTREL_TRACE(DBG::kLevelUnmet, TEXT("ID (%d) cannot be found!"), id);
    } else {
        logical_id = found->second->m_strLogicalID.c_str();
    }
    OSTREL_TRACE(DBG::kLevelValue, TEXT("CIDMapping::GetID() = %s"), logical_id);
    return logical_id;
}

int CIDMapping::GetID(const WCHAR *logicalID) const {
    int id = -1;
    const OS::x_wstring key(logicalID);
    const auto found = m_byLogicalID.find(key);
    if (found == m_byLogicalID.end()) {
        OSTREL_TRACE(DBG::kLevelUnmet, TEXT("ID (%s) cannot be found!"), logicalID);
    } else {
        id = found->second->m_nID;
    }
    OSTREL_TRACE(DBG::kLevelValue, TEXT("CIDMapping::GetID() = %d"), id);
    return id;
}
