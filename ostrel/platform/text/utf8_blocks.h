#ifndef OSTREL_PLATFORM_TEXT_UTF8_BLOCKS_H
#define OSTREL_PLATFORM_TEXT_UTF8_BLOCKS_H

// Internal to utf8.cpp. The part of a text that is converted a block at a time, with the byte
// shuffle of SSSE3. Each call goes as far as sound text and whole blocks reach, always to the end
// of a character, and leaves the rest to the caller, who goes on character by character.

#include <cstddef>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// How far a call got: what it has taken, and what it has stored or would store.
struct Progress {
    std::size_t taken = 0;
    std::size_t stored = 0;
};

// Whether this processor has what the others need.
bool has_block_shuffle() noexcept;

// `units` holds `count`.
Progress utf8_blocks_to_utf16(const char *bytes, std::size_t count, WCHAR *units) noexcept;
Progress utf8_blocks_length(const char *bytes, std::size_t count) noexcept;

// `bytes` holds 3 * `count`.
Progress utf16_blocks_to_utf8(const WCHAR *units, std::size_t count, char *bytes) noexcept;
Progress utf16_blocks_length(const WCHAR *units, std::size_t count) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_UTF8_BLOCKS_H
