#ifndef OSTREL_PLATFORM_TEXT_UTF8_H
#define OSTREL_PLATFORM_TEXT_UTF8_H

// Internal. UTF-8 to UTF-16 and back, after the Unicode Standard: a surrogate, an overlong form or
// a value above U+10FFFF is broken, and each maximal part of a broken sequence becomes one U+FFFD
// (section 3.9, "Substitution of Maximal Subparts"). Runs of ASCII, of one- and two-byte characters
// and of three-byte characters are converted 5 to 16 at a time where the processor can.

#include <cstddef>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Bytes of a character that begins with this byte, by that byte alone; 1 for one that begins none.
constexpr std::size_t utf8_length(unsigned char lead) {
    return lead < 0xC2 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 1;
}

// How far a character at `bytes` is sound: the number of bytes, `available` at most, that can stand
// at the start of a character. The character is whole when this equals utf8_length(bytes[0]).
std::size_t utf8_sound_length(const unsigned char *bytes, std::size_t available);

// Decodes `count` bytes. `units` holds `count` units or more. Unless `last`, a character that is
// cut at the end is left. `consumed` receives the number of bytes taken. Result: the units stored.
std::size_t utf8_to_utf16(const char *bytes, std::size_t count, bool last, WCHAR *units,
                          std::size_t *consumed);

// Encodes `count` units; a lone surrogate becomes U+FFFD. `bytes` holds 3 * `count`. Result: the
// bytes stored.
std::size_t utf16_to_utf8(const WCHAR *units, std::size_t count, char *bytes);

// What the two would store.
std::size_t utf16_length(const char *bytes, std::size_t count);
std::size_t utf8_length(const WCHAR *units, std::size_t count);

inline constexpr std::size_t kTooSmall = ~std::size_t{0};

// The same into a buffer of `room`, however small. Result: what is stored, or kTooSmall; the buffer
// then holds the beginning.
std::size_t utf8_to_utf16_within(const char *bytes, std::size_t count, WCHAR *units,
                                 std::size_t capacity);
std::size_t utf16_to_utf8_within(const WCHAR *units, std::size_t count, char *bytes,
                                 std::size_t capacity);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_UTF8_H
