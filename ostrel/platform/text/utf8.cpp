#include "ostrel/platform/text/utf8.h"

#include <algorithm>
#include <iterator>

#include "ostrel/platform/text/utf8_blocks.h"

namespace ostrel_platform {
namespace {

constexpr WCHAR kReplacement = 0xFFFD;

constexpr bool is_continuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// Some lead bytes limit the second byte more closely (Table 3-7 of the standard). The limits
// exclude overlong forms, surrogates and values above U+10FFFF.
constexpr bool is_second(unsigned char lead, unsigned char byte) {
    switch (lead) {
        case 0xE0:
            return byte >= 0xA0 && byte <= 0xBF;
        case 0xED:
            return byte >= 0x80 && byte <= 0x9F;
        case 0xF0:
            return byte >= 0x90 && byte <= 0xBF;
        case 0xF4:
            return byte >= 0x80 && byte <= 0x8F;
        default:
            return is_continuation(byte);
    }
}

const bool kBlocks = has_block_shuffle();

constexpr bool is_high_surrogate(WCHAR unit) {
    return (unit & 0xFC00) == 0xD800;
}

constexpr bool is_low_surrogate(WCHAR unit) {
    return (unit & 0xFC00) == 0xDC00;
}

char *put_utf8(char32_t code, char *out) {
    const auto tail = [code](int shift) {
        return static_cast<char>(0x80 | ((code >> shift) & 0x3F));
    };
    if (code < 0x800) {
        *out++ = static_cast<char>(0xC0 | (code >> 6));
    } else {
        if (code < 0x10000) {
            *out++ = static_cast<char>(0xE0 | (code >> 12));
        } else {
            *out++ = static_cast<char>(0xF0 | (code >> 18));
            *out++ = tail(12);
        }
        *out++ = tail(6);
    }
    *out++ = tail(0);
    return out;
}

WCHAR *put_utf16(const unsigned char *in, std::size_t length, WCHAR *out) {
    char32_t code = length == 2 ? in[0] & 0x1Fu : length == 3 ? in[0] & 0x0Fu : in[0] & 0x07u;
    for (std::size_t i = 1; i < length; ++i) {
        code = (code << 6) | (in[i] & 0x3Fu);
    }
    if (code >= 0x10000) {
        *out++ = static_cast<WCHAR>(0xD7C0 + (code >> 10));
        code = 0xDC00 + (code & 0x3FF);
    }
    *out++ = static_cast<WCHAR>(code);
    return out;
}

}  // namespace

std::size_t utf8_sound_length(const unsigned char *bytes, std::size_t available) {
    const std::size_t length = utf8_length(bytes[0]);
    std::size_t sound = 1;
    if (length > 1 && available > 1 && is_second(bytes[0], bytes[1])) {
        for (sound = 2; sound < length && sound < available && is_continuation(bytes[sound]);) {
            ++sound;
        }
    }
    return sound;
}

std::size_t utf8_to_utf16(const char *bytes, std::size_t count, bool last, WCHAR *units,
                          std::size_t *consumed) {
    const auto *const in = reinterpret_cast<const unsigned char *>(bytes);
    std::size_t pos = 0;
    WCHAR *out = units;
    while (pos < count) {
        if (kBlocks) {
            const Progress run = utf8_blocks_to_utf16(bytes + pos, count - pos, out);
            pos += run.taken;
            out += run.stored;
        }
        // The reason why the blocks stopped lies within the next 64 bytes.
        for (const std::size_t end = std::min(count, pos + 64); pos < end;) {
            const unsigned char lead = in[pos];
            if (lead < 0x80) {
                *out++ = lead;
                ++pos;
                continue;
            }
            const std::size_t length = utf8_length(lead);
            const std::size_t sound = utf8_sound_length(in + pos, count - pos);
            if (length > 1 && sound == length) {
                out = put_utf16(in + pos, length, out);
            } else if (!last && length > 1 && pos + sound == count) {
                *consumed = pos;  // the end cuts the character
                return static_cast<std::size_t>(out - units);
            } else {
                *out++ = kReplacement;
            }
            pos += sound;
        }
    }
    *consumed = pos;
    return static_cast<std::size_t>(out - units);
}

std::size_t utf16_to_utf8(const WCHAR *units, std::size_t count, char *bytes) {
    std::size_t pos = 0;
    char *out = bytes;
    while (pos < count) {
        if (kBlocks && count - pos >= 16) {
            const Progress run = utf16_blocks_to_utf8(units + pos, count - pos, out);
            pos += run.taken;
            out += run.stored;
        }
        // The reason why the blocks stopped lies within the next eight units.
        for (const std::size_t end = std::min(count, pos + 8); pos < end;) {
            char32_t code = units[pos++];
            if (code < 0x80) {
                *out++ = static_cast<char>(code);
                continue;
            }
            if ((code & 0xF800) == 0xD800) {
                if (code < 0xDC00 && pos < count && is_low_surrogate(units[pos])) {
                    code = 0x10000 + ((code & 0x3FF) << 10) + (units[pos++] & 0x3FFu);
                } else {
                    code = kReplacement;
                }
            }
            out = put_utf8(code, out);
        }
    }
    return static_cast<std::size_t>(out - bytes);
}

std::size_t utf16_length(const char *bytes, std::size_t count) {
    std::size_t length = 0;
    while (count > 0) {
        Progress step;
        if (kBlocks) {
            step = utf8_blocks_length(bytes, count);
        }
        WCHAR scratch[64];
        const std::size_t piece = std::min(count - step.taken, std::size(scratch));
        std::size_t consumed = 0;
        length += step.stored + utf8_to_utf16(bytes + step.taken, piece,
                                              piece == count - step.taken, scratch, &consumed);
        bytes += step.taken + consumed;
        count -= step.taken + consumed;
    }
    return length;
}

std::size_t utf8_length(const WCHAR *units, std::size_t count) {
    const Progress blocks = kBlocks ? utf16_blocks_length(units, count) : Progress();
    std::size_t length = blocks.stored;
    for (std::size_t i = blocks.taken; i < count; ++i) {
        length += 1u + (units[i] >= 0x80) + (units[i] >= 0x800);
        if (i + 1 < count && is_high_surrogate(units[i]) && is_low_surrogate(units[i + 1])) {
            length -= 2;  // a pair has four bytes, two lone surrogates have six
        }
    }
    return length;
}

// The two functions below convert in pieces whose result fits in any case. Near the end of the
// buffer they convert a piece to a scratch buffer and copy what fits.

std::size_t utf8_to_utf16_within(const char *bytes, std::size_t count, WCHAR *units,
                                 std::size_t capacity) {
    constexpr std::size_t kScratch = 16;
    std::size_t stored = 0;
    while (count > 0) {
        WCHAR scratch[kScratch];
        const std::size_t left = capacity - stored;
        const bool direct = left >= std::min(count, kScratch);
        const std::size_t piece = std::min(count, direct ? left : kScratch);
        WCHAR *const target = direct ? units + stored : scratch;
        std::size_t consumed = 0;
        const std::size_t got = utf8_to_utf16(bytes, piece, piece == count, target, &consumed);
        if (!direct) {
            std::copy_n(scratch, std::min(got, left), units + stored);
            if (got > left) {
                return kTooSmall;
            }
        }
        stored += got;
        bytes += consumed;
        count -= consumed;
    }
    return stored;
}

std::size_t utf16_to_utf8_within(const WCHAR *units, std::size_t count, char *bytes,
                                 std::size_t capacity) {
    constexpr std::size_t kScratch = 16;
    std::size_t stored = 0;
    while (count > 0) {
        char scratch[3 * kScratch];
        const std::size_t left = capacity - stored;
        const bool direct = left / 3 >= std::min(count, kScratch);
        std::size_t piece = std::min(count, direct ? left / 3 : kScratch);
        if (piece < count && is_high_surrogate(units[piece - 1]) &&
            is_low_surrogate(units[piece])) {
            --piece;
        }
        const std::size_t got = utf16_to_utf8(units, piece, direct ? bytes + stored : scratch);
        if (!direct) {
            std::copy_n(scratch, std::min(got, left), bytes + stored);
            if (got > left) {
                return kTooSmall;
            }
        }
        stored += got;
        units += piece;
        count -= piece;
    }
    return stored;
}

}  // namespace ostrel_platform
