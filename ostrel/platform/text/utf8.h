#ifndef OSTREL_PLATFORM_TEXT_UTF8_H
#define OSTREL_PLATFORM_TEXT_UTF8_H

// Internal. Converts between UTF-8 and UTF-16 by the Unicode Standard: a surrogate, an overlong
// form or a value above U+10FFFF is broken, and each maximal part of a broken sequence becomes one
// U+FFFD (section 3.9, "Substitution of Maximal Subparts"). On processors with SSSE3, runs of
// ASCII, of one- and two-byte characters and of three-byte characters are converted 5 to 16 at a
// time.

#include <cstddef>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Returns the bytes of a character by its first byte alone, or 1 for a byte that begins none.
constexpr std::size_t utf8_length(unsigned char lead) {
    return lead < 0xC2 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 1;
}

// Returns how many of the `available` bytes at `bytes`, 1 or more, can stand at the start of one
// character. A character of two bytes or more is complete when the result is utf8_length(bytes[0]).
std::size_t utf8_sound_length(const unsigned char *bytes, std::size_t available);

// Decodes `count` bytes. `units` holds at least `count` units. When `last` is false, the call stops
// in front of a character that the end cuts. `*consumed` receives the number of bytes decoded.
// Returns the units stored.
std::size_t utf8_to_utf16(const char *bytes, std::size_t count, bool last, WCHAR *units,
                          std::size_t *consumed);

// Encodes `count` units; a lone surrogate becomes U+FFFD. `bytes` holds at least 3 * `count` bytes.
// Returns the bytes stored.
std::size_t utf16_to_utf8(const WCHAR *units, std::size_t count, char *bytes);

// Return the units or bytes that the two conversions store for the whole text.
std::size_t utf16_length(const char *bytes, std::size_t count);
std::size_t utf8_length(const WCHAR *units, std::size_t count);

inline constexpr std::size_t kTooSmall = ~std::size_t{0};

// Convert a whole text into a buffer of `capacity` units or bytes, however small. Return the units
// or bytes stored, or kTooSmall when the result does not fit; the buffer then holds the beginning.
std::size_t utf8_to_utf16_within(const char *bytes, std::size_t count, WCHAR *units,
                                 std::size_t capacity);
std::size_t utf16_to_utf8_within(const WCHAR *units, std::size_t count, char *bytes,
                                 std::size_t capacity);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_UTF8_H
