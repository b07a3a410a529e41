// Opening, creating, closing and deleting keys.

#include "ostrel/platform/registry/key_changes.h"
#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/registry_call.h"
#include "ostrel/platform/registry/watch.h"

namespace ostrel_platform {
namespace {

constexpr DWORD kWriteDac = 0x40000;
constexpr DWORD kWriteOwner = 0x80000;
constexpr DWORD kMaximumAllowed = 0x02000000;
constexpr DWORD kGenericAll = 0x10000000;
constexpr DWORD kGenericExecute = 0x20000000;
constexpr DWORD kGenericWrite = 0x40000000;
constexpr DWORD kGenericRead = 0x80000000;
constexpr DWORD kWriteRights =
    KEY_SET_VALUE | KEY_CREATE_SUB_KEY | KEY_CREATE_LINK | kDelete | kWriteDac | kWriteOwner;

bool may_write(Store &store, DWORD *code) {
    SharedPage *const page = store.CurrentPage();
    *code = page != nullptr && page->MayWrite() ? ERROR_SUCCESS : store.WriteCode();
    return *code == ERROR_SUCCESS;
}

// Turns the access that a caller asks for into the rights of a handle. Returns a code.
DWORD grant(Store &store, DWORD asked, DWORD *rights) {
    *rights = asked & KEY_ALL_ACCESS;
    constexpr std::pair<DWORD, DWORD> kGenericRights[] = {{kGenericRead, KEY_READ},
                                                          {kGenericExecute, KEY_EXECUTE},
                                                          {kGenericWrite, KEY_WRITE},
                                                          {kGenericAll, KEY_ALL_ACCESS}};
    for (const auto &[generic, meaning] : kGenericRights) {
        *rights |= (asked & generic) != 0 ? meaning : 0;
    }
    DWORD code = ERROR_SUCCESS;
    if ((*rights & kWriteRights) != 0 && !may_write(store, &code)) {
        return code;
    }
    if ((asked & kMaximumAllowed) != 0) {
        *rights |= may_write(store, &code) ? KEY_ALL_ACCESS : KEY_READ;
    }
    return ERROR_SUCCESS;
}

// Finds the key at a path below a handle. Returns a code.
DWORD find_key(HKEY handle, std::u16string_view upper, Store **store, KeyPointer *key) {
    KeyView view;
    if (const DWORD code = view_key(handle, 0, &view)) {
        return code;
    }
    *store = view.store;
    if (!is_path(upper)) {
        return ERROR_BAD_PATHNAME;
    }
    DWORD code = ERROR_SUCCESS;
    if (find_cached_key(view, upper, key, &code)) {
        return code;
    }
    OpenKey base;
    if ((code = find_open_key(handle, 0, &base)) != ERROR_SUCCESS) {
        return code;
    }
    return ostrel_platform::find_key(base.key, upper, key);
}

DWORD open_key(HKEY handle, const WCHAR *subkey, DWORD access, HKEY *result) {
    const UpperName path(subkey, true);
    Store *store = nullptr;
    KeyPointer key;
    if (const DWORD code = find_key(handle, path.Text(), &store, &key)) {
        return code;
    }
    DWORD rights = 0;
    if (const DWORD code = grant(*store, access, &rights)) {
        return code;
    }
    *result = KeyHandles::Instance().Open(std::move(key), rights);
    return ERROR_SUCCESS;
}

// A path as its caller wrote it, without one '\' at its end.
std::u16string_view spelled_path(const WCHAR *subkey) {
    std::u16string_view path(subkey);
    if (path.size() > 1 && path.back() == u'\\') {
        path.remove_suffix(1);
    }
    return path;
}

DWORD create_key(HKEY handle, const WCHAR *subkey, const NewKey &options, DWORD access,
                 HKEY *result, DWORD *disposition) {
    OpenKey base;
    if (const DWORD code = find_open_key(handle, 0, &base)) {
        return code;
    }
    DWORD rights = 0;
    if (const DWORD code = grant(*base.key->store, access, &rights)) {
        return code;
    }
    const std::u16string_view path = spelled_path(subkey);
    if (!is_path(path)) {
        return ERROR_BAD_PATHNAME;
    }
    MadeKey made;
    const DWORD code = base.key->store->Write([&](Database &database, Changes &changes) {
        const DWORD missing = check_exists(database, *base.key);
        return missing != 0 ? missing
                            : make_key(database, *base.key, path, options, &changes, &made);
    });
    if (code != ERROR_SUCCESS) {
        return code;
    }
    *result = KeyHandles::Instance().Open(
        made.keys.size() > 1 ? key_below(*base.key, made.keys, made.is_volatile) : base.key,
        rights);
    if (disposition != nullptr) {
        *disposition = made.is_new ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    }
    return ERROR_SUCCESS;
}

// Deletes the key at a path by `remove(database, key, changes)`.
template <class Remove>
DWORD delete_at(HKEY handle, const WCHAR *subkey, DWORD rights, Remove remove) {
    OpenKey base;
    if (const DWORD code = find_open_key(handle, rights, &base)) {
        return code;
    }
    const UpperName path(subkey, true);
    if (!is_path(path.Text())) {
        return ERROR_BAD_PATHNAME;
    }
    return base.key->store->Write([&](Database &database, Changes &changes) -> DWORD {
        KeyPointer key;
        const DWORD code = find_key_in(database, base.key, path.Text(), &key);
        return code != ERROR_SUCCESS ? code : remove(database, *key, &changes);
    });
}

}  // namespace
}  // namespace ostrel_platform

using namespace ostrel_platform;

LSTATUS RegOpenKeyExW(HKEY key, const WCHAR *subkey, DWORD options, REGSAM access,
                      HKEY *result) noexcept {
    if (result == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    *result = nullptr;
    return registry_call(key, 0, [&](const KeyView &) -> DWORD {
        if ((options & ~(REG_OPTION_BACKUP_RESTORE | REG_OPTION_OPEN_LINK)) != 0 ||
            has_both_views(access) || (subkey == nullptr && !KeyHandles::IsRoot(key))) {
            return ERROR_INVALID_PARAMETER;
        }
        return open_key(key, subkey, access, result);
    });
}

LSTATUS RegCreateKeyExW(HKEY key, const WCHAR *subkey, DWORD reserved, WCHAR *class_name,
                        DWORD options, REGSAM access, SECURITY_ATTRIBUTES *, HKEY *result,
                        DWORD *disposition) noexcept {
    if (result == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    *result = nullptr;
    return registry_call(key, 0, [&](const KeyView &) -> DWORD {
        if (subkey == nullptr || reserved != 0 || has_both_views(access) ||
            (options & ~(REG_OPTION_VOLATILE | REG_OPTION_BACKUP_RESTORE)) != 0) {
            return ERROR_INVALID_PARAMETER;
        }
        // What exists needs no transaction.
        const DWORD code = open_key(key, subkey, access, result);
        if (code == ERROR_SUCCESS && disposition != nullptr) {
            *disposition = REG_OPENED_EXISTING_KEY;
        }
        if (code != ERROR_FILE_NOT_FOUND) {
            return code;
        }
        const NewKey new_key{class_name != nullptr ? class_name : u"",
                             (options & REG_OPTION_VOLATILE) != 0};
        return create_key(key, subkey, new_key, access, result, disposition);
    });
}

LSTATUS RegCloseKey(HKEY key) noexcept {
    return registry_call([&]() -> DWORD {
        std::shared_ptr<Watch> watch;
        if (!KeyHandles::Instance().Close(key, &watch)) {
            return KeyHandles::IsRoot(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
        }
        if (watch != nullptr) {
            watch->End();
        }
        return ERROR_SUCCESS;
    });
}

LSTATUS RegDeleteKeyExW(HKEY key, const WCHAR *subkey, REGSAM access, DWORD reserved) noexcept {
    return registry_call(key, 0, [&](const KeyView &) -> DWORD {
        if (subkey == nullptr || reserved != 0 || has_both_views(access)) {
            return ERROR_INVALID_PARAMETER;
        }
        return delete_at(key, subkey, 0, delete_key);
    });
}

LSTATUS RegDeleteKeyW(HKEY key, const WCHAR *subkey) noexcept {
    return RegDeleteKeyExW(key, subkey, 0, 0);
}

LSTATUS RegDeleteTreeW(HKEY key, const WCHAR *subkey) noexcept {
    return registry_call([&]() -> DWORD {
        constexpr DWORD kRights = kDelete | KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE;
        if (subkey != nullptr && *subkey != 0) {
            return delete_at(key, subkey, kRights, delete_tree);
        }
        return delete_at(
            key, subkey, kRights,
            [key](Database &database, const Key &emptied, Changes *changes) -> DWORD {
                KeyView view;
                const bool has_values =
                    Query(database, Sql::kValueAt).Bind(emptied.id).Bind(0).Step();
                const DWORD code = view_key(key, has_values ? KEY_SET_VALUE : 0, &view);
                return code != ERROR_SUCCESS ? code : empty_key(database, emptied, changes);
            });
    });
}
