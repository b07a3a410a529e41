// Reading, setting and deleting values.

#include <cstring>

#include "ostrel/platform/codepage.h"
#include "ostrel/platform/registry/key_changes.h"
#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/registry_call.h"
#include "ostrel/platform/registry/value_answers.h"
#include "ostrel/platform/text/charset.h"

namespace ostrel_platform {
namespace {

constexpr std::size_t kMaxValue = 512 << 20;  // bytes; SQLite's own limit is 1,000,000,000

// Hands a value to the caller's buffers.
DWORD deliver(std::string_view bytes, DWORD value_type, DWORD *type, BYTE *data, DWORD *size) {
    if (type != nullptr) {
        *type = value_type;
    }
    if (size == nullptr) {
        return ERROR_SUCCESS;
    }
    const DWORD capacity = *size;
    *size = static_cast<DWORD>(bytes.size());
    if (data == nullptr) {
        return ERROR_SUCCESS;
    }
    if (capacity < bytes.size()) {
        return ERROR_MORE_DATA;
    }
    std::memcpy(data, bytes.data(), bytes.size());
    return ERROR_SUCCESS;
}

bool is_text(DWORD type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

// The text of a value in the system code page. An odd byte at the end is left out.
std::string narrow_value(std::string_view bytes) {
    return to_narrow(name_of_bytes(bytes));
}

DWORD set_by_handle(HKEY handle, std::u16string_view name, DWORD reserved, DWORD type,
                    const void *data, std::size_t size) {
    OpenKey open;
    if (const DWORD code = find_open_key(handle, KEY_SET_VALUE, &open)) {
        return code;
    }
    if (reserved != 0 || name.size() > kMaxValueName || (data == nullptr && size != 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    if (size > kMaxValue) {
        return ERROR_NO_SYSTEM_RESOURCES;
    }
    const std::string_view bytes(static_cast<const char *>(data), size);
    return open.key->store->Write([&](Database &database, Changes &changes) {
        const DWORD code = check_exists(database, *open.key);
        if (code == ERROR_SUCCESS) {
            set_value(database, *open.key, name, type, bytes, &changes);
        }
        return code;
    });
}

std::u16string_view text_or_empty(const WCHAR *text) {
    return text != nullptr ? std::u16string_view(text) : std::u16string_view();
}

std::u16string wide_name(const char *name) {
    return name != nullptr ? to_wide(name) : std::u16string();
}

}  // namespace
}  // namespace ostrel_platform

using namespace ostrel_platform;

LSTATUS RegQueryValueExW(HKEY key, const WCHAR *name, DWORD *reserved, DWORD *type, BYTE *data,
                         DWORD *size) noexcept {
    return registry_call(key, KEY_QUERY_VALUE, [&](const KeyView &view) -> DWORD {
        if (reserved != nullptr || (data != nullptr && size == nullptr)) {
            return ERROR_INVALID_PARAMETER;
        }
        const UpperName upper(name, false);
        return with_value(
            view, upper.Text(), [&](DWORD code, DWORD value_type, std::string_view bytes) {
                return code != ERROR_SUCCESS ? code : deliver(bytes, value_type, type, data, size);
            });
    });
}

LSTATUS RegQueryValueExA(HKEY key, const char *name, DWORD *reserved, DWORD *type, BYTE *data,
                         DWORD *size) noexcept {
    return registry_call(key, KEY_QUERY_VALUE, [&](const KeyView &view) -> DWORD {
        if (reserved != nullptr || (data != nullptr && size == nullptr)) {
            return ERROR_INVALID_PARAMETER;
        }
        const std::u16string upper = upper_of(wide_name(name));
        std::string value;
        DWORD value_type = 0;
        const DWORD found =
            with_value(view, upper, [&](DWORD code, DWORD stored_type, std::string_view bytes) {
                value = bytes;
                value_type = stored_type;
                return code;
            });
        if (found != ERROR_SUCCESS) {
            return found;
        }
        // Outside the lock of the cache.
        return deliver(is_text(value_type) ? narrow_value(value) : value, value_type, type, data,
                       size);
    });
}

LSTATUS RegSetValueExW(HKEY key, const WCHAR *name, DWORD reserved, DWORD type, const BYTE *data,
                       DWORD size) noexcept {
    return registry_call(
        [&] { return set_by_handle(key, text_or_empty(name), reserved, type, data, size); });
}

LSTATUS RegSetValueExA(HKEY key, const char *name, DWORD reserved, DWORD type, const BYTE *data,
                       DWORD size) noexcept {
    return registry_call([&] {
        const std::u16string wide = wide_name(name);
        // A narrow text of more than 1 GiB is too long in every code page.
        if (!is_text(type) || data == nullptr || size > 2 * kMaxValue) {
            return set_by_handle(key, wide, reserved, type, data, size);
        }
        const std::u16string text = to_wide({reinterpret_cast<const char *>(data), size});
        return set_by_handle(key, wide, reserved, type, text.data(), 2 * text.size());
    });
}

LSTATUS RegDeleteValueW(HKEY key, const WCHAR *name) noexcept {
    return registry_call([&]() -> DWORD {
        OpenKey open;
        if (const DWORD code = find_open_key(key, KEY_SET_VALUE, &open)) {
            return code;
        }
        return open.key->store->Write([&](Database &database, Changes &changes) -> DWORD {
            if (const DWORD code = check_exists(database, *open.key)) {
                return code;
            }
            return delete_value(database, *open.key, text_or_empty(name), &changes)
                       ? ERROR_SUCCESS
                       : ERROR_FILE_NOT_FOUND;
        });
    });
}

LSTATUS RegFlushKey(HKEY key) noexcept {
    return registry_call(key, 0, [&](const KeyView &view) -> DWORD {
        view.store->Flush();
        return ERROR_SUCCESS;
    });
}
