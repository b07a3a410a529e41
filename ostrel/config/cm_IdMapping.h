#ifndef OSTREL_CONFIG_CM_IDMAPPING_H
#define OSTREL_CONFIG_CM_IDMAPPING_H

// CIDMapping is a two-way table of numeric IDs and logical IDs, loaded from a text file.
//
//   const WCHAR *name = CIDMapping::Instance()->GetID(7);
//   int id = CIDMapping::Instance()->GetID(TEXT("DISK_FULL"));
//
// The file is text in the system code page (UTF-8, unless the locale environment names another),
// with or without a byte order mark of UTF-8. Each line of the file holds one mapping: numeric ID
// (decimal), logical ID and category, separated by blanks and tabs. Further fields are ignored. An
// empty line, a line with fewer than three fields and a line whose first field begins with '#' add
// nothing. A numeric ID that is not a number counts as 0; one out of range counts as the nearest
// 32-bit value. When a numeric ID or a logical ID occurs again, the last line wins, for each of the
// two separately.
//
// Threads: a table has no lock. Several threads may call GetID on a loaded table at once. The first
// call of Instance, AddItem, copying from a table and assigning must not run at the same time as
// any other call on the table.
// Errors: loading throws what CINIReader::Parse throws: OS::CSystemException with the errno when
// the file cannot be opened (EINVAL for a null or empty path, EACCES for what is no regular file)
// or with EFBIG for a line of more than 4,194,304 characters, and std::length_error for a file
// whose text needs more than 4 GiB. Loading, copying, AddItem and GetID of a logical ID throw
// std::bad_alloc when memory is short.

#include <map>
#include <vector>

#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/core/api.h"
#include "ostrel/core/auto_ptr.h"
#include "ostrel/core/x_string.h"

// One entry of a table.
struct IDMappingItem {
    int m_nID;
    OS::x_wstring m_strLogicalID;
    OS::x_wstring m_strCategory;
};

class OSTREL_API CIDMapping {
public:
    // Adds the lines of a CINIReader to a table of the caller, by the rules above, or nowhere when
    // `mapping` is null. operator() always returns true.
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

    // Returns the table of the process, never null. The first call loads the table from
    // config\cfg_IdMapping.txt in the current directory; the library keeps the table until it is
    // unloaded. When loading fails, the call throws as the constructor does, and the next call
    // tries again.
    static CIDMapping *Instance();

    // Loads a new table from `file`.
    explicit CIDMapping(const WCHAR *file);

    // Take the entries over from the source. The source still finds these entries, so do not use
    // the source after the copy is destroyed. An assignment destroys the old entries of the target.
    CIDMapping(const CIDMapping &);
    CIDMapping &operator=(const CIDMapping &);
    ~CIDMapping();

    // Adds one entry, which replaces earlier answers for `id` and for `logicalID`. The table copies
    // the texts; null counts as empty. When the call throws std::bad_alloc, the table is
    // unchanged.
    void AddItem(int id, const WCHAR *logicalID, const WCHAR *category);

    // Returns the logical ID of a numeric ID, or null when the table has none. The pointer is valid
    // until the table that owns the entry is destroyed or assigned to.
    const WCHAR *GetID(int id) const;

    // Returns the numeric ID of a logical ID, or -1 when the table has none; an entry can have the
    // numeric ID -1 too. The comparison is case-sensitive. Null counts as the empty logical ID.
    int GetID(const WCHAR *logicalID) const;

private:
    class CFileLoader;

    IDMappingItem *Store(int id, OS::x_wstring logicalID, OS::x_wstring category);
    void FillMaps();

    static OS::CAutoPtr<CIDMapping> s_pInstance;

    std::vector<OS::CAutoPtr<IDMappingItem>> m_items;  // all entries, in order of addition
    std::map<int, IDMappingItem *> m_byID;
    std::map<OS::x_wstring, IDMappingItem *> m_byLogicalID;
};

#endif  // OSTREL_CONFIG_CM_IDMAPPING_H
