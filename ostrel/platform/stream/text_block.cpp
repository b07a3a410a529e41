#include "ostrel/platform/stream/text_block.h"

#include <algorithm>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace ostrel_platform {

#ifdef __SSE2__
namespace {

constexpr std::size_t kVector = 8;  // units

__m128i load(const WCHAR *at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
}

void store(WCHAR *at, __m128i units) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(at), units);
}

// The least number of valid bits that EndsFrom returns.
constexpr std::size_t kScanBits = 57;

// The units that TakeLine stores at most: one for each of 64 bits, and the vector behind them.
constexpr std::size_t kLineCapacity = 64 + kVector;

}  // namespace

void TextBlock::Fill(std::size_t count, bool text) {
    const __m128i line_feed = _mm_set1_epi8('\n');
    const __m128i carriage_return = text ? _mm_set1_epi8('\r') : line_feed;
    const __m128i ctrl_z = text ? _mm_set1_epi8('\x1A') : line_feed;
    std::size_t at = 0;
    for (; at < count; at += 2 * kVector) {
        // A unit above 255 saturates to 0 or 255, at which no line ends.
        const __m128i bytes = _mm_packus_epi16(load(m_units + at), load(m_units + at + kVector));
        const __m128i ends = _mm_or_si128(
            _mm_cmpeq_epi8(bytes, line_feed),
            _mm_or_si128(_mm_cmpeq_epi8(bytes, carriage_return), _mm_cmpeq_epi8(bytes, ctrl_z)));
        const auto bits = static_cast<std::uint16_t>(_mm_movemask_epi8(ends));
        std::memcpy(m_ends + at / 8, &bits, sizeof bits);
    }
    m_next = 0;
    m_end = count;
    // Each scan stops behind the last unit. The unit there must be neither CR nor LF.
    m_units[count] = 0;
    std::memset(m_ends + at / 8, 0, sizeof(std::uint64_t));
    m_ends[count / 8] = static_cast<unsigned char>(m_ends[count / 8] | 1U << count % 8);
}

// Returns the bits of the units from `at`; the lowest bit is that of `at`.
inline std::uint64_t TextBlock::EndsFrom(std::size_t at) const {
    std::uint64_t bits;
    std::memcpy(&bits, m_ends + at / 8, sizeof bits);
    return bits >> at % 8;
}

std::size_t TextBlock::TakeRun(WCHAR *out, std::size_t capacity) {
    std::size_t run = 0;
    std::uint64_t ends = EndsFrom(m_next);
    while (ends == 0 && run < capacity) {
        run += kScanBits;
        ends = EndsFrom(m_next + run);
    }
    run += ends != 0 ? static_cast<unsigned>(__builtin_ctzll(ends)) : 0;
    run = std::min(run, capacity);
    std::memcpy(out, m_units + m_next, run * sizeof(WCHAR));
    m_next += run;
    return run;
}

bool TextBlock::TakeLine(WCHAR *line, std::size_t count) {
    const std::uint64_t ends = EndsFrom(m_next);
    if (ends == 0 || count < kLineCapacity) {
        return false;
    }
    const auto run = static_cast<std::size_t>(__builtin_ctzll(ends));
    const WCHAR *const in = m_units + m_next;
    const std::size_t end = in[run] == u'\r' ? run + 1 : run;
    if (in[end] != u'\n') {
        return false;
    }
    std::size_t at = 0;
    do {
        for (const std::size_t next = at + 4 * kVector; at < next; at += kVector) {
            store(line + at, load(in + at));
        }
    } while (at < run);
    // Stores the LF and the NUL in whole vectors, too, so that a caller that measures the line at
    // once does not wait for stores of single units to reach the cache. The loads from the two
    // tables begin where they keep the run's units of the last vector and put the LF and NULs
    // behind them.
    static constexpr WCHAR kKeep[2 * kVector] = {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF,
                                                 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF};
    static constexpr WCHAR kEnd[2 * kVector] = {0, 0, 0, 0, 0, 0, 0, 0, u'\n'};
    const std::size_t last = run / kVector * kVector;
    const std::size_t shift = kVector - run % kVector;
    const __m128i kept = _mm_and_si128(load(in + last), load(kKeep + shift));
    store(line + last, _mm_or_si128(kept, load(kEnd + shift)));
    store(line + last + kVector, _mm_setzero_si128());
    m_next += end + 1;
    return true;
}

#else

void TextBlock::Fill(std::size_t count, bool text) {
    m_next = 0;
    m_end = count;
    m_text = text;
}

std::size_t TextBlock::TakeRun(WCHAR *out, std::size_t capacity) {
    const WCHAR *const begin = m_units + m_next;
    const WCHAR *const end = begin + std::min(capacity, m_end - m_next);
    const bool text = m_text;
    const WCHAR *const stop = std::find_if(
        begin, end, [text](WCHAR c) { return c == u'\n' || (text && (c == u'\r' || c == 0x1A)); });
    std::copy(begin, stop, out);
    m_next += static_cast<std::size_t>(stop - begin);
    return static_cast<std::size_t>(stop - begin);
}

bool TextBlock::TakeLine(WCHAR *, std::size_t) {
    return false;  // without vectors both calls would examine single units
}

#endif

}  // namespace ostrel_platform
