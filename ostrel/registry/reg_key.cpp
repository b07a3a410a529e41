#include "ostrel/registry/reg_key.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "ostrel/core/acc_buffer.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"

namespace OS {

namespace {

template <class Char>
LSTATUS query(HKEY key, const Char *name, BYTE *data, DWORD *size) noexcept {
    DWORD type = 0;
    if constexpr (sizeof(Char) == 1) {
        return RegQueryValueExA(key, name, nullptr, &type, data, size);
    } else {
        return RegQueryValueExW(key, name, nullptr, &type, data, size);
    }
}

// Reads a value as text that ends at its first NUL. The buffer ends with the value, so the length
// comes from the value and not from the buffer.
template <class Text, class Char>
LONG query_text(HKEY key, const Char *name, Text *text) {
    DWORD size = 0;
    LONG status = query(key, name, nullptr, &size);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    // Never null, which would ask for the size again.
    const std::unique_ptr<Char[]> buffer(new Char[(size + sizeof(Char) - 1) / sizeof(Char)]);
    status = query(key, name, reinterpret_cast<BYTE *>(buffer.get()), &size);
    if (status == ERROR_SUCCESS) {
        const std::basic_string_view<Char> value(buffer.get(), size / sizeof(Char));
        *text = std::basic_string<Char>(value.substr(0, value.find(Char())));
    }
    return status;
}

// The bytes of a text with its NUL. What a DWORD cannot hold is more than the platform takes.
template <class Char>
DWORD bytes_with_nul(std::basic_string_view<Char> text) noexcept {
    return static_cast<DWORD>(
        std::min<std::size_t>((text.size() + 1) * sizeof(Char), std::numeric_limits<DWORD>::max()));
}

LONG write(HKEY key, const WCHAR *name, DWORD type, const void *bytes, DWORD size) noexcept {
    return RegSetValueExW(key, name, 0, type, static_cast<const BYTE *>(bytes), size);
}

// Closes the key that `holder` has, and gives it another.
LONG replace(CRegKey *holder, HKEY key) noexcept {
    const LONG status = holder->Close();
    holder->Attach(key);
    return status;
}

}  // namespace

CRegKey::~CRegKey() {
    Close();
}

CRegKey &CRegKey::operator=(const CRegKey &other) noexcept = default;

HKEY CRegKey::Detach() noexcept {
    return std::exchange(m_hKey, nullptr);
}

LONG CRegKey::Close() noexcept {
    const HKEY key = Detach();
    return key != nullptr ? RegCloseKey(key) : ERROR_SUCCESS;
}

LONG CRegKey::Create(HKEY parent, const WCHAR *keyName, WCHAR *className, DWORD options,
                     DWORD access, SECURITY_ATTRIBUTES *security, DWORD *disposition) noexcept {
    HKEY key = nullptr;
    DWORD reported = 0;
    const LONG status =
        RegCreateKeyExW(parent, keyName, 0, className, options, access, security, &key, &reported);
    if (disposition != nullptr) {
        *disposition = reported;
    }
    return status == ERROR_SUCCESS ? replace(this, key) : status;
}

LONG CRegKey::Open(HKEY parent, const WCHAR *keyName, DWORD access) noexcept {
    HKEY key = nullptr;
    LONG status = RegOpenKeyExW(parent, keyName, 0, access | KEY_WOW64_64KEY, &key);
    if (status != ERROR_SUCCESS) {
        status = RegOpenKeyExW(parent, keyName, 0, access, &key);
    }
    return status == ERROR_SUCCESS ? replace(this, key) : status;
}

LONG CRegKey::DeleteSubKey(const WCHAR *name) noexcept {
    return RegDeleteKeyW(m_hKey, name);
}

LONG CRegKey::DeleteValue(const WCHAR *name) noexcept {
    return RegDeleteValueW(m_hKey, name);
}

// The index is always 0: each turn removes the subkey that it found.
LONG CRegKey::RecurseDeleteKey(const WCHAR *keyName) noexcept {
    constexpr DWORD kCapacity = 256;
    CRegKey key;
    LONG status = key.Open(m_hKey, keyName, KEY_ALL_ACCESS);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    WCHAR name[kCapacity];
    FILETIME written;
    DWORD length = kCapacity;
    while (RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, &written) ==
           ERROR_SUCCESS) {
        status = key.RecurseDeleteKey(name);
        if (status != ERROR_SUCCESS) {
            return status;
        }
        length = kCapacity;
    }
    key.Close();
    return RegDeleteKeyW(m_hKey, keyName);
}

LONG CRegKey::SaveKey(const WCHAR *file, SECURITY_ATTRIBUTES *security) noexcept {
    _wremove(file);
    return RegSaveKeyW(m_hKey, file, security);
}

LONG CRegKey::RestoreKey(const WCHAR *file, DWORD flags) noexcept {
    return RegRestoreKeyW(m_hKey, file, flags);
}

LONG CRegKey::QueryValue(DWORD &value, const WCHAR *name) const noexcept {
    DWORD size = sizeof value;
    return query(m_hKey, name, reinterpret_cast<BYTE *>(&value), &size);
}

LONG CRegKey::QueryValue(int &value, const WCHAR *name) const noexcept {
    DWORD number = 0;
    const LONG status = QueryValue(number, name);
    value = number != 0 ? 1 : 0;
    return status;
}

LONG CRegKey::QueryValue(const WCHAR *name, void *data, int size) const noexcept {
    DWORD bytes = static_cast<DWORD>(size);
    return query(m_hKey, name, static_cast<BYTE *>(data), &bytes);
}

LONG CRegKey::QueryValue(WCHAR *text, const WCHAR *name, DWORD *count) const noexcept {
    return query(m_hKey, name, reinterpret_cast<BYTE *>(text), count);
}

LONG CRegKey::QueryValue(const char *name, x_astring &text) const {
    return query_text(m_hKey, name, &text);
}

LONG CRegKey::QueryValue(const WCHAR *name, x_wstring &text) const {
    return query_text(m_hKey, name, &text);
}

LONG CRegKey::QueryDWORDValue(CRegKey &key, const WCHAR *name, DWORD *value) noexcept {
    DWORD number = 0;
    const LONG status = key.QueryValue(number, name);
    if (status == ERROR_SUCCESS) {
        *value = number;
    }
    return status;
}

LONG CRegKey::QueryDWORDValue(HKEY parent, const WCHAR *keyName, const WCHAR *name,
                              DWORD *value) noexcept {
    CRegKey key;
    const LONG status = key.Open(parent, keyName, KEY_READ);
    return status == ERROR_SUCCESS ? QueryDWORDValue(key, name, value) : status;
}

LONG CRegKey::SetValue(DWORD value, const WCHAR *name) noexcept {
    return write(m_hKey, name, REG_DWORD, &value, sizeof value);
}

LONG CRegKey::SetValue(const char *value, const char *name) noexcept {
    const char *const text = value != nullptr ? value : "";
    return RegSetValueExA(m_hKey, name, 0, REG_SZ, reinterpret_cast<const BYTE *>(text),
                          bytes_with_nul<char>(text));
}

LONG CRegKey::SetValue(const WCHAR *value, const WCHAR *name) noexcept {
    const WCHAR *const text = value != nullptr ? value : TEXT("");
    return write(m_hKey, name, REG_SZ, text, bytes_with_nul<WCHAR>(text));
}

LONG CRegKey::SetValue(FILETIME value, const WCHAR *name) noexcept {
    return write(m_hKey, name, REG_QWORD, &value, sizeof value);
}

LONG CRegKey::SetValue(const std::set<x_wstring, XWSTRICMP> &values, const WCHAR *name) {
    constexpr WCHAR kEnd = 0;
    CAccBuffer bytes;
    for (const x_wstring &value : values) {
        if (!value.IsEmpty()) {
            bytes.Append(reinterpret_cast<const unsigned char *>(value.c_str()),
                         bytes_with_nul<WCHAR>(value));
        }
    }
    bytes.Append(reinterpret_cast<const unsigned char *>(&kEnd), sizeof kEnd);
    return write(m_hKey, name, REG_MULTI_SZ, bytes.GetBuffer(), bytes.BytesUsed());
}

LONG CRegKey::SetValue(HKEY parent, const WCHAR *keyName, const WCHAR *value,
                       const WCHAR *name) noexcept {
    CRegKey key;
    const LONG status = key.Create(parent, keyName, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
    return status == ERROR_SUCCESS ? key.SetValue(value, name) : status;
}

LONG CRegKey::SetKeyValue(const WCHAR *keyName, const WCHAR *value, const WCHAR *name) noexcept {
    return SetValue(m_hKey, keyName, value, name);
}

LONG CRegKey::CopyStringValue(CRegKey &source, const WCHAR *name, const WCHAR *newName) noexcept {
    constexpr DWORD kCapacity = 256;                 // bytes
    WCHAR text[kCapacity / sizeof(WCHAR) + 1] = {};  // a value without NUL ends at the last unit
    DWORD count = kCapacity;
    const LONG status = source.QueryValue(text, name, &count);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    text[count / sizeof(WCHAR)] = 0;
    return SetValue(text, newName != nullptr ? newName : name);
}

LONG CRegKey::CopyDwordValue(CRegKey &source, const WCHAR *name, const WCHAR *newName) noexcept {
    DWORD number = 0;
    const LONG status = source.QueryValue(number, name);
    return status == ERROR_SUCCESS ? SetValue(number, newName != nullptr ? newName : name) : status;
}

}  // namespace OS
