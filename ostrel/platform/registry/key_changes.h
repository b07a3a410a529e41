#ifndef OSTREL_PLATFORM_REGISTRY_KEY_CHANGES_H
#define OSTREL_PLATFORM_REGISTRY_KEY_CHANGES_H

// Internal. Changes of keys and values within a write of their store.

#include <string_view>
#include <vector>

#include "ostrel/platform/registry/keys.h"

namespace ostrel_platform {

struct NewKey {
    std::u16string_view class_name;
    bool is_volatile = false;
};

// Opens or creates the key at a path below `base`. Stores the ids of the keys from the base on, and
// whether the last one is new and volatile. Returns a code of RegCreateKeyExW.
struct MadeKey {
    std::vector<std::int64_t> keys;
    bool is_new = false;
    bool is_volatile = false;
};
DWORD make_key(Database &database, const Key &base, std::u16string_view path, const NewKey &options,
               Changes *changes, MadeKey *made);

// Deletes a key that has no subkeys, with its values; or with all that is below it. Returns a code
// of RegDeleteKeyW.
DWORD delete_key(Database &database, const Key &key, Changes *changes);
DWORD delete_tree(Database &database, const Key &key, Changes *changes);
// Deletes what is below a key, and its values.
DWORD empty_key(Database &database, const Key &key, Changes *changes);

// Sets a value of a key that exists.
void set_value(Database &database, const Key &key, std::u16string_view name, DWORD type,
               std::string_view bytes, Changes *changes);
// Returns false when there is no such value.
bool delete_value(Database &database, const Key &key, std::u16string_view name, Changes *changes);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_KEY_CHANGES_H
