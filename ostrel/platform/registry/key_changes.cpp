#include "ostrel/platform/registry/key_changes.h"

#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/store_files.h"

namespace ostrel_platform {
namespace {

void touch(Database &database, std::int64_t key) {
    Query(database, Sql::kTouchKey).Bind(registry_time()).Bind(key).Step();
}

std::int64_t add_key(Database &database, std::int64_t parent, std::u16string_view name,
                     const NewKey &options) {
    const std::string stored = bytes_of_name(name);
    const std::string upper = sort_key_of(upper_of(name));
    const std::string class_name = bytes_of_name(options.class_name);
    Query query(database, Sql::kAddKey);
    query.Bind(parent).Bind(stored).Bind(upper).Bind(class_name).Bind(registry_time());
    if (options.is_volatile) {
        query.Bind(std::string_view(host_boot())).Step();
    } else {
        query.BindNull().Step();
    }
    return sqlite3_last_insert_rowid(database.Get());
}

// The keys that the layer needs, which a new store has.
bool is_kept(const Key &key) {
    return key.id <= static_cast<std::int64_t>(key.store->Kind() == StoreKind::kMachine
                                                   ? std::size(kMachineKeys)
                                                   : std::size(kUserKeys));
}

// The roots below which only the layer makes keys.
bool holds_stores(const Key &key) {
    return key.id == kRootId;
}

std::vector<std::int64_t> subkeys_of(Database &database, std::int64_t key) {
    std::vector<std::int64_t> subkeys;
    Query query(database, Sql::kSubkeys);
    query.Bind(key).Bind(host_boot());
    while (query.Step()) {
        subkeys.push_back(query.Number(0));
    }
    return subkeys;
}

void remove(Database &database, const Key &key, Changes *changes) {
    Query(database, Sql::kDeleteValues).Bind(key.id).Step();
    Query(database, Sql::kDeleteKey).Bind(key.id).Step();
    changes->Add(Change::kDeleted, key.id, key.ancestors);
}

void note_subkey_change(Database &database, const Key &parent, Changes *changes) {
    touch(database, parent.id);
    changes->Add(Change::kSubkeys, parent.id, parent.ancestors);
}

Key parent_of(const Key &key) {
    Key parent;
    parent.store = key.store;
    parent.ancestors = key.ancestors;
    parent.id = parent.ancestors.back();
    parent.ancestors.pop_back();
    return parent;
}

// Removes all keys below a key.
DWORD remove_below(Database &database, const Key &key, Changes *changes) {
    std::vector<Key> found{key};
    for (std::size_t i = 0; i < found.size(); ++i) {
        for (const std::int64_t id : subkeys_of(database, found[i].id)) {
            Key below = *key_below(found[i], {found[i].id, id}, false);
            if (is_kept(below)) {
                return ERROR_ACCESS_DENIED;
            }
            found.push_back(std::move(below));
        }
    }
    for (std::size_t i = found.size(); i-- > 1;) {
        remove(database, found[i], changes);
    }
    return ERROR_SUCCESS;
}

}  // namespace

DWORD make_key(Database &database, const Key &base, std::u16string_view path, const NewKey &options,
               Changes *changes, MadeKey *made) {
    made->keys.assign(1, base.id);
    made->is_volatile = base.is_volatile;
    made->is_new = false;
    std::u16string_view rest = path;
    while (!rest.empty()) {
        std::u16string_view behind = rest;
        const std::u16string_view name = take_name(&behind);
        if (name.size() > kMaxKeyName) {
            return ERROR_INVALID_PARAMETER;
        }
        const FoundKey next = find_subkey(database, made->keys.back(), sort_key_of(upper_of(name)));
        if (next.id == 0) {
            break;
        }
        made->keys.push_back(next.id);
        made->is_volatile = next.is_volatile;
        rest = behind;
    }
    if (rest.empty()) {
        return ERROR_SUCCESS;
    }
    const KeyPointer parent = key_below(base, made->keys, made->is_volatile);
    if (holds_stores(*parent)) {
        return ERROR_INVALID_PARAMETER;
    }
    if (parent->is_volatile && !options.is_volatile) {
        return ERROR_CHILD_MUST_BE_VOLATILE;
    }
    for (std::size_t levels = 1; !rest.empty(); ++levels) {
        const std::u16string_view name = take_name(&rest);
        const std::size_t depth = base.ancestors.size() + made->keys.size();
        if (levels > kMaxNewLevels || depth > kMaxDepth || name.size() > kMaxKeyName) {
            return ERROR_INVALID_PARAMETER;
        }
        // Keys on the way have no class.
        const NewKey on_the_way{{}, options.is_volatile};
        made->keys.push_back(
            add_key(database, made->keys.back(), name, rest.empty() ? options : on_the_way));
    }
    made->is_new = true;
    made->is_volatile = options.is_volatile;
    note_subkey_change(database, *parent, changes);
    return ERROR_SUCCESS;
}

DWORD delete_key(Database &database, const Key &key, Changes *changes) {
    if (is_kept(key) || Query(database, Sql::kHasSubkey).Bind(key.id).Bind(host_boot()).Step()) {
        return ERROR_ACCESS_DENIED;
    }
    remove(database, key, changes);
    note_subkey_change(database, parent_of(key), changes);
    return ERROR_SUCCESS;
}

DWORD delete_tree(Database &database, const Key &key, Changes *changes) {
    if (is_kept(key)) {
        return ERROR_ACCESS_DENIED;
    }
    if (const DWORD code = remove_below(database, key, changes)) {
        return code;
    }
    remove(database, key, changes);
    note_subkey_change(database, parent_of(key), changes);
    return ERROR_SUCCESS;
}

DWORD empty_key(Database &database, const Key &key, Changes *changes) {
    if (const DWORD code = remove_below(database, key, changes)) {
        return code;
    }
    Query(database, Sql::kDeleteValues).Bind(key.id).Step();
    touch(database, key.id);
    changes->Add(Change::kSubkeys | Change::kValues, key.id, key.ancestors);
    return ERROR_SUCCESS;
}

void set_value(Database &database, const Key &key, std::u16string_view name, DWORD type,
               std::string_view bytes, Changes *changes) {
    const std::string upper = sort_key_of(upper_of(name));
    std::int64_t value = 0;
    {
        Query query(database, Sql::kValueId);
        query.Bind(key.id).Bind(upper);
        value = query.Step() ? query.Number(0) : 0;
    }
    if (value != 0) {
        Query(database, Sql::kReplaceValue).Bind(type).Bind(bytes).Bind(value).Step();
    } else {
        const std::string stored = bytes_of_name(name);
        Query(database, Sql::kAddValue)
            .Bind(key.id)
            .Bind(upper)
            .Bind(stored)
            .Bind(type)
            .Bind(bytes)
            .Step();
    }
    touch(database, key.id);
    changes->Add(Change::kValues, key.id, key.ancestors);
}

bool delete_value(Database &database, const Key &key, std::u16string_view name, Changes *changes) {
    const std::string upper = sort_key_of(upper_of(name));
    std::int64_t value = 0;
    {
        Query query(database, Sql::kValueId);
        query.Bind(key.id).Bind(upper);
        value = query.Step() ? query.Number(0) : 0;
    }
    if (value == 0) {
        return false;
    }
    Query(database, Sql::kDeleteValue).Bind(value).Step();
    touch(database, key.id);
    changes->Add(Change::kValues, key.id, key.ancestors);
    return true;
}

}  // namespace ostrel_platform
