// Listing subkeys and values, and the facts of a key.

#include <algorithm>
#include <cstring>

#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/registry_call.h"

namespace ostrel_platform {
namespace {

FILETIME file_time(std::int64_t time) {
    const auto number = static_cast<std::uint64_t>(time);
    return {static_cast<DWORD>(number), static_cast<DWORD>(number >> 32)};
}

// Whether a text and its NUL fit.
bool fits(std::string_view name, const DWORD *capacity) {
    return name.size() / 2 < *capacity;
}

void store_text(std::string_view bytes, WCHAR *text, DWORD *count) {
    std::memcpy(text, bytes.data(), bytes.size());
    text[bytes.size() / 2] = 0;
    *count = static_cast<DWORD>(bytes.size() / 2);
}

// The cursor of a handle, and what has to hold for it to be right.
class CursorUse {
public:
    CursorUse(HKEY handle, const KeyView &key, bool of_values)
        : m_handle(handle), m_ofValues(of_values), m_page(key.store->CurrentPage()) {
        if (m_page != nullptr) {
            m_counter = m_page->Counter(bucket_of(key.id));
            cursor = KeyHandles::Instance().TakeCursor(handle, of_values);
        }
    }

    bool LeadsTo(DWORD index) const {
        return m_page != nullptr && cursor.page == m_page->Name().number &&
               cursor.counter == m_counter && index > 0 && cursor.index == index - 1;
    }

    void Keep(DWORD index) {
        if (m_page != nullptr && SharedPage::IsAtRest(m_counter)) {
            cursor.page = m_page->Name().number;
            cursor.counter = m_counter;
            cursor.index = index;
            KeyHandles::Instance().PutCursor(m_handle, m_ofValues, std::move(cursor));
        }
    }

    Cursor cursor;

private:
    HKEY m_handle;
    bool m_ofValues;
    SharedPage *m_page;
    std::uint64_t m_counter = 0;
};

struct Subkey {
    std::string name, class_name, sort_key;
    std::int64_t written = 0;
};

// Reads the subkey at an index. Returns a code.
DWORD read_subkey(const KeyView &key, DWORD index, const CursorUse &use, Subkey *found) {
    DWORD code = ERROR_SUCCESS;
    key.store->Read([&](Database &database) {
        const bool goes_on = use.LeadsTo(index);
        Query query(database, goes_on ? Sql::kSubkeyAfter : Sql::kSubkeyAt);
        query.Bind(key.id);
        if (goes_on) {
            query.Bind(use.cursor.subkey).Bind(host_boot());
        } else {
            query.Bind(host_boot()).Bind(index);
        }
        if (query.Step()) {
            *found = {std::string(query.Bytes(0)), std::string(query.Bytes(1)),
                      std::string(query.Bytes(3)), query.Number(2)};
            code = ERROR_SUCCESS;
        } else {
            code = key_exists(database, key.id) ? ERROR_NO_MORE_ITEMS : ERROR_KEY_DELETED;
        }
    });
    return code;
}

struct FoundValue {
    std::string name, bytes;
    DWORD type = 0;
    std::int64_t id = 0;
};

DWORD read_value_at(const KeyView &key, DWORD index, const CursorUse &use, FoundValue *found) {
    DWORD code = ERROR_SUCCESS;
    key.store->Read([&](Database &database) {
        const bool goes_on = use.LeadsTo(index);
        Query query(database, goes_on ? Sql::kValueAfter : Sql::kValueAt);
        query.Bind(key.id).Bind(goes_on ? use.cursor.value : index);
        if (query.Step()) {
            *found = {std::string(query.Bytes(0)), std::string(query.Bytes(2)),
                      static_cast<DWORD>(query.Number(1)), query.Number(3)};
            code = ERROR_SUCCESS;
        } else {
            code = key_exists(database, key.id) ? ERROR_NO_MORE_ITEMS : ERROR_KEY_DELETED;
        }
    });
    return code;
}

struct KeyFacts {
    std::string class_name;
    std::int64_t written = 0;
    std::int64_t subkeys = 0, longest_subkey = 0, longest_class = 0;
    std::int64_t values = 0, longest_value_name = 0, longest_value = 0;
};

// Subkeys and values are only counted where that is wanted: it takes time for each.
DWORD read_facts(const KeyView &key, bool of_subkeys, bool of_values, KeyFacts *facts) {
    DWORD code = ERROR_SUCCESS;
    key.store->Read([&](Database &database) {
        Query query(database, Sql::kKeyFacts);
        code = query.Bind(key.id).Step() ? ERROR_SUCCESS : ERROR_KEY_DELETED;
        if (code != ERROR_SUCCESS) {
            return;
        }
        facts->class_name = query.Bytes(0);
        facts->written = query.Number(1);
        if (of_subkeys) {
            Query subkeys(database, Sql::kSubkeyFacts);
            subkeys.Bind(key.id).Bind(host_boot()).Step();
            facts->subkeys = subkeys.Number(0);
            facts->longest_subkey = subkeys.Number(1) / 2;
            facts->longest_class = subkeys.Number(2) / 2;
        }
        if (of_values) {
            Query values(database, Sql::kValueFacts);
            values.Bind(key.id).Step();
            facts->values = values.Number(0);
            facts->longest_value_name = values.Number(1) / 2;
            facts->longest_value = values.Number(2);
        }
    });
    return code;
}

void store_number(std::int64_t number, DWORD *target) {
    if (target != nullptr) {
        *target = static_cast<DWORD>(std::min<std::int64_t>(number, UINT32_MAX));
    }
}

}  // namespace
}  // namespace ostrel_platform

using namespace ostrel_platform;

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, WCHAR *name, DWORD *name_count, DWORD *reserved,
                      WCHAR *class_name, DWORD *class_count, FILETIME *written) noexcept {
    return registry_call(key, KEY_ENUMERATE_SUB_KEYS, [&](const KeyView &view) -> DWORD {
        if (name == nullptr || name_count == nullptr || reserved != nullptr ||
            (class_name != nullptr && class_count == nullptr)) {
            return ERROR_INVALID_PARAMETER;
        }
        CursorUse use(key, view, false);
        Subkey found;
        if (const DWORD code = read_subkey(view, index, use, &found)) {
            return code;
        }
        use.cursor.subkey = found.sort_key;
        use.Keep(index);
        if (!fits(found.name, name_count) ||
            (class_name != nullptr && !fits(found.class_name, class_count))) {
            return ERROR_MORE_DATA;
        }
        store_text(found.name, name, name_count);
        if (class_name != nullptr) {
            store_text(found.class_name, class_name, class_count);
        } else if (class_count != nullptr) {
            *class_count = static_cast<DWORD>(found.class_name.size() / 2);
        }
        if (written != nullptr) {
            *written = file_time(found.written);
        }
        return ERROR_SUCCESS;
    });
}

LSTATUS RegEnumValueW(HKEY key, DWORD index, WCHAR *name, DWORD *name_count, DWORD *reserved,
                      DWORD *type, BYTE *data, DWORD *size) noexcept {
    return registry_call(key, KEY_QUERY_VALUE, [&](const KeyView &view) -> DWORD {
        if (name == nullptr || name_count == nullptr || reserved != nullptr ||
            (data != nullptr && size == nullptr)) {
            return ERROR_INVALID_PARAMETER;
        }
        CursorUse use(key, view, true);
        FoundValue found;
        if (const DWORD code = read_value_at(view, index, use, &found)) {
            return code;
        }
        use.cursor.value = found.id;
        use.Keep(index);
        if (!fits(found.name, name_count)) {
            return ERROR_MORE_DATA;
        }
        const DWORD capacity = size != nullptr ? *size : 0;
        if (size != nullptr) {
            *size = static_cast<DWORD>(found.bytes.size());
        }
        if (data != nullptr && capacity < found.bytes.size()) {
            return ERROR_MORE_DATA;
        }
        store_text(found.name, name, name_count);
        if (type != nullptr) {
            *type = found.type;
        }
        if (data != nullptr) {
            std::copy(found.bytes.begin(), found.bytes.end(), data);
        }
        return ERROR_SUCCESS;
    });
}

LSTATUS RegQueryInfoKeyW(HKEY key, WCHAR *class_name, DWORD *class_count, DWORD *reserved,
                         DWORD *subkeys, DWORD *longest_subkey, DWORD *longest_class, DWORD *values,
                         DWORD *longest_value_name, DWORD *longest_value, DWORD *security_size,
                         FILETIME *written) noexcept {
    return registry_call(key, KEY_QUERY_VALUE, [&](const KeyView &view) -> DWORD {
        if (reserved != nullptr || (class_name != nullptr && class_count == nullptr)) {
            return ERROR_INVALID_PARAMETER;
        }
        KeyFacts facts;
        const bool of_subkeys =
            subkeys != nullptr || longest_subkey != nullptr || longest_class != nullptr;
        const bool of_values =
            values != nullptr || longest_value_name != nullptr || longest_value != nullptr;
        if (const DWORD code = read_facts(view, of_subkeys, of_values, &facts)) {
            return code;
        }
        store_number(facts.subkeys, subkeys);
        store_number(facts.longest_subkey, longest_subkey);
        store_number(facts.longest_class, longest_class);
        store_number(facts.values, values);
        store_number(facts.longest_value_name, longest_value_name);
        store_number(facts.longest_value, longest_value);
        store_number(0, security_size);
        if (written != nullptr) {
            *written = file_time(facts.written);
        }
        const bool is_cut = class_name != nullptr && !fits(facts.class_name, class_count);
        if (class_name != nullptr && !is_cut) {
            store_text(facts.class_name, class_name, class_count);
        } else if (class_count != nullptr) {
            *class_count = static_cast<DWORD>(facts.class_name.size() / 2);
        }
        return is_cut ? ERROR_MORE_DATA : ERROR_SUCCESS;
    });
}
