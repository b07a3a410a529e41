#include "ostrel/platform/codepage.h"

#include <climits>
#include <cstring>
#include <new>
#include <string_view>

#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/text/charset.h"
#include "ostrel/platform/text/utf8.h"

namespace {

using ostrel_platform::kTooSmall;

int fail(DWORD code) noexcept {
    SetLastError(code);
    return 0;
}

// A negative length includes the NUL.
std::string_view source_text(const char *source, int length) {
    return {source, length < 0 ? std::strlen(source) + 1 : static_cast<std::size_t>(length)};
}
std::u16string_view source_text(const WCHAR *source, int length) {
    return {source, length < 0 ? wcslen(source) + 1 : static_cast<std::size_t>(length)};
}

// The body of both calls. `convert` and `measure` take the text and the code page.
template <class From, class To, class Convert, class Measure>
int convert_text(unsigned code_page, DWORD flags, const From *source, int length, To *target,
                 int capacity, Convert convert, Measure measure) noexcept try {
    if (code_page == CP_ACP || code_page == CP_OEMCP || code_page == CP_THREAD_ACP) {
        code_page = ostrel_platform::system_code_page();
    }
    if (source == nullptr || length == 0 || capacity < 0 ||
        (capacity > 0 && static_cast<const void *>(source) == target) ||
        !ostrel_platform::is_code_page(code_page)) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    if (flags != 0) {
        return fail(ERROR_INVALID_FLAGS);
    }
    if (capacity > 0 && target == nullptr) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    const auto text = source_text(source, length);
    const std::size_t stored =
        capacity == 0 ? measure(text, code_page)
                      : convert(text, code_page, target, static_cast<std::size_t>(capacity));
    if (stored == kTooSmall) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    return stored > INT_MAX ? fail(ERROR_INVALID_PARAMETER) : static_cast<int>(stored);
} catch (const std::bad_alloc &) {
    return fail(ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace

unsigned GetACP() noexcept try {
    return ostrel_platform::system_code_page();
} catch (const std::bad_alloc &) {
    return CP_UTF8;  // the next call tries again
}

int MultiByteToWideChar(unsigned code_page, DWORD flags, const char *source, int length,
                        WCHAR *target, int capacity) noexcept {
    return convert_text(code_page, flags, source, length, target, capacity,
                        ostrel_platform::to_wide_within, ostrel_platform::wide_length);
}

int WideCharToMultiByte(unsigned code_page, DWORD flags, const WCHAR *source, int length,
                        char *target, int capacity, const char *default_char,
                        BOOL *used_default) noexcept {
    if (default_char != nullptr || used_default != nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    return convert_text(code_page, flags, source, length, target, capacity,
                        ostrel_platform::to_narrow_within, ostrel_platform::narrow_length);
}
