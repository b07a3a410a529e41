#include "ostrel/platform/crt_text.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#ifdef __has_feature
#define OSTREL_CHECKED (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OSTREL_CHECKED 1
#else
#define OSTREL_CHECKED 0
#endif

namespace {

constexpr char16_t to_lower(char16_t c) {
    return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 0x20) : c;
}

template <class Char>
constexpr char16_t unit(Char c) {
    return static_cast<std::make_unsigned_t<Char>>(c);
}

constexpr char16_t unit(WCHAR c) {
    return c;
}

template <class Char>
int compare_no_case(const Char *left, const Char *right) {
    if (left == nullptr || right == nullptr) {
        errno = EINVAL;
        return INT_MAX;
    }
    for (;; ++left, ++right) {
        const char16_t a = unit(*left);
        const char16_t b = unit(*right);
        if (a != b && to_lower(a) != to_lower(b)) {
            return to_lower(a) - to_lower(b);
        }
        if (a == 0) {
            return 0;
        }
    }
}

// A set of characters that answers for ASCII without a search.
class CharacterSet {
public:
    explicit CharacterSet(const WCHAR *members) : m_members(members) {
        for (; *members != 0; ++members) {
            if (*members < 128) {
                m_ascii[*members / 64] |= std::uint64_t{1} << (*members % 64);
            } else {
                m_beyondAscii = true;
            }
        }
    }

    bool Has(WCHAR c) const {
        if (c < 128) {
            return (m_ascii[c / 64] >> (c % 64)) & 1;
        }
        if (m_beyondAscii) {
            for (const WCHAR *p = m_members; *p != 0; ++p) {
                if (*p == c) {
                    return true;
                }
            }
        }
        return false;
    }

private:
    const WCHAR *m_members;
    std::uint64_t m_ascii[2] = {0, 0};
    bool m_beyondAscii = false;
};

// The value of a digit in bases up to 36; 36 for any other character.
constexpr int digit_value(WCHAR c) {
    const WCHAR upper = towupper(c);
    return c >= u'0' && c <= u'9'           ? c - u'0'
           : upper >= u'A' && upper <= u'Z' ? upper - u'A' + 10
                                            : 36;
}

thread_local WCHAR *t_nextToken = nullptr;

}  // namespace

int _wcsicmp(const WCHAR *left, const WCHAR *right) noexcept {
    return compare_no_case(left, right);
}

int _stricmp(const char *left, const char *right) noexcept {
    return compare_no_case(left, right);
}

// Reads whole blocks, which never reach into a page that the text does not touch; a checked build,
// which would see the bytes around the text, reads character by character.
#if defined(__SSE2__) && !OSTREL_CHECKED
std::size_t wcslen(const WCHAR *text) noexcept {
    constexpr std::uintptr_t kPage = 4096;
    constexpr std::uintptr_t kBlock = 64;
    const auto zeros = [](std::uintptr_t block) {  // two bits for each character that is 0
        const auto zeros_at = [block](std::uintptr_t offset) {
            const auto *const at = reinterpret_cast<const __m128i *>(block + offset);
            const __m128i found = _mm_cmpeq_epi16(_mm_loadu_si128(at), _mm_setzero_si128());
            return std::uint64_t{static_cast<unsigned>(_mm_movemask_epi8(found))};
        };
        return zeros_at(0) | zeros_at(16) << 16 | zeros_at(32) << 32 | zeros_at(48) << 48;
    };
    // The first block begins with the text where it can: a text that has just been stored, in such
    // blocks, is read back at once only as it was written.
    const auto address = reinterpret_cast<std::uintptr_t>(text);
    const std::uintptr_t before = address % kPage <= kPage - kBlock ? 0 : address % kBlock;
    std::uintptr_t block = address - before;
    std::uint64_t found = zeros(block) >> before << before;
    while (found == 0) {
        block = block / kBlock * kBlock + kBlock;
        found = zeros(block);
    }
    return (block + static_cast<unsigned>(__builtin_ctzll(found)) - address) / sizeof(WCHAR);
}
#else
std::size_t wcslen(const WCHAR *text) noexcept {
    std::size_t length = 0;
    while (text[length] != 0) {
        ++length;
    }
    return length;
}
#endif

std::size_t wcscspn(const WCHAR *text, const WCHAR *set) noexcept {
    const CharacterSet members(set);
    std::size_t length = 0;
    while (text[length] != 0 && !members.Has(text[length])) {
        ++length;
    }
    return length;
}

int _wtoi(const WCHAR *text) noexcept {
    if (text == nullptr) {
        errno = EINVAL;
        return 0;
    }
    while (iswspace(*text)) {
        ++text;
    }
    const bool negative = *text == u'-';
    if (negative || *text == u'+') {
        ++text;
    }
    const std::int64_t limit = negative ? -std::int64_t{INT_MIN} : INT_MAX;
    std::int64_t value = 0;
    for (; *text >= u'0' && *text <= u'9'; ++text) {
        value = value * 10 + (*text - u'0');
        if (value > limit) {
            errno = ERANGE;
            value = limit;
            break;
        }
    }
    return static_cast<int>(negative ? -value : value);
}

LONG wcstol(const WCHAR *text, WCHAR **end, int base) noexcept {
    const WCHAR *behind = text;
    std::int64_t value = 0;
    bool negative = false;
    if (text == nullptr || base < 0 || base == 1 || base > 36) {
        errno = EINVAL;
    } else {
        const WCHAR *at = text;
        while (iswspace(*at)) {
            ++at;
        }
        negative = *at == u'-';
        at += negative || *at == u'+';
        const bool prefixed = at[0] == u'0' && towupper(at[1]) == u'X' && digit_value(at[2]) < 16;
        if (base == 0) {
            base = prefixed ? 16 : *at == u'0' ? 8 : 10;
        }
        at += prefixed && base == 16 ? 2 : 0;
        const std::int64_t limit = negative ? -std::int64_t{INT32_MIN} : INT32_MAX;
        for (; digit_value(*at) < base; behind = ++at) {
            value = std::min(value * base + digit_value(*at), limit + 1);
        }
        if (value > limit) {
            errno = ERANGE;
            value = limit;
        }
    }
    if (end != nullptr) {
        *end = const_cast<WCHAR *>(behind);
    }
    return static_cast<LONG>(negative ? -value : value);
}

WCHAR *wcstok(WCHAR *text, const WCHAR *delimiters) noexcept {
    if (text == nullptr) {
        text = t_nextToken;
    }
    if (text == nullptr || delimiters == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    const CharacterSet set(delimiters);
    while (*text != 0 && set.Has(*text)) {
        ++text;
    }
    WCHAR *end = text;
    while (*end != 0 && !set.Has(*end)) {
        ++end;
    }
    t_nextToken = end;
    if (end == text) {
        return nullptr;
    }
    if (*end != 0) {
        *end = 0;
        t_nextToken = end + 1;
    }
    return text;
}

int _wcslwr_s(WCHAR *text, std::size_t count) noexcept {
    const WCHAR *const end = text != nullptr ? std::find(text, text + count, u'\0') : text;
    if (text == nullptr || end == text + count) {
        if (text != nullptr && count > 0) {
            *text = 0;
        }
        errno = EINVAL;
        return EINVAL;
    }
    std::transform(text, text + (end - text), text, to_lower);
    return 0;
}

int platform_iswspace(WCHAR character) noexcept {
    if (character < 0x80) {
        return character == 0x20 || (character >= 0x09 && character <= 0x0D);
    }
    return character == 0x85 || (U_MASK(u_charType(character)) & U_GC_Z_MASK) != 0;
}

int platform_iswalpha(WCHAR character) noexcept {
    if (character < 0x80) {
        const WCHAR upper = towupper(character);
        return upper >= u'A' && upper <= u'Z';
    }
    return u_isalpha(character);
}

int platform_iswdigit(WCHAR character) noexcept {
    return character < 0x80 ? character >= u'0' && character <= u'9' : u_isdigit(character);
}

void _wsplitpath(const WCHAR *path, WCHAR *drive, WCHAR *directory, WCHAR *name,
                 WCHAR *extension) noexcept {
    struct Part {
        WCHAR *buffer;
        std::size_t size;
        const WCHAR *begin;
        const WCHAR *end;
    };
    Part parts[] = {{drive, _MAX_DRIVE, path, path},
                    {directory, _MAX_DIR, path, path},
                    {name, _MAX_FNAME, path, path},
                    {extension, _MAX_EXT, path, path}};
    bool fits = path != nullptr;
    if (path == nullptr) {
        errno = EINVAL;
    } else {
        const WCHAR *const rest = path[0] != 0 && path[1] == u':' ? path + 2 : path;
        const WCHAR *file = rest;
        const WCHAR *dot = nullptr;
        const WCHAR *end = rest;
        for (; *end != 0; ++end) {
            if (*end == u'\\' || *end == u'/') {
                file = end + 1;
                dot = nullptr;
            } else if (*end == u'.') {
                dot = end;
            }
        }
        const WCHAR *const stem = dot != nullptr ? dot : end;
        const WCHAR *const cuts[] = {path, rest, file, stem, end};
        for (std::size_t i = 0; i < 4; ++i) {
            parts[i].begin = cuts[i];
            parts[i].end = cuts[i + 1];
            const bool wanted = parts[i].buffer != nullptr;
            fits = fits &&
                   (!wanted || static_cast<std::size_t>(cuts[i + 1] - cuts[i]) < parts[i].size);
        }
        if (!fits) {
            errno = ERANGE;
        }
    }
    for (const Part &part : parts) {
        if (part.buffer != nullptr) {
            WCHAR *out = part.buffer;
            for (const WCHAR *p = part.begin; fits && p != part.end; ++p) {
                *out++ = *p;
            }
            *out = 0;
        }
    }
}
