#ifndef OSTREL_CHARSET_JAPANESE_BYTES_H
#define OSTREL_CHARSET_JAPANESE_BYTES_H

// Internal. Classifies the bytes of the Japanese encodings and converts characters between the
// encodings: one character at a time, and 16 bytes at a time where the processor has SSE2. Both
// ways give the same bytes.

#include <cstddef>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace OS::charset {

using Byte = unsigned char;

inline constexpr Byte kEscape = 0x1B;
inline constexpr Byte kEucKana = 0x8E;  // leads a half-width katakana in EUC-JP
inline constexpr std::size_t kBlock = 16;

constexpr bool in_range(unsigned byte, unsigned first, unsigned last) {
    return byte - first <= last - first;
}

constexpr bool is_shift_jis_lead(unsigned byte) {
    return in_range(byte, 0x81, 0x9F) || in_range(byte, 0xE0, 0xFC);
}

constexpr bool is_shift_jis_trail(unsigned byte) {
    return in_range(byte, 0x40, 0x7E) || in_range(byte, 0x80, 0xFC);
}

constexpr bool is_kana(unsigned byte) {
    return in_range(byte, 0xA1, 0xDF);
}

constexpr bool is_euc(unsigned byte) {
    return in_range(byte, 0xA1, 0xFE);
}

#ifdef __SSE2__

inline __m128i load_block(const Byte *at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
}

inline void store_block(Byte *at, __m128i block) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(at), block);
}

inline __m128i each_byte(unsigned value) {
    return _mm_set1_epi8(static_cast<char>(value));
}

// Returns a block of pairs: `lead` in the even bytes, `trail` in the odd ones.
inline __m128i each_pair(unsigned lead, unsigned trail) {
    return _mm_set1_epi16(static_cast<short>(lead | trail << 8));
}

// The tests set all bits of each byte that passes, and clear those of the others.
inline __m128i at_least(__m128i block, unsigned value) {
    return _mm_cmpeq_epi8(_mm_max_epu8(block, each_byte(value)), block);
}

inline __m128i in_range(__m128i block, unsigned first, unsigned last) {
    const __m128i offset = _mm_sub_epi8(block, each_byte(first));
    return _mm_cmpeq_epi8(_mm_min_epu8(offset, each_byte(last - first)), offset);
}

inline __m128i is_shift_jis_lead(__m128i block) {
    // XOR makes one range of the two.
    return in_range(_mm_xor_si128(block, each_byte(0xA0)), 0x21, 0x5C);
}

inline __m128i is_shift_jis_trail(__m128i block) {
    return _mm_andnot_si128(_mm_cmpeq_epi8(block, each_byte(0x7F)), in_range(block, 0x40, 0xFC));
}

// Masks with a bit for each byte of a block; the lowest bit is that of the first byte.
inline constexpr unsigned kLeads = 0x5555;
inline constexpr unsigned kAll = 0xFFFF;

inline unsigned passed(__m128i test) {
    return static_cast<unsigned>(_mm_movemask_epi8(test));
}
inline unsigned failed(__m128i test) {
    return passed(test) ^ kAll;
}
inline unsigned escapes(__m128i block) {
    return passed(_mm_cmpeq_epi8(block, each_byte(kEscape)));
}

#endif

// The kinds of run in a text. A character has kWidth bytes, and each byte becomes kGrowth bytes.
// One() converts the character at `in`, which must be complete. Block() converts a block at `in`,
// whatever the block holds, and writes kGrowth whole blocks. The lowest bit of its result is the
// position of the first character after the run; 0 means that the run goes on.

// Copies. Block() ends the run at a byte of eight bits.
struct PlainRun {
    static constexpr std::size_t kWidth = 1;
    static constexpr std::size_t kGrowth = 1;
    static void One(const Byte *in, Byte *out) { out[0] = in[0]; }
#ifdef __SSE2__
    static unsigned Block(const Byte *in, Byte *out) {
        const __m128i block = load_block(in);
        store_block(out, block);
        return passed(block);
    }
#endif
};

struct ShiftJisPairsToJis {
    static constexpr std::size_t kWidth = 2;
    static constexpr std::size_t kGrowth = 1;
    static void One(const Byte *in, Byte *out) {
        const unsigned b = in[0];
        const unsigned t = in[1];
        const bool second_row = t >= 0x9F;  // each lead byte has two rows of characters
        out[0] = static_cast<Byte>((2 * b + (second_row ? 0x20 : 0x1F)) & 0x7F);
        out[1] = static_cast<Byte>((second_row ? t + 2 : t < 0x7F ? t + 0x61 : t + 0x60) & 0x7F);
    }
#ifdef __SSE2__
    static unsigned Block(const Byte *in, Byte *out) {
        const __m128i block = load_block(in);
        const __m128i second_row = at_least(block, 0x9F);
        const __m128i behind_gap = at_least(block, 0x7F);
        // Computes b + b + 0x1F and t + 0x61; a byte that passed a test is -1.
        __m128i jis = _mm_add_epi8(block, _mm_and_si128(block, each_pair(0xFF, 0)));
        jis = _mm_add_epi8(jis, each_pair(0x1F, 0x61));
        jis = _mm_sub_epi8(jis, _mm_srli_epi16(second_row, 8));
        jis = _mm_add_epi8(jis, _mm_and_si128(behind_gap, each_pair(0, 0xFF)));
        jis = _mm_sub_epi8(jis, _mm_and_si128(second_row, each_pair(0, 0x60 - 2)));
        store_block(out, _mm_and_si128(jis, each_byte(0x7F)));
        return failed(is_shift_jis_lead(block)) & kLeads;
    }
#endif
};

struct ShiftJisKanaToJis {
    static constexpr std::size_t kWidth = 1;
    static constexpr std::size_t kGrowth = 1;
    static void One(const Byte *in, Byte *out) { out[0] = in[0] & 0x7F; }
#ifdef __SSE2__
    static unsigned Block(const Byte *in, Byte *out) {
        const __m128i block = load_block(in);
        store_block(out, _mm_and_si128(block, each_byte(0x7F)));
        return failed(in_range(block, 0xA1, 0xDF));
    }
#endif
};

struct EucPairsToJis {
    static constexpr std::size_t kWidth = 2;
    static constexpr std::size_t kGrowth = 1;
    static void One(const Byte *in, Byte *out) {
        out[0] = in[0] & 0x7F;
        out[1] = in[1] & 0x7F;
    }
#ifdef __SSE2__
    static unsigned Block(const Byte *in, Byte *out) {
        const __m128i block = load_block(in);
        store_block(out, _mm_and_si128(block, each_byte(0x7F)));
        return failed(in_range(block, 0xA1, 0xFE)) & kLeads;
    }
#endif
};

// A run of JIS text ends at the next escape byte. This run copies characters of `width` bytes and
// sets the bits of `set` in each byte.
template <std::size_t width, Byte set>
struct JisBytes {
    static constexpr std::size_t kWidth = width;
    static constexpr std::size_t kGrowth = 1;
    static void One(const Byte *in, Byte *out) {
        for (std::size_t i = 0; i < width; ++i) {
            out[i] = in[i] | set;
        }
    }
#ifdef __SSE2__
    static unsigned Block(const Byte *in, Byte *out) {
        const __m128i block = load_block(in);
        store_block(out, _mm_or_si128(block, each_byte(set)));
        return escapes(block) & (width == 2 ? kLeads : kAll);
    }
#endif
};

using JisSingle = JisBytes<1, 0>;
using JisPairsToEuc = JisBytes<2, 0x80>;
using JisKanaToShiftJis = JisBytes<1, 0x80>;

struct JisPairsToShiftJis {
    static constexpr std::size_t kWidth = 2;
    static constexpr std::size_t kGrowth = 1;
    static void One(const Byte *in, Byte *out) {
        const unsigned a = in[0] | 0x80u;
        const unsigned b = in[1] | 0x80u;
        const unsigned odd = a & 1;
        out[0] = static_cast<Byte>((a >> 1) + odd + (a >= 0xDF ? 0x70 : 0x30));
        out[1] = static_cast<Byte>(odd == 0 ? b - 2 : b < 0xE0 ? b - 0x61 : b - 0x60);
    }
#ifdef __SSE2__
    static unsigned Block(const Byte *in, Byte *out) {
        const __m128i block = load_block(in);
        const __m128i high = _mm_or_si128(block, each_byte(0x80));
        const __m128i beyond = _mm_and_si128(at_least(high, 0xDF), each_byte(0x40));
        // Computes half of the byte, rounded up, plus 0x30.
        const __m128i lead = _mm_add_epi8(
            _mm_add_epi8(_mm_avg_epu8(high, _mm_setzero_si128()), each_byte(0x30)), beyond);
        // `odd` has all bits of each pair whose row is odd. The trail is b - 2, and for an odd row
        // another 0x5F or 0x5E less.
        const __m128i odd = _mm_srai_epi16(_mm_slli_epi16(high, 15), 15);
        const __m128i less = _mm_add_epi8(each_byte(0x5F), at_least(high, 0xE0));
        const __m128i trail =
            _mm_sub_epi8(_mm_sub_epi8(high, each_byte(2)), _mm_and_si128(odd, less));
        const __m128i leads = each_pair(0xFF, 0);
        store_block(out, _mm_or_si128(_mm_and_si128(leads, lead), _mm_andnot_si128(leads, trail)));
        return escapes(block) & kLeads;
    }
#endif
};

struct JisKanaToEuc {
    static constexpr std::size_t kWidth = 1;
    static constexpr std::size_t kGrowth = 2;
    static void One(const Byte *in, Byte *out) {
        out[0] = kEucKana;
        out[1] = in[0] | 0x80;
    }
#ifdef __SSE2__
    static unsigned Block(const Byte *in, Byte *out) {
        const __m128i block = load_block(in);
        const __m128i kana = _mm_or_si128(block, each_byte(0x80));
        store_block(out, _mm_unpacklo_epi8(each_byte(kEucKana), kana));
        store_block(out + kBlock, _mm_unpackhi_epi8(each_byte(kEucKana), kana));
        return escapes(block);
    }
#endif
};

// Writes a question mark for each byte.
template <std::size_t width>
struct JisMasked {
    static constexpr std::size_t kWidth = width;
    static constexpr std::size_t kGrowth = 1;
    static void One(const Byte *, Byte *out) {
        for (std::size_t i = 0; i < width; ++i) {
            out[i] = '?';
        }
    }
#ifdef __SSE2__
    static unsigned Block(const Byte *in, Byte *out) {
        const __m128i block = load_block(in);
        store_block(out, each_byte('?'));
        return escapes(block) & (width == 2 ? kLeads : kAll);
    }
#endif
};

// Writes nothing, for an unknown target.
template <std::size_t width>
struct JisDropped {
    static constexpr std::size_t kWidth = width;
    static constexpr std::size_t kGrowth = 0;
    static void One(const Byte *, Byte *) {}
#ifdef __SSE2__
    static unsigned Block(const Byte *in, Byte *) {
        return escapes(load_block(in)) & (width == 2 ? kLeads : kAll);
    }
#endif
};

}  // namespace OS::charset

#endif  // OSTREL_CHARSET_JAPANESE_BYTES_H
