#ifndef OSTREL_PLATFORM_REGISTRY_KEY_NAMES_H
#define OSTREL_PLATFORM_REGISTRY_KEY_NAMES_H

// Internal. Names of keys and values: their upper case, by which they are compared, and the form in
// which the database holds both.

#include <cstddef>
#include <string>
#include <string_view>

#include "ostrel/platform/registry.h"

namespace ostrel_platform {

inline constexpr std::size_t kMaxKeyName = 256;      // units
inline constexpr std::size_t kMaxValueName = 16383;  // units
inline constexpr std::size_t kMaxNewLevels = 32;
inline constexpr std::size_t kMaxDepth = 512;  // of a key below the root of its store

// Returns Unicode's simple upper case of a unit beyond ASCII. A unit whose upper case is no single
// unit, a surrogate too, stays.
WCHAR upper_unit_beyond_ascii(WCHAR unit) noexcept;

inline WCHAR upper_unit(WCHAR unit) noexcept {
    if (unit < 0x80) {
        return unit >= u'a' && unit <= u'z' ? static_cast<WCHAR>(unit - 0x20) : unit;
    }
    return upper_unit_beyond_ascii(unit);
}

// A name in upper case. Short names need no memory of the heap.
class UpperName {
public:
    // Takes a text up to its NUL; null is "". A '\' at the end is left out when `is_path`.
    UpperName(const WCHAR *text, bool is_path);

    std::u16string_view Text() const { return {m_data, m_size}; }

private:
    static constexpr std::size_t kOnStack = 128;

    WCHAR m_stack[kOnStack];  // set up to m_size
    std::u16string m_heap;
    const WCHAR *m_data = m_stack;
    std::size_t m_size = 0;
};

std::u16string upper_of(std::u16string_view text);

// The bytes of units, as the database holds a name (low byte first) and an upper case name (high
// byte first, so that the order of the bytes is that of the units), and back.
std::string bytes_of_name(std::u16string_view name);
std::string sort_key_of(std::u16string_view upper);
std::u16string name_of_bytes(std::string_view bytes);

// Splits the first name off a path. `rest` loses the name and the '\' behind it.
inline std::u16string_view take_name(std::u16string_view *rest) {
    const std::size_t end = rest->find(u'\\');
    const std::u16string_view name = rest->substr(0, end);
    rest->remove_prefix(end == rest->npos ? rest->size() : end + 1);
    return name;
}

// Whether a path, without the '\' that may end it, has only names that are not empty.
bool is_path(std::u16string_view path) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_KEY_NAMES_H
