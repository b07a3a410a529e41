#include "ostrel/platform/error.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

namespace {

struct Message {
    DWORD code;
    std::u16string_view text;
};

constexpr Message kMessages[] = {
#define OSTREL_ERROR(name, number, text, ...) {name, TEXT(text "\r\n")},
#include "ostrel/platform/error_codes.inc"
#undef OSTREL_ERROR
};

static_assert(std::is_sorted(std::begin(kMessages), std::end(kMessages),
                             [](const Message &a, const Message &b) { return a.code < b.code; }));

const Message *find_message(DWORD id) {
    constexpr DWORD kWin32Result = 0x80070000;  // an HRESULT that wraps an error code
    const DWORD code = (id & 0xFFFF0000) == kWin32Result ? id & 0xFFFF : id;
    const auto *const found = std::lower_bound(
        std::begin(kMessages), std::end(kMessages), code,
        [](const Message &message, DWORD wanted) { return message.code < wanted; });
    const bool known = found != std::end(kMessages) && found->code == code;
    return known && found->text != TEXT("\r\n") ? found : nullptr;
}

DWORD fail(DWORD code) {
    SetLastError(code);
    return 0;
}

thread_local DWORD t_lastError = ERROR_SUCCESS;

}  // namespace

DWORD GetLastError() noexcept {
    return t_lastError;
}

void SetLastError(DWORD code) noexcept {
    t_lastError = code;
}

DWORD FormatMessageW(DWORD flags, LPCVOID /*source*/, DWORD id, DWORD language, WCHAR *buffer,
                     DWORD size, std::va_list *args) {
    const bool allocate = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    constexpr DWORD kOptions = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS;
    if (buffer == nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    WCHAR *const none = nullptr;
    if (allocate) {
        std::memcpy(buffer, &none, sizeof none);
    }
    if ((flags & ~kOptions) != FORMAT_MESSAGE_FROM_SYSTEM || args != nullptr) {
        return fail(ERROR_INVALID_PARAMETER);
    }
    if (language != 0 && language != 0x400 && language != 0x409) {
        return fail(ERROR_RESOURCE_LANG_NOT_FOUND);
    }
    const Message *const message = find_message(id);
    if (message == nullptr) {
        return fail(ERROR_MR_MID_NOT_FOUND);
    }
    const std::u16string_view text = message->text;
    const bool has_insert = text.find(u'%') != std::u16string_view::npos;
    if (has_insert && (flags & FORMAT_MESSAGE_IGNORE_INSERTS) == 0) {
        return fail(ERROR_INVALID_PARAMETER);
    }

    WCHAR *target = buffer;
    if (allocate) {
        const std::size_t count = std::max<std::size_t>(text.size() + 1, size);
        target = static_cast<WCHAR *>(std::malloc(count * sizeof(WCHAR)));
        if (target == nullptr) {
            return fail(ERROR_NOT_ENOUGH_MEMORY);
        }
        std::memcpy(buffer, &target, sizeof target);
    } else if (size <= text.size()) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    text.copy(target, text.size());
    target[text.size()] = 0;
    return static_cast<DWORD>(text.size());
}

HLOCAL LocalFree(HLOCAL block) noexcept {
    std::free(block);
    return nullptr;
}
