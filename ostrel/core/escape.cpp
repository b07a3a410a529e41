#include "ostrel/core/escape.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <array>
#include <bit>
#include <span>
#include <string_view>

namespace OS::detail {
namespace {

struct Escape {
    char character;
    std::string_view text;  // ASCII
};

constexpr Escape kMarkup[] = {{'&', "&amp;"},   {'"', "&quot;"},  {'<', "&lt;"},   {'>', "&gt;"},
                              {'\r', "&#x0D;"}, {'\n', "&#x0A;"}, {'\'', "&#039;"}};
constexpr Escape kMarkupBlanks[] = {{' ', "&nbsp;"}, {'\t', "&nbsp;"}};
constexpr Escape kCString[] = {{'\\', "\\\\"}, {'"', "\\\""}, {'\'', "\\'"}};

constexpr std::size_t kMostEscapes = std::size(kMarkup);

std::span<const Escape> escapes_of(EscapeSet set) {
    switch (set) {
        case EscapeSet::kMarkupBlanks:
            return kMarkupBlanks;
        case EscapeSet::kCString:
            return kCString;
        case EscapeSet::kMarkupApostrophe:
            return kMarkup;
        case EscapeSet::kMarkup:
            break;
    }
    return std::span(kMarkup).first(kMostEscapes - 1);
}

constexpr std::size_t kBlock = 16;  // characters that are looked at in one go

// One bit for each of the characters of a block that the set holds.
template <class Char>
class Finder {
public:
    explicit Finder(std::span<const Escape> escapes) : m_count(escapes.size()) {
        for (std::size_t i = 0; i < m_count; ++i) {
#ifdef __SSE2__
            m_wanted[i] = sizeof(Char) == 1 ? _mm_set1_epi8(escapes[i].character)
                                            : _mm_set1_epi16(escapes[i].character);
#else
            m_wanted[i] = static_cast<Char>(escapes[i].character);
#endif
        }
    }

    unsigned Find(const Char *block) const {
#ifdef __SSE2__
        const auto *const in = reinterpret_cast<const __m128i *>(block);
        __m128i first = _mm_setzero_si128();
        const __m128i low = _mm_loadu_si128(in);
        if constexpr (sizeof(Char) == 1) {
            for (std::size_t i = 0; i < m_count; ++i) {
                first = _mm_or_si128(first, _mm_cmpeq_epi8(low, m_wanted[i]));
            }
        } else {
            __m128i second = first;
            const __m128i high = _mm_loadu_si128(in + 1);
            for (std::size_t i = 0; i < m_count; ++i) {
                first = _mm_or_si128(first, _mm_cmpeq_epi16(low, m_wanted[i]));
                second = _mm_or_si128(second, _mm_cmpeq_epi16(high, m_wanted[i]));
            }
            first = _mm_packs_epi16(first, second);
        }
        return static_cast<unsigned>(_mm_movemask_epi8(first));
#else
        unsigned found = 0;
        for (std::size_t at = 0; at < kBlock; ++at) {
            for (std::size_t i = 0; i < m_count; ++i) {
                found |= static_cast<unsigned>(block[at] == m_wanted[i]) << at;
            }
        }
        return found;
#endif
    }

private:
#ifdef __SSE2__
    __m128i m_wanted[kMostEscapes];
#else
    Char m_wanted[kMostEscapes];
#endif
    std::size_t m_count;
};

template <class Char>
void escape_text(std::basic_string<Char> *text, std::span<const Escape> escapes,
                 std::uint64_t limit) {
    const Finder<Char> finder(escapes);
    std::uint64_t counts[kMostEscapes] = {};
    std::basic_string<Char> escaped;
    const Char *const begin = text->data();
    const std::size_t length = text->size();
    std::size_t copied = 0;

    const auto replace = [&](std::size_t at) {
        std::size_t which = 0;
        while (begin[at] != static_cast<Char>(escapes[which].character)) {
            ++which;
        }
        if (counts[which]++ < limit) {
            if (escaped.empty()) {
                escaped.reserve(length + length / 8);
            }
            escaped.append(begin + copied, at - copied);
            escaped.append(escapes[which].text.begin(), escapes[which].text.end());
            copied = at + 1;
        }
    };

    std::size_t at = 0;
    for (; at + kBlock <= length; at += kBlock) {
        for (unsigned found = finder.Find(begin + at); found != 0; found &= found - 1) {
            replace(at + static_cast<std::size_t>(std::countr_zero(found)));
        }
    }
    if (at < length) {
        std::array<Char, kBlock> rest{};  // the NULs behind are in no set
        std::copy(begin + at, begin + length, rest.begin());
        for (unsigned found = finder.Find(rest.data()); found != 0; found &= found - 1) {
            replace(at + static_cast<std::size_t>(std::countr_zero(found)));
        }
    }
    if (copied != 0) {
        escaped.append(begin + copied, length - copied);
        *text = std::move(escaped);
    }
}

}  // namespace

void escape(std::string *text, EscapeSet set, std::uint64_t limit) {
    escape_text(text, escapes_of(set), limit);
}

void escape(std::basic_string<WCHAR> *text, EscapeSet set, std::uint64_t limit) {
    escape_text(text, escapes_of(set), limit);
}

}  // namespace OS::detail
