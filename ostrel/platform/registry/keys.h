#ifndef OSTREL_PLATFORM_REGISTRY_KEYS_H
#define OSTREL_PLATFORM_REGISTRY_KEYS_H

// Internal. Keys: what identifies one, how a path leads to one, and the cached answers to both.

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "ostrel/platform/registry/store.h"

namespace ostrel_platform {

// A key of a store. No id is used again (schema.h), and a key never gets another parent, so a Key
// is right for as long as the key exists.
struct Key {
    Store *store = nullptr;
    std::int64_t id = 0;
    bool is_volatile = false;
    std::vector<std::int64_t> ancestors;  // from the root to the parent
};
using KeyPointer = std::shared_ptr<const Key>;

// What a fast read needs of a key.
struct KeyView {
    Store *store;
    std::int64_t id;
    DWORD access;
};

// The owner of a key's answers in a cache.
inline std::uint64_t owner_of(const Store &store, std::int64_t id) {
    return static_cast<std::uint64_t>(id) << 1 | (store.Kind() == StoreKind::kUser);
}

// Finds the key at a path below `base`; `upper` is the path in upper case. Stores ERROR_SUCCESS and
// the key, or ERROR_FILE_NOT_FOUND, in `code` and `key`. Returns false when no cached answer holds.
bool find_cached_key(const KeyView &base, std::u16string_view upper, KeyPointer *key, DWORD *code);

// The same from the database, also ERROR_KEY_DELETED for the base. Throws StoreFailure.
DWORD find_key(const KeyPointer &base, std::u16string_view upper, KeyPointer *key);

// Within a read or write of the store.
DWORD find_key_in(Database &database, const KeyPointer &base, std::u16string_view upper,
                  KeyPointer *key);
bool key_exists(Database &database, std::int64_t id);
struct FoundKey {
    std::int64_t id = 0;  // 0 when there is none
    bool is_volatile = false;
};
FoundKey find_subkey(Database &database, std::int64_t parent, std::string_view sort_key);

// Makes the Key at the end of `keys`, the ids from the base on.
KeyPointer key_below(const Key &base, const std::vector<std::int64_t> &keys, bool is_volatile);

void make_key_cache();  // throws std::bad_alloc
void lock_key_cache() noexcept;
void unlock_key_cache() noexcept;
void renew_key_cache() noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_KEYS_H
