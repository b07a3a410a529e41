// RegGetValueW: reads a value of a subkey, checks its type and completes its text.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "ostrel/platform/registry/key_names.h"
#include "ostrel/platform/registry/registry_call.h"
#include "ostrel/platform/registry/value_answers.h"
#include "ostrel/platform/system.h"

namespace ostrel_platform {
namespace {

constexpr DWORD kTypes = 0xFFFF;

bool takes_type(DWORD flags, DWORD type) {
    constexpr std::pair<DWORD, DWORD> kTaken[] = {
        {REG_NONE, RRF_RT_REG_NONE},          {REG_SZ, RRF_RT_REG_SZ},
        {REG_BINARY, RRF_RT_REG_BINARY},      {REG_DWORD, RRF_RT_REG_DWORD},
        {REG_QWORD, RRF_RT_REG_QWORD},        {REG_MULTI_SZ, RRF_RT_REG_MULTI_SZ},
        {REG_EXPAND_SZ, RRF_RT_REG_EXPAND_SZ}};
    if ((flags & kTypes) == RRF_RT_ANY) {
        return true;
    }
    return std::any_of(std::begin(kTaken), std::end(kTaken), [&](const auto &taken) {
        return taken.first == type && (flags & taken.second) != 0;
    });
}

// Replaces each %NAME% that is a variable of the environment.
std::u16string expand(std::u16string_view text) {
    std::u16string expanded;
    while (!text.empty()) {
        const std::size_t begin = text.find(u'%');
        const std::size_t end = begin == text.npos ? text.npos : text.find(u'%', begin + 1);
        expanded += text.substr(0, begin);
        if (end == text.npos) {
            expanded += begin == text.npos ? std::u16string_view() : text.substr(begin);
            break;
        }
        const std::u16string name(text.substr(begin + 1, end - begin - 1));
        errno = 0;
        const WCHAR *const value = name.empty() ? nullptr : _wgetenv(name.c_str());
        if (value == nullptr && errno == ENOMEM) {
            throw std::bad_alloc();
        }
        if (value != nullptr) {
            expanded += value;
            text.remove_prefix(end + 1);
        } else {  // the second '%' may begin a name
            expanded += text.substr(begin, end - begin);
            text.remove_prefix(end);
        }
    }
    return expanded;
}

// The text of a value with the NULs that its type has.
std::u16string completed(std::u16string text, DWORD type) {
    const std::size_t wanted = type == REG_MULTI_SZ ? 2 : 1;
    std::size_t found = 0;
    while (found < std::min(wanted, text.size()) && text[text.size() - 1 - found] == 0) {
        ++found;
    }
    // An empty list is one NUL.
    const bool is_empty_list = type == REG_MULTI_SZ && text.size() == found;
    text.append((is_empty_list ? std::max<std::size_t>(found, 1) : wanted) - found, u'\0');
    return text;
}

struct Wanted {
    DWORD flags;
    DWORD *type;
    void *data;
    DWORD *size;
};

DWORD hand_over(std::string bytes, DWORD type, const Wanted &wanted) {
    const bool expands = type == REG_EXPAND_SZ && (wanted.flags & RRF_NOEXPAND) == 0;
    const DWORD shown = expands ? REG_SZ : type;
    if (!takes_type(wanted.flags, shown) && !takes_type(wanted.flags, type)) {
        return ERROR_UNSUPPORTED_TYPE;
    }
    if (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ) {
        std::u16string text = completed(name_of_bytes(bytes), type);
        if (expands) {
            text = expand(text.substr(0, text.find(u'\0'))) + u'\0';
        }
        bytes = bytes_of_name(text);
    }
    if (wanted.type != nullptr) {
        *wanted.type = shown;
    }
    if (wanted.size == nullptr) {
        return ERROR_SUCCESS;
    }
    const DWORD capacity = *wanted.size;
    *wanted.size = static_cast<DWORD>(bytes.size());
    if (wanted.data == nullptr) {
        return ERROR_SUCCESS;
    }
    if (capacity < bytes.size()) {
        return ERROR_MORE_DATA;
    }
    std::memcpy(wanted.data, bytes.data(), bytes.size());
    return ERROR_SUCCESS;
}

DWORD get_value(HKEY key, const WCHAR *name, const Wanted &wanted) {
    KeyView view;
    if (const DWORD code = view_key(key, KEY_QUERY_VALUE, &view)) {
        return code;
    }
    const UpperName upper(name, false);
    std::string value;
    DWORD type = 0;
    const DWORD code =
        with_value(view, upper.Text(), [&](DWORD found, DWORD value_type, std::string_view bytes) {
            value = bytes;
            type = value_type;
            return found;
        });
    return code != ERROR_SUCCESS ? code : hand_over(std::move(value), type, wanted);
}

}  // namespace
}  // namespace ostrel_platform

using namespace ostrel_platform;

LSTATUS RegGetValueW(HKEY key, const WCHAR *subkey, const WCHAR *name, DWORD flags, DWORD *type,
                     void *data, DWORD *size) noexcept {
    constexpr DWORD kViews = RRF_SUBKEY_WOW6464KEY | RRF_SUBKEY_WOW6432KEY;
    const DWORD capacity = size != nullptr ? *size : 0;
    const LSTATUS code = registry_call(key, 0, [&](const KeyView &) -> DWORD {
        if ((flags & kTypes) == 0 || (flags & kViews) == kViews ||
            (data != nullptr && size == nullptr) ||
            ((flags & kTypes) == RRF_RT_REG_EXPAND_SZ && (flags & RRF_NOEXPAND) == 0)) {
            return ERROR_INVALID_PARAMETER;
        }
        const Wanted wanted{flags, type, data, size};
        if (subkey == nullptr || *subkey == 0) {
            return get_value(key, name, wanted);
        }
        HKEY opened = nullptr;
        if (const LSTATUS found = RegOpenKeyExW(key, subkey, 0, KEY_QUERY_VALUE, &opened)) {
            return static_cast<DWORD>(found);
        }
        const DWORD result = get_value(opened, name, wanted);
        RegCloseKey(opened);
        return result;
    });
    if (code != ERROR_SUCCESS && (flags & RRF_ZEROONFAILURE) != 0 && data != nullptr) {
        std::memset(data, 0, capacity);
    }
    return code;
}
