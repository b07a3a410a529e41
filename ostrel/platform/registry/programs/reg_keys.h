#ifndef OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_KEYS_H
#define OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_KEYS_H

// Internal. Keys as ostrel-reg names and reads them.

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ostrel/platform/registry.h"

namespace ostrel_platform {

// The name of a key: a root and a path below it.
struct KeyName {
    DWORD root = 0;  // registry_roots.h
    std::u16string path;

    HKEY Root() const { return make_registry_root(static_cast<std::int32_t>(root)); }
    std::u16string Full() const;  // with the root's name in full
    // Returns the full name of the key at `below`, "" for this key itself.
    std::u16string Full(std::u16string_view below) const;
};

// Reads the name of a key from an argument: the root in full or short (HKLM), then names between
// '\'. When the argument has no '\', '/' separates too. Throws a RegFailure.
KeyName key_name_of(std::string_view argument);

// An open key, which is closed at the end of the scope.
class ScopedKey {
public:
    ScopedKey() = default;
    ScopedKey(ScopedKey &&other) noexcept : m_key(std::exchange(other.m_key, nullptr)) {}
    ScopedKey &operator=(ScopedKey &&other) noexcept {
        std::swap(m_key, other.m_key);
        return *this;
    }
    ~ScopedKey() {
        if (m_key != nullptr) {
            RegCloseKey(m_key);
        }
    }

    HKEY Get() const { return m_key; }

    // Opens a key, and creates it when `creates`. Throws a RegFailure.
    static ScopedKey Open(const KeyName &name, REGSAM access, bool creates = false);

private:
    HKEY m_key = nullptr;
};

struct ValueContents {
    std::u16string name;
    DWORD type;
    std::string bytes;

    bool operator==(const ValueContents &) const = default;
};

struct KeyContents {
    std::u16string path;  // below the key that was read
    std::u16string class_name;
    std::vector<ValueContents> values;
};

// Reads a key and, when `below`, all keys below it, in one snapshot. Throws a RegFailure.
std::vector<KeyContents> read_keys(HKEY key, bool below);

// Returns the names of the keys directly below a key.
std::vector<std::u16string> subkeys_of(HKEY key);

// Reads a value. Returns nothing when there is none. Throws a RegFailure.
std::optional<ValueContents> read_value(HKEY key, const std::u16string &name);

// Returns the text of a code of error.h.
std::string message_of_code(DWORD code);

// Throws a RegFailure with the text of the code unless the code is ERROR_SUCCESS.
void require_success(DWORD code);
inline void require_success(LSTATUS status) {
    require_success(static_cast<DWORD>(status));
}

// Whether two names are equal without regard to case.
bool is_same_key_name(std::u16string_view a, std::u16string_view b);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_KEYS_H
