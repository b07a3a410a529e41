#include "ostrel/platform/registry/registry_tree.h"

#include <algorithm>

#include "ostrel/platform/registry/key_changes.h"
#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/registry_call.h"

namespace ostrel_platform {
namespace {

struct Pending {
    std::int64_t id;
    std::u16string path, class_name;
    bool is_volatile;
};

// Returns false when the reader has had enough.
bool read_values(Database &database, std::int64_t key, TreeReader &reader) {
    Query query(database, Sql::kValues);
    query.Bind(key);
    while (query.Step()) {
        if (!reader.Value(name_of_bytes(query.Bytes(0)), static_cast<DWORD>(query.Number(1)),
                          query.Bytes(2))) {
            return false;
        }
    }
    return true;
}

// Puts the subkeys on the stack, the first one on top.
void push_subkeys(Database &database, const Pending &key, std::vector<Pending> *stack) {
    const std::size_t before = stack->size();
    Query query(database, Sql::kSubkeys);
    query.Bind(key.id).Bind(host_boot());
    while (query.Step()) {
        const std::u16string name = name_of_bytes(query.Bytes(1));
        stack->push_back({query.Number(0), key.path.empty() ? name : key.path + u'\\' + name,
                          name_of_bytes(query.Bytes(2)), query.Number(3) != 0});
    }
    std::reverse(stack->begin() + static_cast<std::ptrdiff_t>(before), stack->end());
}

DWORD read_from(Database &database, const Key &key, TreeReader &reader) {
    std::vector<Pending> stack;
    {
        Query query(database, Sql::kKeyFacts);
        if (!query.Bind(key.id).Step()) {
            return ERROR_KEY_DELETED;
        }
        stack.push_back({key.id, {}, name_of_bytes(query.Bytes(0)), query.Number(2) != 0});
    }
    while (!stack.empty()) {
        const Pending top = std::move(stack.back());
        stack.pop_back();
        if (!reader.Key(top.path, top.class_name, top.is_volatile) ||
            !read_values(database, top.id, reader)) {
            return ERROR_SUCCESS;
        }
        push_subkeys(database, top, &stack);
    }
    return ERROR_SUCCESS;
}

bool is_missing(DWORD code) {
    return code == ERROR_FILE_NOT_FOUND;
}

// Finds or makes the key at a path. The empty path is the key itself.
DWORD made_at(Database &database, const KeyPointer &base, const TreeEdit &edit, Changes *changes,
              KeyPointer *key) {
    MadeKey made;
    const bool is_key = edit.kind == TreeEdit::Kind::kCreateKey;
    const NewKey options{is_key ? std::u16string_view(edit.name) : std::u16string_view(),
                         base->is_volatile};
    const DWORD code = make_key(database, *base, edit.path, options, changes, &made);
    if (code == ERROR_SUCCESS) {
        *key = made.keys.size() > 1 ? key_below(*base, made.keys, made.is_volatile) : base;
    }
    return code;
}

DWORD apply(Database &database, const KeyPointer &base, const TreeEdit &edit, Changes *changes) {
    if (!is_path(edit.path)) {
        return ERROR_BAD_PATHNAME;
    }
    KeyPointer key;
    DWORD code = ERROR_SUCCESS;
    switch (edit.kind) {
        case TreeEdit::Kind::kCreateKey:
            return made_at(database, base, edit, changes, &key);
        case TreeEdit::Kind::kSetValue:
            if (edit.name.size() > kMaxValueName) {
                return ERROR_INVALID_PARAMETER;
            }
            code = made_at(database, base, edit, changes, &key);
            if (code == ERROR_SUCCESS) {
                set_value(database, *key, edit.name, edit.type, edit.bytes, changes);
            }
            return code;
        case TreeEdit::Kind::kDeleteKey:
            code = find_key_in(database, base, upper_of(edit.path), &key);
            return is_missing(code)      ? ERROR_SUCCESS
                   : code != 0           ? code
                   : key->id == base->id ? empty_key(database, *key, changes)
                                         : delete_tree(database, *key, changes);
        case TreeEdit::Kind::kDeleteValue:
            code = find_key_in(database, base, upper_of(edit.path), &key);
            if (code == ERROR_SUCCESS) {
                delete_value(database, *key, edit.name, changes);
            }
            return is_missing(code) ? ERROR_SUCCESS : code;
    }
    return ERROR_INVALID_PARAMETER;
}

}  // namespace

DWORD read_tree(HKEY key, TreeReader &reader) {
    OpenKey open;
    if (const DWORD code = find_open_key(key, KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS, &open)) {
        return code;
    }
    try {
        DWORD code = ERROR_SUCCESS;
        open.key->store->Read([&](Database &database) {
            reader.Begin();
            code = read_from(database, *open.key, reader);
        });
        return code;
    } catch (const StoreFailure &failure) {
        return failure.code;
    }
}

DWORD change_tree(HKEY key, bool replaces, const std::vector<TreeEdit> &edits) {
    OpenKey open;
    if (const DWORD code = find_open_key(key, KEY_SET_VALUE | KEY_CREATE_SUB_KEY, &open)) {
        return code;
    }
    if (replaces && open.is_root) {
        return ERROR_ACCESS_DENIED;
    }
    try {
        return open.key->store->Write([&](Database &database, Changes &changes) -> DWORD {
            DWORD code = check_exists(database, *open.key);
            if (code == ERROR_SUCCESS && replaces) {
                code = empty_key(database, *open.key, &changes);
            }
            for (std::size_t i = 0; code == ERROR_SUCCESS && i < edits.size(); ++i) {
                code = apply(database, open.key, edits[i], &changes);
            }
            return code;
        });
    } catch (const StoreFailure &failure) {
        return failure.code;
    }
}

bool has_open_keys_below(HKEY key) {
    OpenKey open;
    return KeyHandles::Instance().Find(key, &open) &&
           KeyHandles::Instance().Any([&](const Key &other) {
               return other.store == open.key->store &&
                      std::find(other.ancestors.begin(), other.ancestors.end(), open.key->id) !=
                          other.ancestors.end();
           });
}

}  // namespace ostrel_platform
