#include "ostrel/platform/text/utf8_blocks.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include <tmmintrin.h>

#include <array>
#include <bit>
#include <cstdint>

namespace ostrel_platform {
namespace {

#define OSTREL_BLOCKS [[gnu::target("ssse3,popcnt")]]

using Mask = std::uint64_t;  // one bit for each of 64 bytes

constexpr std::uint8_t kNothing = 0x80;  // makes a shuffle write a zero byte

struct alignas(16) Shuffle {
    std::uint8_t from[16] = {kNothing, kNothing, kNothing, kNothing, kNothing, kNothing,
                             kNothing, kNothing, kNothing, kNothing, kNothing, kNothing,
                             kNothing, kNothing, kNothing, kNothing};
    std::uint8_t taken = 0;   // bytes read
    std::uint8_t stored = 0;  // units or bytes written
};

// Spreads the characters of one and two bytes that begin in 8 bytes. Bit k of the index says that
// byte k + 1 continues a character. Each character becomes a 16-bit lane, its last byte first.
constexpr std::array<Shuffle, 256> kSpreadTwos = [] {
    std::array<Shuffle, 256> table{};
    for (unsigned continued = 0; continued < 256; ++continued) {
        Shuffle &entry = table[continued];
        entry.taken = static_cast<std::uint8_t>(8 + (continued >> 7));
        for (std::uint8_t byte = 0; byte < 8; ++byte) {
            if (byte > 0 && ((continued >> (byte - 1)) & 1) != 0) {
                continue;
            }
            const bool two = ((continued >> byte) & 1) != 0;
            entry.from[std::size_t{2} * entry.stored] = two ? byte + 1 : byte;
            entry.from[std::size_t{2} * entry.stored + 1] = two ? byte : kNothing;
            ++entry.stored;
        }
    }
    return table;
}();

// Spreads four characters of one to three bytes. The index has a digit in base 3 for the length of
// each character minus 1, with the first character in the lowest digit. Each character becomes a
// 32-bit lane, its last byte first.
constexpr std::array<Shuffle, 81> kSpreadThrees = [] {
    std::array<Shuffle, 81> table{};
    for (unsigned lengths = 0; lengths < 81; ++lengths) {
        Shuffle &entry = table[lengths];
        unsigned rest = lengths;
        for (; entry.stored < 4; ++entry.stored, rest /= 3) {
            entry.taken += static_cast<std::uint8_t>(rest % 3 + 1);
            for (unsigned byte = 0; byte <= rest % 3; ++byte) {
                entry.from[4 * entry.stored + byte] =
                    static_cast<std::uint8_t>(entry.taken - 1u - byte);
            }
        }
    }
    return table;
}();

struct Four {
    std::uint8_t lengths;  // the index into kSpreadThrees
    std::uint8_t taken;    // the bytes of all four; 0 when one of them has more than three
};

// The first four characters of 12 bytes. Bit k of the index says that byte k ends a character.
constexpr std::array<Four, 4096> kFours = [] {
    std::array<Four, 4096> table{};
    for (unsigned ends = 0; ends < 4096; ++ends) {
        unsigned rest = ends;
        unsigned lengths = 0;
        for (unsigned weight = 1; weight < 81; weight *= 3) {
            const auto more = static_cast<unsigned>(std::countr_zero(rest));
            if (more > 2) {
                lengths = 81;
                break;
            }
            lengths += more * weight;
            rest >>= more + 1;
        }
        if (lengths < 81) {
            table[ends] = {static_cast<std::uint8_t>(lengths), kSpreadThrees[lengths].taken};
        }
    }
    return table;
}();

// Keeps the first `length(lane)` bytes of each lane. A lane has 16 / `lanes` bytes.
template <class Length>
constexpr Shuffle squeeze(std::uint8_t lanes, Length length) {
    Shuffle entry;
    entry.taken = 16;
    for (std::uint8_t lane = 0; lane < lanes; ++lane) {
        for (int byte = 0; byte < length(lane); ++byte) {
            entry.from[entry.stored++] = static_cast<std::uint8_t>(16 / lanes * lane + byte);
        }
    }
    return entry;
}

// Packs eight characters from 16-bit lanes. A bit of the index is set for a character of one byte
// and clear for one of two.
constexpr std::array<Shuffle, 256> kSqueezeTwos = [] {
    std::array<Shuffle, 256> table{};
    for (unsigned i = 0; i < 256; ++i) {
        table[i] = squeeze(8, [i](unsigned lane) { return ((i >> lane) & 1) != 0 ? 1 : 2; });
    }
    return table;
}();

// Packs four characters from 32-bit lanes. The lower four bits of the index are set for characters
// of more than one byte, the upper four for characters of more than two.
constexpr std::array<Shuffle, 256> kSqueezeThrees = [] {
    std::array<Shuffle, 256> table{};
    for (unsigned i = 0; i < 256; ++i) {
        table[i] = squeeze(4, [i](unsigned lane) {
            return 1 + static_cast<int>((i >> lane) & 1) + static_cast<int>((i >> (lane + 4)) & 1);
        });
    }
    return table;
}();

OSTREL_BLOCKS inline __m128i load(const void *from) noexcept {
    return _mm_loadu_si128(static_cast<const __m128i *>(from));
}

OSTREL_BLOCKS inline void store(void *to, __m128i block) noexcept {
    _mm_storeu_si128(static_cast<__m128i *>(to), block);
}

OSTREL_BLOCKS inline __m128i shuffle(__m128i block, const Shuffle &entry) noexcept {
    return _mm_shuffle_epi8(block, load(entry.from));
}

OSTREL_BLOCKS inline __m128i in16(int value) noexcept {
    return _mm_set1_epi16(static_cast<short>(value));
}

OSTREL_BLOCKS inline __m128i in32(int value) noexcept {
    return _mm_set1_epi32(value);
}

OSTREL_BLOCKS inline unsigned bytes_set(__m128i comparison) noexcept {
    return static_cast<unsigned>(_mm_movemask_epi8(comparison));
}

OSTREL_BLOCKS inline unsigned units_set(__m128i first, __m128i second) noexcept {
    return bytes_set(_mm_packs_epi16(first, second));
}

// 64 bytes of UTF-8.
struct Block {
    __m128i part[4];

    OSTREL_BLOCKS explicit Block(const char *bytes) noexcept
        : part{load(bytes), load(bytes + 16), load(bytes + 32), load(bytes + 48)} {}

    // A bit for each byte that is `lowest` or more.
    OSTREL_BLOCKS Mask From(int lowest) const noexcept {
        const __m128i bound = _mm_set1_epi8(static_cast<char>(lowest));
        Mask mask = 0;
        for (int i = 3; i >= 0; --i) {
            mask = mask << 16 | bytes_set(_mm_cmpeq_epi8(_mm_max_epu8(part[i], bound), part[i]));
        }
        return mask;
    }

    OSTREL_BLOCKS Mask Are(int value) const noexcept {
        const __m128i wanted = _mm_set1_epi8(static_cast<char>(value));
        Mask mask = 0;
        for (int i = 3; i >= 0; --i) {
            mask = mask << 16 | bytes_set(_mm_cmpeq_epi8(part[i], wanted));
        }
        return mask;
    }

    OSTREL_BLOCKS bool HasOneOf(int first, int second) const noexcept {
        const __m128i one = _mm_set1_epi8(static_cast<char>(first));
        const __m128i other = _mm_set1_epi8(static_cast<char>(second));
        __m128i found = _mm_setzero_si128();
        for (const __m128i bytes : part) {
            found = _mm_or_si128(
                found, _mm_or_si128(_mm_cmpeq_epi8(bytes, one), _mm_cmpeq_epi8(bytes, other)));
        }
        return bytes_set(found) != 0;
    }
};

// The characters of 64 bytes that begin with a character. The end may cut the last one.
struct Characters {
    Mask from80, continued, from_e0 = 0, from_f0 = 0;
    bool sound = true;

    OSTREL_BLOCKS explicit Characters(const Block &block) noexcept : from80(block.From(0x80)) {
        if (from80 == 0) {
            continued = 0;
            return;
        }
        const Mask from_c2 = block.From(0xC2);
        continued = from80 & ~block.From(0xC0);
        Mask expected = from_c2 << 1;
        from_e0 = block.From(0xE0);
        if (from_e0 != 0) {
            from_f0 = block.From(0xF0);
            expected |= from_e0 << 2 | from_f0 << 3;
            if (from_f0 != 0 || block.HasOneOf(0xE0, 0xED)) {
                sound = SecondBytesAreSound(block);
            }
        }
        sound = sound && continued == expected && (continued | from_c2) == from80;
    }

    // Some lead bytes limit the second byte more closely (Table 3-7 of the standard). The limits
    // exclude overlong forms, surrogates and values above U+10FFFF.
    OSTREL_BLOCKS static bool SecondBytesAreSound(const Block &block) noexcept {
        const Mask from_90 = block.From(0x90);
        const Mask from_a0 = block.From(0xA0);
        const Mask wrong = (block.Are(0xE0) << 1 & ~from_a0) | (block.Are(0xED) << 1 & from_a0) |
                           (block.Are(0xF0) << 1 & ~from_90) | (block.Are(0xF4) << 1 & from_90);
        return wrong == 0 && block.From(0xF5) == 0;
    }

    // The bytes of the complete characters, and the units that they become.
    OSTREL_BLOCKS Progress Whole() const noexcept {
        const Mask cut =
            from_f0 >> 61 << 61 | from_e0 >> 62 << 62 | (from80 & ~continued) >> 63 << 63;
        const int taken = cut != 0 ? std::countr_zero(cut) : 64;
        const Mask within = taken < 64 ? (Mask{1} << taken) - 1 : ~Mask{0};
        return {static_cast<std::size_t>(taken),
                static_cast<std::size_t>(std::popcount(within & ~continued)) +
                    static_cast<std::size_t>(std::popcount(within & from_f0))};
    }
};

OSTREL_BLOCKS __m128i join_twos(__m128i lanes) noexcept {
    return _mm_or_si128(_mm_and_si128(lanes, in16(0x7F)),
                        _mm_srli_epi16(_mm_and_si128(lanes, in16(0x1F00)), 2));
}

// Joins characters of one to three bytes in 32-bit lanes. The first four units of the result are
// valid.
OSTREL_BLOCKS __m128i join_mixed(__m128i lanes) noexcept {
    const __m128i second = _mm_srli_epi32(_mm_and_si128(lanes, in32(0x3F00)), 2);
    const __m128i first = _mm_srli_epi32(_mm_and_si128(lanes, in32(0xF0000)), 4);
    const __m128i code =
        _mm_or_si128(_mm_or_si128(_mm_and_si128(lanes, in32(0x7F)), second), first);
    return _mm_shuffle_epi8(code,
                            _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 0, 1, 4, 5, 8, 9, 12, 13));
}

// Stores one character of `length` bytes.
inline WCHAR *put_one(const char *bytes, std::size_t length, WCHAR *out) noexcept {
    constexpr unsigned kLead[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    unsigned code = static_cast<unsigned char>(bytes[0]) & kLead[length];
    for (std::size_t i = 1; i < length; ++i) {
        code = code << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3F);
    }
    if (length == 4) {
        *out++ = static_cast<WCHAR>(0xD7C0 + (code >> 10));
        code = 0xDC00 + (code & 0x3FF);
    }
    *out++ = static_cast<WCHAR>(code);
    return out;
}

// Joins five characters of three bytes each into five units.
OSTREL_BLOCKS __m128i join_threes(__m128i bytes) noexcept {
    const __m128i ends = _mm_shuffle_epi8(
        bytes, _mm_setr_epi8(2, 1, 5, 4, 8, 7, 11, 10, 14, 13, -1, -1, -1, -1, -1, -1));
    const __m128i leads = _mm_shuffle_epi8(
        bytes, _mm_setr_epi8(0, -1, 3, -1, 6, -1, 9, -1, 12, -1, -1, -1, -1, -1, -1, -1));
    const __m128i second = _mm_srli_epi16(_mm_and_si128(ends, in16(0x3F00)), 2);
    return _mm_or_si128(_mm_or_si128(_mm_and_si128(ends, in16(0x3F)), second),
                        _mm_slli_epi16(leads, 12));
}

// Whether the first 60 bytes are 20 characters of three bytes.
OSTREL_BLOCKS bool twenty_threes(const Characters &characters) noexcept {
    constexpr Mask kFirst60 = (Mask{1} << 60) - 1;
    constexpr Mask kEachThird = kFirst60 / 7;
    return (characters.continued & kFirst60) == kEachThird * 6 &&
           (characters.from_e0 & kFirst60) == kEachThird && characters.from_f0 << 4 == 0;
}

OSTREL_BLOCKS Progress convert_twenty_threes(const char *bytes, WCHAR *units) noexcept {
    for (std::size_t i = 0; i < 4; ++i) {
        store(units + 5 * i, join_threes(load(bytes + 15 * i)));
    }
    return {60, 20};
}

// convert_twos and convert_mixed convert the characters that begin in the first 48 of 64 valid
// bytes.

OSTREL_BLOCKS Progress convert_twos(const char *bytes, Mask continued, WCHAR *units) noexcept {
    std::size_t pos = 0;
    WCHAR *out = units;
    while (pos < 48) {
        const std::size_t index = continued >> pos >> 1 & 0xFF;
        const Shuffle &twos = kSpreadTwos[index];
        store(out, join_twos(shuffle(load(bytes + pos), twos)));
        pos += 8 + (index >> 7);
        out += twos.stored;
    }
    return {pos, static_cast<std::size_t>(out - units)};
}

OSTREL_BLOCKS Progress convert_mixed(const char *bytes, Mask continued, WCHAR *units) noexcept {
    const Mask ends = ~(continued >> 1);
    std::size_t pos = 0;
    WCHAR *out = units;
    while (pos < 48) {
        const Four four = kFours[ends >> pos & 0xFFF];
        if (four.taken > 0) {
            store(out, join_mixed(shuffle(load(bytes + pos), kSpreadThrees[four.lengths])));
            pos += four.taken;
            out += 4;
            continue;
        }
        for (std::size_t length = 0; length < 4 && pos < 48; pos += length) {
            length = static_cast<std::size_t>(std::countr_zero(ends >> pos)) + 1;
            out = put_one(bytes + pos, length, out);
        }
    }
    return {pos, static_cast<std::size_t>(out - units)};
}

OSTREL_BLOCKS inline void widen(const char *bytes, WCHAR *units) noexcept {
    const __m128i block = load(bytes);
    store(units, _mm_unpacklo_epi8(block, _mm_setzero_si128()));
    store(units + 8, _mm_unpackhi_epi8(block, _mm_setzero_si128()));
}

// Stores eight units below 0x800. Writes 16 bytes and returns how many of them are valid.
OSTREL_BLOCKS std::size_t put_twos(__m128i units, char *bytes) noexcept {
    const __m128i pair = _mm_or_si128(
        _mm_or_si128(_mm_srli_epi16(units, 6), _mm_slli_epi16(_mm_and_si128(units, in16(0x3F)), 8)),
        in16(0x80C0));
    const __m128i ascii = _mm_cmplt_epi16(units, in16(0x80));
    const Shuffle &entry = kSqueezeTwos[units_set(ascii, _mm_setzero_si128())];
    store(bytes,
          shuffle(_mm_or_si128(_mm_and_si128(ascii, units), _mm_andnot_si128(ascii, pair)), entry));
    return entry.stored;
}

// Stores four units in 32-bit lanes, none of them a surrogate. Writes 16 bytes and returns how many
// of them are valid.
OSTREL_BLOCKS std::size_t put_mixed(__m128i units, char *bytes) noexcept {
    const __m128i tail = _mm_and_si128(units, in32(0x3F));
    const __m128i rest = _mm_srli_epi32(units, 6);
    const __m128i two = _mm_or_si128(_mm_or_si128(rest, _mm_slli_epi32(tail, 8)), in32(0x80C0));
    const __m128i middle = _mm_slli_epi32(_mm_and_si128(rest, in32(0x3F)), 8);
    const __m128i three = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(units, 12), middle),
                                       _mm_or_si128(_mm_slli_epi32(tail, 16), in32(0x8080E0)));
    const __m128i beyond_one = _mm_cmpgt_epi32(units, in32(0x7F));
    const __m128i beyond_two = _mm_cmpgt_epi32(units, in32(0x7FF));
    const __m128i one_or_two =
        _mm_or_si128(_mm_andnot_si128(beyond_one, units), _mm_and_si128(beyond_one, two));
    const __m128i lanes =
        _mm_or_si128(_mm_andnot_si128(beyond_two, one_or_two), _mm_and_si128(beyond_two, three));
    const Shuffle &entry =
        kSqueezeThrees[units_set(_mm_packs_epi32(beyond_one, beyond_two), _mm_setzero_si128())];
    store(bytes, shuffle(lanes, entry));
    return entry.stored;
}

OSTREL_BLOCKS inline __m128i top_bits_clear(__m128i units, int bits) noexcept {
    return _mm_cmpeq_epi16(_mm_and_si128(units, in16(bits)), _mm_setzero_si128());
}

OSTREL_BLOCKS inline bool is_ascii(__m128i units) noexcept {
    return bytes_set(top_bits_clear(units, 0xFF80)) == 0xFFFF;
}

// Narrows a run of ASCII, 32 units at a time. Returns the number of units narrowed.
OSTREL_BLOCKS inline std::size_t narrow(const WCHAR *units, std::size_t count,
                                        char *bytes) noexcept {
    std::size_t done = 0;
    for (; count - done >= 32; done += 32) {
        const WCHAR *const in = units + done;
        const __m128i block[] = {load(in), load(in + 8), load(in + 16), load(in + 24)};
        if (!is_ascii(
                _mm_or_si128(_mm_or_si128(block[0], block[1]), _mm_or_si128(block[2], block[3])))) {
            break;
        }
        store(bytes + done, _mm_packus_epi16(block[0], block[1]));
        store(bytes + done + 16, _mm_packus_epi16(block[2], block[3]));
    }
    return done;
}

// `kind` is 0xD800 for high surrogates and 0xDC00 for low surrogates.
OSTREL_BLOCKS inline __m128i are_surrogates(__m128i units, int kind) noexcept {
    return _mm_cmpeq_epi16(_mm_and_si128(units, in16(0xFC00)), in16(kind));
}

}  // namespace

bool has_block_shuffle() noexcept {
    return __builtin_cpu_supports("ssse3") != 0 && __builtin_cpu_supports("popcnt") != 0;
}

OSTREL_BLOCKS Progress utf8_blocks_to_utf16(const char *bytes, std::size_t count,
                                            WCHAR *units) noexcept {
    Progress done;
    while (count - done.taken >= 64) {
        const char *const in = bytes + done.taken;
        WCHAR *const out = units + done.stored;
        const Characters characters{Block(in)};
        if (!characters.sound) {
            return done;
        }
        if (characters.from80 == 0) {
            for (int i = 0; i < 64; i += 16) {
                widen(in + i, out + i);
            }
            done.taken += 64;
            done.stored += 64;
            continue;
        }
        const Progress step = characters.from_e0 == 0 ? convert_twos(in, characters.continued, out)
                              : twenty_threes(characters)
                                  ? convert_twenty_threes(in, out)
                                  : convert_mixed(in, characters.continued, out);
        done.taken += step.taken;
        done.stored += step.stored;
    }
    while (count - done.taken >= 16 && bytes_set(load(bytes + done.taken)) == 0) {
        widen(bytes + done.taken, units + done.stored);
        done.taken += 16;
        done.stored += 16;
    }
    return done;
}

OSTREL_BLOCKS Progress utf8_blocks_length(const char *bytes, std::size_t count) noexcept {
    Progress done;
    while (count - done.taken >= 64) {
        const Characters characters{Block(bytes + done.taken)};
        if (!characters.sound) {
            break;
        }
        const Progress step = characters.Whole();
        done.taken += step.taken;
        done.stored += step.stored;
    }
    return done;
}

OSTREL_BLOCKS Progress utf16_blocks_to_utf8(const WCHAR *units, std::size_t count,
                                            char *bytes) noexcept {
    const WCHAR *in = units;
    char *out = bytes;
    while (count - static_cast<std::size_t>(in - units) >= 16) {
        const __m128i block = load(in);
        const __m128i next = load(in + 8);
        if (is_ascii(_mm_or_si128(block, next))) {
            store(out, _mm_packus_epi16(block, next));
            const std::size_t run =
                16 + narrow(in + 16, count - static_cast<std::size_t>(in - units) - 16, out + 16);
            in += run;
            out += run;
            continue;
        }
        if (bytes_set(top_bits_clear(block, 0xF800)) == 0xFFFF) {
            out += put_twos(block, out);
        } else {
            const __m128i surrogates =
                _mm_cmpeq_epi16(_mm_and_si128(block, in16(0xF800)), in16(0xD800));
            if (bytes_set(surrogates) != 0) {
                break;
            }
            out += put_mixed(_mm_unpacklo_epi16(block, _mm_setzero_si128()), out);
            out += put_mixed(_mm_unpackhi_epi16(block, _mm_setzero_si128()), out);
        }
        in += 8;
    }
    return {static_cast<std::size_t>(in - units), static_cast<std::size_t>(out - bytes)};
}

OSTREL_BLOCKS Progress utf16_blocks_length(const WCHAR *units, std::size_t count) noexcept {
    Progress done;
    while (count - done.taken > 16) {
        const WCHAR *const in = units + done.taken;
        const __m128i first = load(in);
        const __m128i second = load(in + 8);
        const unsigned ones =
            units_set(top_bits_clear(first, 0xFF80), top_bits_clear(second, 0xFF80));
        done.taken += 16;
        done.stored += 16;
        if (ones != 0xFFFF) {
            const unsigned twos =
                units_set(top_bits_clear(first, 0xF800), top_bits_clear(second, 0xF800));
            done.stored += 32u - static_cast<unsigned>(std::popcount(ones)) -
                           static_cast<unsigned>(std::popcount(twos));
            if (twos != 0xFFFF) {
                // A pair has four bytes, two lone surrogates have six.
                const unsigned highs =
                    units_set(are_surrogates(first, 0xD800), are_surrogates(second, 0xD800));
                const unsigned lows = units_set(are_surrogates(load(in + 1), 0xDC00),
                                                are_surrogates(load(in + 9), 0xDC00));
                done.stored -= std::size_t{2} * static_cast<unsigned>(std::popcount(highs & lows));
            }
        }
    }
    return done;
}

}  // namespace ostrel_platform

#else

namespace ostrel_platform {

bool has_block_shuffle() noexcept {
    return false;
}

Progress utf8_blocks_to_utf16(const char *, std::size_t, WCHAR *) noexcept {
    return {};
}

Progress utf8_blocks_length(const char *, std::size_t) noexcept {
    return {};
}

Progress utf16_blocks_to_utf8(const WCHAR *, std::size_t, char *) noexcept {
    return {};
}

Progress utf16_blocks_length(const WCHAR *, std::size_t) noexcept {
    return {};
}

}  // namespace ostrel_platform

#endif
