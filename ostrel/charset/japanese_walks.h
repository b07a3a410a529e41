#ifndef OSTREL_CHARSET_JAPANESE_WALKS_H
#define OSTREL_CHARSET_JAPANESE_WALKS_H

// Internal. The loops over a text that detect and convert the encodings. With `blocks` they process
// 16 bytes at a time where they can; the results are the same.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ostrel/charset/japanese.h"
#include "ostrel/charset/japanese_bytes.h"
#include "ostrel/charset/mime_words.h"

namespace OS::charset {

#ifdef __SSE2__
inline constexpr bool kHasBlocks = true;
#else
inline constexpr bool kHasBlocks = false;
#endif

// The states of JIS text.
enum class JisState { kSingle, kDouble, kKana };

inline constexpr std::size_t kEscapeLength = 3;

// Returns true when one of the five escape sequences begins at `at`, and then stores the state that
// the sequence selects.
inline bool read_escape(const Byte *at, const Byte *end, JisState *state) {
    if (end - at < static_cast<std::ptrdiff_t>(kEscapeLength) || at[0] != kEscape) {
        return false;
    }
    if (at[1] == '$' && (at[2] == 'B' || at[2] == '@')) {
        *state = JisState::kDouble;
    } else if (at[1] == '(' && (at[2] == 'B' || at[2] == 'J')) {
        *state = JisState::kSingle;
    } else if (at[1] == '(' && at[2] == 'I') {
        *state = JisState::kKana;
    } else {
        return false;
    }
    return true;
}

// The rest of a text to read, and the position to write to. The caller provides enough capacity.
struct Walk {
    const Byte *at;
    const Byte *end;
    Byte *out;

    std::size_t Left() const { return static_cast<std::size_t>(end - at); }
};

// Converts the run of the kind Run at the walk's position, or a part of the run of at least one
// character. Leaves out a character that is incomplete at the end of the text.
template <bool blocks, class Run>
void take_run(Walk &walk) {
#ifdef __SSE2__
    if constexpr (blocks) {
        const Byte *at = walk.at;
        Byte *out = walk.out;
        while (static_cast<std::size_t>(walk.end - at) >= kBlock) {
            const unsigned end_of_run = Run::Block(at, out);
            if (end_of_run != 0) {
                const auto taken = static_cast<std::size_t>(std::countr_zero(end_of_run));
                at += taken;
                out += taken * Run::kGrowth;
                break;
            }
            at += kBlock;  // does not depend on the result for this block
            out += kBlock * Run::kGrowth;
        }
        const bool any = at != walk.at;
        walk.at = at;
        walk.out = out;
        if (any) {
            return;
        }
    }
#endif
    if (walk.Left() < Run::kWidth) {
        walk.at = walk.end;
        return;
    }
    Run::One(walk.at, walk.out);
    walk.at += Run::kWidth;
    walk.out += Run::kWidth * Run::kGrowth;
}

// Writes the escape sequences of JIS text.
class JisSwitch {
public:
    void To(JisState state, Byte *&out) {
        if (state != m_state) {
            static constexpr char kSequences[][kEscapeLength + 1] = {"\x1B(B", "\x1B$B", "\x1B(I"};
            std::memcpy(out, kSequences[static_cast<std::size_t>(state)], kEscapeLength);
            out += kEscapeLength;
            m_state = state;
        }
    }

private:
    JisState m_state = JisState::kSingle;
};

// Convert Shift_JIS and EUC-JP to JIS. The target has 8 bytes for each byte of the text. Return the
// end of the bytes written.
template <bool blocks>
Byte *shift_jis_to_jis(Walk walk) {
    JisSwitch jis;
    while (walk.at != walk.end) {
        if (is_shift_jis_lead(*walk.at)) {
            if (walk.Left() < 2) {
                break;
            }
            jis.To(JisState::kDouble, walk.out);
            take_run<blocks, ShiftJisPairsToJis>(walk);
        } else if (is_kana(*walk.at)) {
            jis.To(JisState::kKana, walk.out);
            take_run<blocks, ShiftJisKanaToJis>(walk);
        } else {
            jis.To(JisState::kSingle, walk.out);
            take_run<blocks, PlainRun>(walk);
        }
    }
    jis.To(JisState::kSingle, walk.out);
    return walk.out;
}

template <bool blocks>
Byte *euc_to_jis(Walk walk) {
    JisSwitch jis;
    while (walk.at != walk.end) {
        if (is_euc(*walk.at)) {
            if (walk.Left() < 2) {
                break;
            }
            jis.To(JisState::kDouble, walk.out);
            take_run<blocks, EucPairsToJis>(walk);
        } else if (*walk.at == kEucKana) {
            if (walk.Left() < 2) {
                break;
            }
            jis.To(JisState::kKana, walk.out);
            *walk.out++ = walk.at[1] & 0x7F;
            walk.at += 2;
        } else {
            jis.To(JisState::kSingle, walk.out);
            take_run<blocks, PlainRun>(walk);
        }
    }
    jis.To(JisState::kSingle, walk.out);
    return walk.out;
}

// Converts JIS to what Pairs and Kana write. The target has 2 bytes for each byte of the text.
template <bool blocks, class Pairs, class Kana>
Byte *from_jis(Walk walk) {
    JisState state = JisState::kSingle;
    while (walk.at != walk.end) {
        if (read_escape(walk.at, walk.end, &state)) {
            walk.at += kEscapeLength;
        } else if (state == JisState::kSingle) {
            take_run<blocks, JisSingle>(walk);
        } else if (state == JisState::kDouble) {
            take_run<blocks, Pairs>(walk);
        } else {
            take_run<blocks, Kana>(walk);
        }
    }
    return walk.out;
}

template <bool blocks>
Byte *from_jis_to(Walk walk, int target) {
    switch (target) {
        case EncodingShiftJis:
            return from_jis<blocks, JisPairsToShiftJis, JisKanaToShiftJis>(walk);
        case EncodingEucJp:
            return from_jis<blocks, JisPairsToEuc, JisKanaToEuc>(walk);
        case EncodingMasked:
            return from_jis<blocks, JisMasked<2>, JisMasked<1>>(walk);
        default:
            return from_jis<blocks, JisDropped<2>, JisDropped<1>>(walk);
    }
}

// The characters found when a text is read in one encoding, up to the first invalid byte.
struct Reading {
    std::int64_t pairs = 0;
    std::int64_t kana = 0;
    bool bad = false;
};

// Counts the pairs at `at`, all before the first invalid pair or a part of them.
template <bool blocks, class IsLead, class IsTrail>
std::size_t count_pairs(const Byte *at, const Byte *end, IsLead is_lead, IsTrail is_trail) {
    std::size_t bytes = 0;
    const auto left = static_cast<std::size_t>(end - at);
#ifdef __SSE2__
    if constexpr (blocks) {
        for (; left - bytes >= kBlock; bytes += kBlock) {
            const __m128i block = load_block(at + bytes);
            const unsigned no_pair =
                (failed(is_lead(block)) & kLeads) | (failed(is_trail(block)) & ~kLeads);
            if (no_pair != 0) {
                return (bytes + static_cast<std::size_t>(std::countr_zero(no_pair))) / 2;
            }
        }
    }
#endif
    while (left - bytes >= 2 && is_lead(at[bytes]) && is_trail(at[bytes + 1])) {
        bytes += 2;
    }
    return bytes / 2;
}

// Returns the first byte from `at` on that has eight bits or, unless `high_only`, is ESC or `=`.
// Returns `end` when there is none.
template <bool blocks>
const Byte *skip_plain(const Byte *at, const Byte *end, bool high_only) {
#ifdef __SSE2__
    if constexpr (blocks) {
        const __m128i wanted = high_only ? _mm_setzero_si128() : each_byte(0xFF);
        for (; end - at >= static_cast<std::ptrdiff_t>(kBlock); at += kBlock) {
            const __m128i block = load_block(at);
            const __m128i marks = _mm_or_si128(_mm_cmpeq_epi8(block, each_byte(kEscape)),
                                               _mm_cmpeq_epi8(block, each_byte('=')));
            const unsigned found = passed(_mm_or_si128(block, _mm_and_si128(wanted, marks)));
            if (found != 0) {
                return at + std::countr_zero(found);
            }
        }
    }
#endif
    while (at != end && *at < 0x80 && (high_only || (*at != kEscape && *at != '='))) {
        ++at;
    }
    return at;
}

// Reads the text, which has a zero byte at `end`, as EUC-JP. For a reading without characters
// stores in `*state` what the text before the first invalid byte holds: EncodingJis for an escape
// sequence, else EncodingMime for the prefix of an encoded word, else EncodingNone.
template <bool blocks>
Reading read_as_euc(const Byte *at, const Byte *end, int *state) {
    const auto lead_or_trail = [](auto byte) { return in_range(byte, 0xA1, 0xFE); };
    Reading reading;
    *state = EncodingNone;
    // After an escape sequence neither ESC nor `=` can change the state.
    while ((at = skip_plain<blocks>(at, end, *state == EncodingJis)) != end) {
        JisState ignored;
        if (*at == kEscape) {
            *state = read_escape(at, end, &ignored) ? EncodingJis : *state;
            ++at;
        } else if (*at == '=') {
            const bool begins = *state == EncodingNone &&
                                find_mime_prefix(reinterpret_cast<const char *>(at)) != nullptr;
            *state = begins ? EncodingMime : *state;
            ++at;
        } else if (const std::size_t pairs =
                       count_pairs<blocks>(at, end, lead_or_trail, lead_or_trail);
                   pairs != 0) {
            reading.pairs += static_cast<std::int64_t>(pairs);
            *state = EncodingEucJp;
            at += 2 * pairs;
        } else if (*at == kEucKana && end - at >= 2 && is_kana(at[1])) {
            ++reading.kana;
            *state = EncodingEucJp;
            at += 2;
        } else {
            reading.bad = true;
            break;
        }
    }
    return reading;
}

template <bool blocks>
Reading read_as_shift_jis(const Byte *at, const Byte *end) {
    Reading reading;
    while ((at = skip_plain<blocks>(at, end, true)) != end) {
        if (const std::size_t pairs = count_pairs<blocks>(
                at, end, [](auto byte) { return is_shift_jis_lead(byte); },
                [](auto byte) { return is_shift_jis_trail(byte); });
            pairs != 0) {
            reading.pairs += static_cast<std::int64_t>(pairs);
            at += 2 * pairs;
        } else if (is_kana(*at)) {
            ++reading.kana;
            ++at;
        } else {
            reading.bad = true;
            break;
        }
    }
    return reading;
}

template <bool blocks>
int detect(const Byte *text, const Byte *end) {
    constexpr std::int64_t kPenalty = 20;  // for a reading with an invalid byte
    int state = EncodingNone;
    const Reading euc = read_as_euc<blocks>(text, end, &state);
    const std::int64_t euc_count = euc.pairs + euc.kana;
    if (euc_count != 0 && !euc.bad) {
        return EncodingEucJp;
    }
    const Reading sjis = read_as_shift_jis<blocks>(text, end);
    const std::int64_t sjis_count = sjis.pairs + sjis.kana;
    if (sjis_count != 0 && !sjis.bad) {
        return EncodingShiftJis;
    }
    if (euc_count == 0 && sjis_count == 0) {
        return state;
    }
    const std::int64_t euc_score = 2 * euc_count - (euc.bad ? kPenalty : 0);
    const std::int64_t sjis_score = sjis.kana + 2 * sjis.pairs - (sjis.bad ? kPenalty : 0);
    if (euc_score >= sjis_score && euc_score >= 0 && euc.bad) {
        return EncodingEucJp;
    }
    if (sjis_score >= euc_score && sjis_score >= 0 && sjis.bad) {
        return EncodingShiftJis;
    }
    return EncodingNone;
}

}  // namespace OS::charset

#endif  // OSTREL_CHARSET_JAPANESE_WALKS_H
