#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/base/ascii.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <iterator>
#include <limits>

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

using ostrel_platform::digit_value;

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

// A set of characters that finds ASCII members without a search.
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

// Reads the number at the start of a text, as wcstol does. `*behind` receives the end of the number
// and stays unchanged without a number. Sets errno to ERANGE for a number out of range.
LONG read_long(const WCHAR *at, int base, const WCHAR **behind) {
    while (iswspace(*at)) {
        ++at;
    }
    const bool negative = *at == u'-';
    at += negative || *at == u'+';
    const bool prefixed = at[0] == u'0' && towupper(at[1]) == u'X' && digit_value(at[2]) < 16;
    if (base == 0) {
        base = prefixed ? 16 : *at == u'0' ? 8 : 10;
    }
    at += prefixed && base == 16 ? 2 : 0;
    const std::int64_t limit = negative ? -std::int64_t{INT32_MIN} : INT32_MAX;
    std::int64_t value = 0;
    for (; digit_value(*at) < base; *behind = ++at) {
        value = std::min(value * base + digit_value(*at), limit + 1);
    }
    if (value > limit) {
        errno = ERANGE;
        value = limit;
    }
    return static_cast<LONG>(negative ? -value : value);
}

// The beginnings of drive, directory, name and extension of a path, and its end.
using PathCuts = std::array<const WCHAR *, 5>;

PathCuts cuts_of(const WCHAR *path) {
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
    return {path, rest, file, dot != nullptr ? dot : end, end};
}

thread_local WCHAR *t_nextToken = nullptr;

}  // namespace

int _wcsicmp(const WCHAR *left, const WCHAR *right) noexcept {
    return compare_no_case(left, right);
}

int _stricmp(const char *left, const char *right) noexcept {
    return compare_no_case(left, right);
}

// Reads whole blocks, which may include bytes around the text, but never a page that the text does
// not touch. Sanitizers would report those bytes, so that a build with sanitizers reads character
// by character.
#if defined(__SSE2__) && !OSTREL_CHECKED
std::size_t wcsnlen(const WCHAR *text, std::size_t limit) noexcept {
    constexpr std::uintptr_t kPage = 4096;
    constexpr std::uintptr_t kBlock = 64;
    const auto zeros = [](std::uintptr_t block) {  // a bit for each character that is 0
        const auto zeros_at = [block](std::uintptr_t offset) {
            const auto *const at = reinterpret_cast<const __m128i *>(block + offset);
            return _mm_cmpeq_epi16(_mm_loadu_si128(at), _mm_setzero_si128());
        };
        const auto bits_at = [&zeros_at](std::uintptr_t offset) {
            const __m128i both = _mm_packs_epi16(zeros_at(offset), zeros_at(offset + 16));
            return static_cast<unsigned>(_mm_movemask_epi8(both));
        };
        return bits_at(0) | bits_at(32) << 16;
    };
    if (limit == 0) {
        return 0;
    }
    // The first block begins with the text, unless it would cross into the next page. The processor
    // forwards a text that was just stored in such blocks only to loads at the same addresses.
    const auto address = reinterpret_cast<std::uintptr_t>(text);
    const std::uintptr_t before = address % kPage <= kPage - kBlock ? 0 : address % kBlock;
    std::uintptr_t block = address - before;
    unsigned found = zeros(block) >> before / sizeof(WCHAR) << before / sizeof(WCHAR);
    while (found == 0) {
        block = block / kBlock * kBlock + kBlock;
        if ((block - address) / sizeof(WCHAR) >= limit) {
            return limit;
        }
        found = zeros(block);
    }
    // The first block may begin in front of the text, so only the sum is not negative.
    const std::uintptr_t end = block + sizeof(WCHAR) * static_cast<unsigned>(__builtin_ctz(found));
    return std::min<std::size_t>((end - address) / sizeof(WCHAR), limit);
}
#else
std::size_t wcsnlen(const WCHAR *text, std::size_t limit) noexcept {
    std::size_t length = 0;
    while (length < limit && text[length] != 0) {
        ++length;
    }
    return length;
}
#endif

std::size_t wcslen(const WCHAR *text) noexcept {
    return wcsnlen(text, std::numeric_limits<std::size_t>::max());
}

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
    const WCHAR *behind = nullptr;
    return read_long(text, 10, &behind);
}

LONG wcstol(const WCHAR *text, WCHAR **end, int base) noexcept {
    const WCHAR *behind = text;
    LONG value = 0;
    if (text == nullptr || base < 0 || base == 1 || base > 36) {
        errno = EINVAL;
    } else {
        value = read_long(text, base, &behind);
    }
    if (end != nullptr) {
        *end = const_cast<WCHAR *>(behind);
    }
    return value;
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
    const PathCuts cuts = path != nullptr ? cuts_of(path) : PathCuts{};
    const struct {
        WCHAR *buffer;
        std::size_t capacity;
    } parts[] = {
        {drive, _MAX_DRIVE}, {directory, _MAX_DIR}, {name, _MAX_FNAME}, {extension, _MAX_EXT}};
    bool fits = true;
    for (std::size_t i = 0; i < std::size(parts); ++i) {
        fits = fits && (parts[i].buffer == nullptr ||
                        static_cast<std::size_t>(cuts[i + 1] - cuts[i]) < parts[i].capacity);
    }
    if (path == nullptr || !fits) {
        errno = path == nullptr ? EINVAL : ERANGE;
    }
    for (std::size_t i = 0; i < std::size(parts); ++i) {
        if (WCHAR *const buffer = parts[i].buffer) {
            *std::copy(cuts[i], fits ? cuts[i + 1] : cuts[i], buffer) = 0;
        }
    }
}
