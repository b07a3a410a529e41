#ifndef OSTREL_PLATFORM_REGISTRY_SCHEMA_H
#define OSTREL_PLATFORM_REGISTRY_SCHEMA_H

// Internal. The tables of a registry's database, its first keys, and the statements that the room
// uses.
//
// keys.written and the calls count 100 ns since 1601. keys.boot is null for a stable key, and the
// host's boot id for a volatile one: rows of another boot count as missing. Ids of keys are never
// used again. They begin with a random number of 46 bits in each database, and those of a copy go
// on with another one, so that a handle cannot come to mean another key.

#include <cstdint>
#include <string_view>

namespace ostrel_platform {

inline constexpr std::int64_t kApplicationId = 0x4F535452;  // "OSTR"
inline constexpr std::int64_t kFormat = 1;                  // PRAGMA user_version

// The size of a page of a new database, in bytes. A change of a value writes two pages to the log:
// pages of 4096 bytes make the write a sixth slower, pages of 1024 bytes make random reads of a
// large store slower.
inline constexpr std::int64_t kPageSize = 2048;

// What leads from each format to the next, in SQL. Format 0 is a database without tables.
extern const char *const kUpgrades[kFormat];

// A key of a new registry, which no call deletes. Its id is its index in the list plus 1.
struct FirstKey {
    std::int64_t parent;       // 0 for the root
    std::u16string_view name;  // "" for the name that depends on the user
};

inline constexpr std::int64_t kRootId = 1;

// The machine's keys. HKEY_LOCAL_MACHINE is the root.
inline constexpr FirstKey kMachineKeys[] = {
    {0, u""},
    {kRootId, u"SOFTWARE"},
    {2, u"Classes"},  // HKEY_CLASSES_ROOT
    {kRootId, u"SYSTEM"},
    {4, u"CurrentControlSet"},
    {5, u"Services"},
    {5, u"Control"},
    {5, u"Hardware Profiles"},
    {8, u"Current"},  // HKEY_CURRENT_CONFIG
};
inline constexpr std::int64_t kClassesId = 3;
inline constexpr std::int64_t kCurrentConfigId = 9;

// A user's keys. HKEY_USERS is the root.
inline constexpr FirstKey kUserKeys[] = {
    {0, u""},
    {kRootId, u""},  // HKEY_CURRENT_USER, named after the user's number
    {2, u"Software"},
    {3, u"Classes"},
};
inline constexpr std::int64_t kCurrentUserId = 2;

// Statements. Parameters are in the order of the names in the comments.
enum class Sql {
    kBegin,
    kBeginWrite,
    kCommit,
    kRollback,
    kGetMeta,       // name
    kSetMeta,       // name, value
    kFindKey,       // parent, upper, boot: id, boot is not null
    kKeyExists,     // id
    kKeyFacts,      // id: class, written, boot is not null, name, parent
    kAddKey,        // parent, name, upper, class, written, boot
    kAddFirstKey,   // id, parent, name, upper, written
    kTouchKey,      // written, id
    kDeleteKey,     // id
    kHasSubkey,     // parent, boot
    kSubkeyAt,      // parent, boot, index: name, class, written, upper
    kSubkeyAfter,   // parent, upper, boot: the same
    kSubkeys,       // parent, boot: id, name, class, boot is not null
    kSubkeyFacts,   // parent, boot: count, longest name, longest class, in bytes
    kStaleKeys,     // boot: id, parent
    kFindValue,     // key, upper: type, data
    kValueId,       // key, upper: id
    kAddValue,      // key, upper, name, type, data
    kReplaceValue,  // type, data, id
    kDeleteValue,   // id
    kDeleteValues,  // key
    kValueAt,       // key, index: name, type, data, id
    kValueAfter,    // key, id: the same
    kValues,        // key: the same
    kValueFacts,    // key: count, longest name, longest data, in bytes
    kCount,
};

std::string_view text_of(Sql sql);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_SCHEMA_H
