#ifndef OSTREL_CONFIG_CM_IDMAPPING_H
#define OSTREL_CONFIG_CM_IDMAPPING_H

// CIDMapping: a two-way table between numeric IDs and logical IDs, loaded from a text file.
//
//   const WCHAR *name = CIDMapping::Instance()->GetID(7);
//   int id = CIDMapping::Instance()->GetID(TEXT("DISK_FULL"));
//
// The file has one mapping to a line: numeric ID (decimal), logical ID and category, separated by
// blanks and tabs. A fourth field is allowed and ignored, as is what follows. A line with fewer
// than three fields, an empty one, and one whose first field begins with '#' add
// nothing. An ID that is not a
// number counts as 0. When an ID or a logical ID occurs again, the last line wins, for each of the
// two by itself.
//
// Threads: there is no lock. Once the table is loaded, GetID may be called from many threads at a
// time; the first call of Instance and every AddItem must not run beside any other call.
// Errors: OS::CSystemException with the errno when the file cannot be opened; std::bad_alloc.

#include <map>
#include <vector>

#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/core/api.h"
#include "ostrel/core/auto_ptr.h"
#include "ostrel/core/x_string.h"

struct IDMappingItem {
    int m_nID;
    OS::x_wstring m_strLogicalID;
    OS::x_wstring m_strCategory;
};

class OSTREL_API CIDMapping {
public:
    // Takes the lines of a reader into a mapping, as told above. `mapping` null takes none.
    class OSTREL_API CLineReaderCallback : public CINIReader::CIterateEachLineCallback {
    public:
        explicit CLineReaderCallback(CIDMapping *mapping) : m_pMapping(mapping) {}
        CLineReaderCallback(const CLineReaderCallback &) = default;
        CLineReaderCallback &operator=(const CLineReaderCallback &) = default;
        ~CLineReaderCallback() override;
        void Begin(int lineCount) override;
        void End() override;
        bool operator()(int lineIndex, const WCHAR *line) override;

    private:
        CIDMapping *m_pMapping;
    };

    // The process's table, loaded at the first call from config\cfg_IdMapping.txt in the current
    // directory, and kept until the library is unloaded. While loading fails, every call raises the
    // exception and the next one tries again.
    static CIDMapping *Instance();

    // Loads a table of its own from `file`.
    explicit CIDMapping(const WCHAR *file);

    // A copy takes the items over. The source goes on answering from them, so it must not be used
    // once the copy is gone.
    CIDMapping(const CIDMapping &);
    CIDMapping &operator=(const CIDMapping &);
    ~CIDMapping();

    // Adds one entry. The texts are copied; null counts as empty.
    void AddItem(int id, const WCHAR *logicalID, const WCHAR *category);

    // The logical ID of a numeric ID, valid as long as the table; null when there is none.
    const WCHAR *GetID(int id) const;

    // The numeric ID of a logical ID, in exactly that case; -1 when there is none.
    int GetID(const WCHAR *logicalID) const;

private:
    class CFileLoader;

    IDMappingItem *Store(int id, OS::x_wstring logicalID, OS::x_wstring category);
    void FillMaps();

    static OS::CAutoPtr<CIDMapping> s_pInstance;

    std::vector<OS::CAutoPtr<IDMappingItem>> m_items;  // all of them, in order of addition
    std::map<int, IDMappingItem *> m_byID;
    std::map<OS::x_wstring, IDMappingItem *> m_byLogicalID;
};

#endif  // OSTREL_CONFIG_CM_IDMAPPING_H
