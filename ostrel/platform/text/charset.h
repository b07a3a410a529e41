#ifndef OSTREL_PLATFORM_TEXT_CHARSET_H
#define OSTREL_PLATFORM_TEXT_CHARSET_H

// Internal. Conversion between bytes in a code page and UTF-16, for the calls of the layer that
// need it. Nothing is refused: what is broken or has no counterpart is replaced, by U+FFFD in
// UTF-16 and UTF-8, by '?' elsewhere, unless the code page has a character that comes close.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

inline constexpr unsigned kCodePageUtf8 = 65001;

// The system code page, worked out once for the process; see GetACP.
unsigned system_code_page();

// Whether there are conversions for a code page. With one that is unknown, those below take UTF-8.
bool is_code_page(unsigned code_page);

std::u16string to_wide(std::string_view bytes, unsigned code_page = system_code_page());
std::string to_narrow(std::u16string_view text, unsigned code_page = system_code_page());

// Convert into a buffer of `room`. Result: the units or bytes stored, or kTooSmall (utf8.h); the
// buffer then holds the beginning.
std::size_t to_wide_within(std::string_view bytes, unsigned code_page, WCHAR *units,
                           std::size_t capacity);
std::size_t to_narrow_within(std::u16string_view text, unsigned code_page, char *bytes,
                             std::size_t capacity);

// What these would store.
std::size_t wide_length(std::string_view bytes, unsigned code_page);
std::size_t narrow_length(std::u16string_view text, unsigned code_page);

class Converter;

// Decodes a text that arrives in blocks, which may be cut anywhere, also within a character.
class StreamDecoder {
public:
    explicit StreamDecoder(unsigned code_page);
    ~StreamDecoder();
    StreamDecoder(const StreamDecoder &) = delete;
    StreamDecoder &operator=(const StreamDecoder &) = delete;

    // Units that Decode may store for `count` bytes, what it kept from the block before included.
    static constexpr std::size_t Capacity(std::size_t count) { return count + 8; }

    // Decodes the `count` bytes of a block into `units`, which holds Capacity(count), and gives the
    // number of units stored. `last` says that no block follows: a character that is cut there is
    // broken.
    std::size_t Decode(const char *bytes, std::size_t count, bool last, WCHAR *units);

private:
    std::unique_ptr<Converter> m_converter;  // null for UTF-8
    char m_pending[4];                       // the start of a UTF-8 character
    std::size_t m_pendingCount = 0;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_CHARSET_H
