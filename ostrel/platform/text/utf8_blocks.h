#ifndef OSTREL_PLATFORM_TEXT_UTF8_BLOCKS_H
#define OSTREL_PLATFORM_TEXT_UTF8_BLOCKS_H

// Internal. Converts valid UTF-8 and UTF-16 a block at a time, with the byte shuffle of SSSE3, for
// utf8.cpp. Each call stops at the end of a character, in front of a block that is incomplete or
// that it cannot convert (broken UTF-8; UTF-16 with surrogates). The caller continues there
// character by character.

#include <cstddef>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// How far a call got: the source bytes or units read, and the target units or bytes stored, or to
// be stored in the functions that measure.
struct Progress {
    std::size_t taken = 0;
    std::size_t stored = 0;
};

// Whether this processor has SSSE3 and POPCNT, which the functions below need.
bool has_block_shuffle() noexcept;

// `units` holds at least `count` units.
Progress utf8_blocks_to_utf16(const char *bytes, std::size_t count, WCHAR *units) noexcept;
Progress utf8_blocks_length(const char *bytes, std::size_t count) noexcept;

// `bytes` holds at least 3 * `count` bytes.
Progress utf16_blocks_to_utf8(const WCHAR *units, std::size_t count, char *bytes) noexcept;
// The call that measures counts surrogates too and may stop within a pair; the half that it has
// read then counts 1 byte, so that the other half adds its 3.
Progress utf16_blocks_length(const WCHAR *units, std::size_t count) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_UTF8_BLOCKS_H
