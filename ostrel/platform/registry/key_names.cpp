#include "ostrel/platform/registry/key_names.h"

#include <unicode/uchar.h>

#include <cstring>

namespace ostrel_platform {

WCHAR upper_unit_beyond_ascii(WCHAR unit) noexcept {
    const UChar32 upper = u_toupper(unit);
    return upper > 0 && upper <= 0xFFFF ? static_cast<WCHAR>(upper) : unit;
}

UpperName::UpperName(const WCHAR *text, bool is_path) {
    if (text == nullptr) {
        return;
    }
    while (m_size < kOnStack && text[m_size] != 0) {
        m_stack[m_size] = upper_unit(text[m_size]);
        ++m_size;
    }
    if (m_size == kOnStack) {
        m_heap = upper_of(text);
        m_data = m_heap.data();
        m_size = m_heap.size();
    }
    if (is_path && m_size > 1 && m_data[m_size - 1] == u'\\') {
        --m_size;
    }
}

std::u16string upper_of(std::u16string_view text) {
    std::u16string upper(text);
    for (WCHAR &unit : upper) {
        unit = upper_unit(unit);
    }
    return upper;
}

std::string bytes_of_name(std::u16string_view name) {
    std::string bytes(2 * name.size(), '\0');
    if (!name.empty()) {
        std::memcpy(bytes.data(), name.data(), bytes.size());
    }
    return bytes;
}

std::string sort_key_of(std::u16string_view upper) {
    std::string bytes;
    bytes.reserve(2 * upper.size());
    for (const WCHAR unit : upper) {
        bytes.push_back(static_cast<char>(unit >> 8));
        bytes.push_back(static_cast<char>(unit & 0xFF));
    }
    return bytes;
}

std::u16string name_of_bytes(std::string_view bytes) {
    std::u16string name(bytes.size() / 2, u'\0');
    if (!name.empty()) {
        std::memcpy(name.data(), bytes.data(), 2 * name.size());
    }
    return name;
}

bool is_path(std::u16string_view path) noexcept {
    return path.empty() ||
           (path.front() != u'\\' && path.back() != u'\\' && path.find(u"\\\\") == path.npos);
}

}  // namespace ostrel_platform
