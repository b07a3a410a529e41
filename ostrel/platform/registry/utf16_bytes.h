#ifndef OSTREL_PLATFORM_REGISTRY_UTF16_BYTES_H
#define OSTREL_PLATFORM_REGISTRY_UTF16_BYTES_H

// Internal. Text in values and files is UTF-16LE in bytes, whatever the byte order of the host.

#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

inline void append_utf16_bytes(WCHAR unit, std::string *bytes) {
    bytes->push_back(static_cast<char>(unit & 0xFF));
    bytes->push_back(static_cast<char>(unit >> 8));
}

inline void append_utf16_bytes(std::u16string_view units, std::string *bytes) {
    bytes->reserve(bytes->size() + 2 * units.size());
    for (const WCHAR unit : units) {
        append_utf16_bytes(unit, bytes);
    }
}

// Returns the units in `bytes`. Leaves out half a unit at the end.
inline std::u16string utf16_of_bytes(std::string_view bytes) {
    std::u16string units(bytes.size() / 2, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<WCHAR>(static_cast<unsigned char>(bytes[2 * i]) |
                                      static_cast<unsigned char>(bytes[2 * i + 1]) << 8);
    }
    return units;
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_UTF16_BYTES_H
