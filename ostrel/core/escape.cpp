#include "ostrel/core/escape.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <algorithm>
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

// Calls take(place) for each character that the set holds.
template <class Char, class Take>
void for_each_found(const std::basic_string<Char> &text, const Finder<Char> &finder, Take take) {
    const auto take_block = [&](std::size_t at, const Char *block) {
        for (unsigned found = finder.Find(block); found != 0; found &= found - 1) {
            take(at + static_cast<std::size_t>(std::countr_zero(found)));
        }
    };
    std::size_t at = 0;
    for (; at + kBlock <= text.size(); at += kBlock) {
        take_block(at, text.data() + at);
    }
    Char rest[kBlock] = {};  // the NULs behind are in no set
    std::copy(text.data() + at, text.data() + text.size(), rest);
    take_block(at, rest);
}

template <class Char>
void escape_text(std::basic_string<Char> *text, std::span<const Escape> escapes,
                 std::uint64_t limit) {
    const Finder<Char> finder(escapes);
    std::basic_string<Char> replacements[kMostEscapes];
    std::size_t longest = 0;
    for (std::size_t i = 0; i < escapes.size(); ++i) {
        replacements[i].assign(escapes[i].text.begin(), escapes[i].text.end());
        longest = std::max(longest, replacements[i].size());
    }
    std::size_t found = 0;
    for_each_found(*text, finder, [&](std::size_t) { ++found; });
    if (found == 0) {
        return;
    }
    std::basic_string<Char> escaped;
    const std::uint64_t replaced =
        found > limit ? std::min<std::uint64_t>(found, limit * escapes.size()) : found;
    escaped.reserve(text->size() + replaced * (longest - 1));
    std::uint64_t counts[kMostEscapes] = {};
    std::size_t copied = 0;
    for_each_found(*text, finder, [&](std::size_t at) {
        std::size_t which = 0;
        while ((*text)[at] != static_cast<Char>(escapes[which].character)) {
            ++which;
        }
        if (counts[which]++ < limit) {
            escaped.append(*text, copied, at - copied);
            escaped.append(replacements[which]);
            copied = at + 1;
        }
    });
    escaped.append(*text, copied);
    *text = std::move(escaped);
}

}  // namespace

void escape(std::string *text, EscapeSet set, std::uint64_t limit) {
    escape_text(text, escapes_of(set), limit);
}

void escape(std::basic_string<WCHAR> *text, EscapeSet set, std::uint64_t limit) {
    escape_text(text, escapes_of(set), limit);
}

}  // namespace OS::detail
