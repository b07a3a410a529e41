#include "ostrel/core/convert.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

#include "ostrel/core/raw_text.h"
#include "ostrel/core/text_length.h"
#include "ostrel/platform/codepage.h"

namespace OS {
namespace {

// The platform's call for a terminated text, by the width of the target. Each call asks for the
// system code page anew.
struct CallInSystemPage {
    int operator()(const char *text, WCHAR *target, int capacity) const {
        return MultiByteToWideChar(GetACP(), 0, text, -1, target, capacity);
    }
    int operator()(const WCHAR *text, char *target, int capacity) const {
        return WideCharToMultiByte(GetACP(), 0, text, -1, target, capacity, nullptr, nullptr);
    }
};

struct CallInUtf8 {
    int operator()(const char *text, WCHAR *target, int capacity) const {
        return MultiByteToWideChar(CP_UTF8, 0, text, -1, target, capacity);
    }
    int operator()(const WCHAR *text, char *target, int capacity) const {
        return WideCharToMultiByte(CP_UTF8, 0, text, -1, target, capacity, nullptr, nullptr);
    }
};

// Asks for the size, then converts in place. `spare` is added to the size.
template <class To, class Call, class From>
std::basic_string<To> converted(const From *text, Call call, int spare) {
    std::basic_string<To> result;
    const int needed = call(text, static_cast<To *>(nullptr), 0);
    if (needed > 0) {
        const int capacity = needed + std::min(spare, INT_MAX - needed);
        result.resize(static_cast<std::size_t>(capacity));
        call(text, result.data(), capacity);
        result.resize(detail::text_length(result.c_str()));
    }
    return result;
}

template <class Char>
void copy_to_new(const Char *text, Char **target) {
    const std::size_t size = (detail::text_length(text) + 1) * sizeof(Char);
    *target = static_cast<Char *>(std::memcpy(::operator new(size), text, size));
}

template <class From, class To>
void convert_to_new(const From *text, To **target) {
    const int needed = CallInSystemPage()(text, static_cast<To *>(nullptr), 0);
    if (needed > 0) {
        const std::size_t size = static_cast<std::size_t>(needed) * sizeof(To);
        *target = static_cast<To *>(std::memset(::operator new(size), 0, size));
        CallInSystemPage()(text, *target, needed);
    }
}

}  // namespace

namespace detail {

void new_text(const WCHAR *text, WCHAR **target) {
    copy_to_new(text, target);
}
void new_text(const WCHAR *text, char **target) {
    convert_to_new(text, target);
}
void new_text(const char *text, WCHAR **target) {
    convert_to_new(text, target);
}
void new_text(const char *text, char **target) {
    copy_to_new(text, target);
}

}  // namespace detail

x_wstring CharToWChar(const x_astring &text, const char *) {
    return converted<WCHAR>(text.c_str(), CallInSystemPage(), 0);
}

x_astring WCharToChar(const x_wstring &text, const char *) {
    return converted<char>(text.c_str(), CallInSystemPage(), 0);
}

x_astring WCharToUTF8Char(const x_wstring &text, const char *) {
    return converted<char>(text.c_str(), CallInUtf8(), 1);
}

x_wstring UTF8CharToWChar(const x_astring &text, const char *) {
    return converted<WCHAR>(text.c_str(), CallInUtf8(), 1);
}

x_astring CharToUTF8Char(const x_astring &text, const char *unused) {
    return WCharToUTF8Char(CharToWChar(text, unused), unused);
}

}  // namespace OS
