#include "ostrel/platform/utf8.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace platform {
namespace {

constexpr WCHAR kReplacement = 0xFFFD;

constexpr bool is_continuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The second byte of a character is bounded more closely than the others (Table 3-7 of the
// standard): that is what keeps out overlong forms, surrogates and values above U+10FFFF.
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

// Widens the leading run of ASCII; gives its length, short of up to 15 characters at the end.
std::size_t widen_ascii(const char *bytes, std::size_t count, WCHAR *units) {
    std::size_t done = 0;
#ifdef __SSE2__
    const __m128i zero = _mm_setzero_si128();
    for (; done + 16 <= count; done += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + done));
        if (_mm_movemask_epi8(block) != 0) {
            break;
        }
        auto *const out = reinterpret_cast<__m128i *>(units + done);
        _mm_storeu_si128(out, _mm_unpacklo_epi8(block, zero));
        _mm_storeu_si128(out + 1, _mm_unpackhi_epi8(block, zero));
    }
#endif
    for (; done < count && static_cast<unsigned char>(bytes[done]) < 0x80; ++done) {
        units[done] = static_cast<unsigned char>(bytes[done]);
    }
    return done;
}

// Narrows the leading run of ASCII; gives its length.
std::size_t narrow_ascii(const WCHAR *units, std::size_t count, char *bytes) {
    std::size_t done = 0;
#ifdef __SSE2__
    const __m128i high = _mm_set1_epi16(static_cast<short>(0xFF80));
    for (; done + 16 <= count; done += 16) {
        const auto *const in = reinterpret_cast<const __m128i *>(units + done);
        const __m128i first = _mm_loadu_si128(in);
        const __m128i second = _mm_loadu_si128(in + 1);
        const __m128i beyond = _mm_and_si128(_mm_or_si128(first, second), high);
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(beyond, _mm_setzero_si128())) != 0xFFFF) {
            break;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i *>(bytes + done),
                         _mm_packus_epi16(first, second));
    }
#endif
    for (; done < count && units[done] < 0x80; ++done) {
        bytes[done] = static_cast<char>(units[done]);
    }
    return done;
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
        const unsigned char lead = in[pos];
        if (lead < 0x80) {
            const std::size_t run = widen_ascii(bytes + pos, count - pos, out);
            pos += run;
            out += run;
            continue;
        }
        const std::size_t length = utf8_length(lead);
        const std::size_t sound = utf8_sound_length(in + pos, count - pos);
        if (length == 1 || sound < length) {
            if (!last && length > 1 && pos + sound == count) {
                break;  // cut, and sound so far
            }
            *out++ = kReplacement;
            pos += sound;
            continue;
        }
        char32_t code = length == 2 ? lead & 0x1Fu : length == 3 ? lead & 0x0Fu : lead & 0x07u;
        for (std::size_t i = 1; i < length; ++i) {
            code = (code << 6) | (in[pos + i] & 0x3Fu);
        }
        pos += length;
        if (code >= 0x10000) {
            *out++ = static_cast<WCHAR>(0xD7C0 + (code >> 10));
            code = 0xDC00 + (code & 0x3FF);
        }
        *out++ = static_cast<WCHAR>(code);
    }
    *consumed = pos;
    return static_cast<std::size_t>(out - units);
}

std::size_t utf16_to_utf8(const WCHAR *units, std::size_t count, char *bytes) {
    std::size_t pos = 0;
    char *out = bytes;
    while (pos < count) {
        char32_t code = units[pos];
        if (code < 0x80) {
            const std::size_t run = narrow_ascii(units + pos, count - pos, out);
            pos += run;
            out += run;
            continue;
        }
        ++pos;
        if ((code & 0xF800) == 0xD800) {
            if (code < 0xDC00 && pos < count && (units[pos] & 0xFC00) == 0xDC00) {
                code = 0x10000 + ((code & 0x3FF) << 10) + (units[pos++] & 0x3FFu);
            } else {
                code = kReplacement;
            }
        }
        out = put_utf8(code, out);
    }
    return static_cast<std::size_t>(out - bytes);
}

}  // namespace platform
