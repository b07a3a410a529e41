#include "ostrel/platform/registry/keys.h"

#include <algorithm>
#include <optional>

#include "ostrel/platform/registry/answer_cache.h"
#include "ostrel/platform/registry/key_names.h"

namespace ostrel_platform {
namespace {

constexpr std::size_t kCapacity = 8 << 20;  // bytes
constexpr std::size_t kMaxLevels = 16;      // of a path whose answer is cached

// The keys on the way, whose subkeys decide the answer, with the counters of their buckets.
struct Way {
    std::size_t count = 0;
    std::uint32_t buckets[kMaxLevels];
    std::uint64_t counters[kMaxLevels];
};

struct PathAnswer {
    KeyPointer key;  // null when there is none
    Way way;
};

AnswerCache<PathAnswer> &cache() {
    static auto *const cache = new AnswerCache<PathAnswer>(kCapacity);
    return *cache;
}

bool holds(const Way &way, const SharedPage &page) {
    for (std::size_t i = 0; i < way.count; ++i) {
        if (page.Counter(way.buckets[i]) != way.counters[i]) {
            return false;
        }
    }
    return true;
}

// What a walk has found.
struct Walk {
    DWORD code = ERROR_SUCCESS;
    bool is_volatile = false;
    std::vector<std::int64_t> keys;  // from the base on
};

Walk walk(Database &database, const Key &base, std::u16string_view upper) {
    Walk found;
    found.keys.push_back(base.id);
    if (!key_exists(database, base.id)) {
        found.code = ERROR_KEY_DELETED;
        return found;
    }
    for (std::u16string_view rest = upper; !rest.empty();) {
        const std::u16string_view name = take_name(&rest);
        const FoundKey next = name.size() <= kMaxKeyName
                                  ? find_subkey(database, found.keys.back(), sort_key_of(name))
                                  : FoundKey{};
        if (next.id == 0) {
            found.code = ERROR_FILE_NOT_FOUND;
            return found;
        }
        found.keys.push_back(next.id);
        found.is_volatile = next.is_volatile;
    }
    return found;
}

// The counters of the keys whose subkeys a walk looked at, or nothing when a writer is at work.
std::optional<Way> way_of(const Walk &found, const SharedPage &page) {
    Way way;
    const bool is_complete = found.code == ERROR_SUCCESS;
    way.count = found.keys.size() - (is_complete && found.keys.size() > 1 ? 1 : 0);
    if (way.count > kMaxLevels || found.code == ERROR_KEY_DELETED) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < way.count; ++i) {
        way.buckets[i] = bucket_of(found.keys[i]);
        way.counters[i] = page.Counter(way.buckets[i]);
        if (!SharedPage::IsAtRest(way.counters[i])) {
            return std::nullopt;
        }
    }
    return way;
}

Walk read_walk(const Key &base, std::u16string_view upper) {
    Walk found;
    base.store->Read([&](Database &database) { found = walk(database, base, upper); });
    return found;
}

}  // namespace

std::uint64_t hash_seed() noexcept {
    static const std::uint64_t seed = random_number();
    return seed;
}

KeyPointer key_below(const Key &base, const std::vector<std::int64_t> &keys, bool is_volatile) {
    auto key = std::make_shared<Key>();
    key->store = base.store;
    key->id = keys.back();
    key->is_volatile = is_volatile;
    key->ancestors = base.ancestors;
    key->ancestors.insert(key->ancestors.end(), keys.begin(), keys.end() - 1);
    return key;
}

bool key_exists(Database &database, std::int64_t id) {
    return Query(database, Sql::kKeyExists).Bind(id).Step();
}

FoundKey find_subkey(Database &database, std::int64_t parent, std::string_view sort_key) {
    Query query(database, Sql::kFindKey);
    query.Bind(parent).Bind(sort_key).Bind(host_boot());
    return query.Step() ? FoundKey{query.Number(0), query.Number(1) != 0} : FoundKey{};
}

bool find_cached_key(const KeyView &base, std::u16string_view upper, KeyPointer *key, DWORD *code) {
    SharedPage *const page = base.store->CurrentPage();
    if (page == nullptr ||
        !cache().Find(owner_of(*base.store, base.id), upper, [&](const PathAnswer &answer) {
            const bool is_right = holds(answer.way, *page);
            if (is_right) {
                *key = answer.key;
            }
            return is_right;
        })) {
        return false;
    }
    *code = *key != nullptr ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    return true;
}

DWORD find_key(const KeyPointer &base, std::u16string_view upper, KeyPointer *key) {
    SharedPage *const page = base->store->CurrentPage();
    // The counters have to be from before the snapshot. Their keys are known only after it, so the
    // counters are read behind it, and hold when no writer came in between. Otherwise a second walk
    // has to find the same keys.
    const std::uint64_t writes = page != nullptr ? page->WritesAtRest() : 0;
    Walk found = read_walk(*base, upper);
    std::optional<Way> way = page != nullptr ? way_of(found, *page) : std::nullopt;
    if (way && (writes == SharedPage::kNotAtRest || page->WritesAtRest() != writes)) {
        const Walk again = read_walk(*base, upper);
        if (again.keys != found.keys || again.code != found.code) {
            way.reset();
        }
        found = again;
    }
    *key = nullptr;
    if (found.code == ERROR_SUCCESS) {
        *key = found.keys.size() > 1 ? key_below(*base, found.keys, found.is_volatile) : base;
    }
    if (way) {
        cache().Add(owner_of(*base->store, base->id), upper, {*key, *way},
                    sizeof(Key) + 8 * found.keys.size() + 32);
    }
    return found.code;
}

DWORD find_key_in(Database &database, const KeyPointer &base, std::u16string_view upper,
                  KeyPointer *key) {
    const Walk found = walk(database, *base, upper);
    if (found.code == ERROR_SUCCESS) {
        *key = found.keys.size() > 1 ? key_below(*base, found.keys, found.is_volatile) : base;
    }
    return found.code;
}

void make_key_cache() {
    cache();
}
void lock_key_cache() noexcept {
    cache().LockAll();
}
void unlock_key_cache() noexcept {
    cache().UnlockAll();
}
void renew_key_cache() noexcept {
    cache().RenewAll();
}

}  // namespace ostrel_platform
