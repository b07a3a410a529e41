#ifndef OSTREL_CORE_CHARACTER_FINDER_H
#define OSTREL_CORE_CHARACTER_FINDER_H

// Internal. Finds any of up to eight characters in a text, 64 positions at a time.

#include <cstddef>
#include <cstdint>
#include <span>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "ostrel/platform/types.h"

namespace OS::detail {

template <class Char>
class CharacterFinder {
public:
    static constexpr std::size_t kMax = 8;     // the most characters that a finder looks for
    static constexpr std::size_t kBlock = 64;  // positions that a mask covers, one bit each

    // `wanted` holds kMax characters or fewer.
    explicit CharacterFinder(std::span<const Char> wanted) : m_count(wanted.size()) {
        for (std::size_t n = 0; n < m_count; ++n) {
            m_wanted[n] = Repeated(wanted[n]);
        }
    }

    // Returns a mask whose bit i is set when text[i] is one of the characters. Reads kBlock
    // characters at `text`.
    std::uint64_t Mask(const Char *text) const {
        std::uint64_t mask = 0;
        for (std::size_t at = 0; at < kBlock; at += kStep) {
            mask |= std::uint64_t{StepMask(text + at)} << at;
        }
        return mask;
    }

private:
#ifdef __SSE2__
    using Wanted = __m128i;
    static constexpr std::size_t kStep = 16;

    static Wanted Repeated(Char c) {
        return sizeof(Char) == 1 ? _mm_set1_epi8(static_cast<char>(c))
                                 : _mm_set1_epi16(static_cast<short>(c));
    }

    unsigned StepMask(const Char *text) const {
        const auto *const in = reinterpret_cast<const __m128i *>(text);
        const __m128i low = _mm_loadu_si128(in);
        __m128i found = _mm_setzero_si128();
        if constexpr (sizeof(Char) == 1) {
            for (std::size_t n = 0; n < m_count; ++n) {
                found = _mm_or_si128(found, _mm_cmpeq_epi8(low, m_wanted[n]));
            }
        } else {
            const __m128i high = _mm_loadu_si128(in + 1);
            __m128i found_high = found;
            for (std::size_t n = 0; n < m_count; ++n) {
                found = _mm_or_si128(found, _mm_cmpeq_epi16(low, m_wanted[n]));
                found_high = _mm_or_si128(found_high, _mm_cmpeq_epi16(high, m_wanted[n]));
            }
            found = _mm_packs_epi16(found, found_high);
        }
        return static_cast<unsigned>(_mm_movemask_epi8(found));
    }
#else
    using Wanted = Char;
    static constexpr std::size_t kStep = 1;

    static Wanted Repeated(Char c) {
        return c;
    }

    unsigned StepMask(const Char *text) const {
        bool found = false;
        for (std::size_t n = 0; n < m_count; ++n) {
            found |= *text == m_wanted[n];
        }
        return found;
    }
#endif

    Wanted m_wanted[kMax];
    std::size_t m_count;
};

}  // namespace OS::detail

#endif  // OSTREL_CORE_CHARACTER_FINDER_H
