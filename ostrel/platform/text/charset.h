#ifndef OSTREL_PLATFORM_TEXT_CHARSET_H
#define OSTREL_PLATFORM_TEXT_CHARSET_H

// Internal. Converts between bytes in a code page and UTF-16, for the other rooms of the layer.
//
// The conversions reject no content. In UTF-16 and UTF-8 results, U+FFFD replaces broken input. In
// other code pages, the platform's best fit, ICU's fallback or '?' replaces a character that the
// code page lacks.
//
//   const std::u16string text = to_wide(name);              // from the system code page
//   const std::string bytes = to_narrow(text, kCodePageUtf8);
//
// Errors: std::bad_alloc when memory for a converter or a result is short.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

inline constexpr unsigned kCodePageUtf8 = 65001;

// Returns the system code page. The first call determines it for the process; see GetACP.
unsigned system_code_page();

// Whether the functions below know a code page. For an unknown code page they use UTF-8.
bool is_code_page(unsigned code_page);

std::u16string to_wide(std::string_view bytes, unsigned code_page = system_code_page());
std::string to_narrow(std::u16string_view text, unsigned code_page = system_code_page());

// Convert into a buffer of `capacity` units or bytes, without a NUL. Return the units or bytes
// stored, or kTooSmall (utf8.h) when the result does not fit; the buffer then holds the beginning.
std::size_t to_wide_within(std::string_view bytes, unsigned code_page, WCHAR *units,
                           std::size_t capacity);
std::size_t to_narrow_within(std::u16string_view text, unsigned code_page, char *bytes,
                             std::size_t capacity);

// Return the units or bytes that the conversion stores.
std::size_t wide_length(std::string_view bytes, unsigned code_page);
std::size_t narrow_length(std::u16string_view text, unsigned code_page);

// Convert a text from or to the system code page in pieces of bounded size and pass each piece to
// `take`. When `last` is false, more text follows elsewhere, and the functions leave out a
// character that the end cuts. They allocate no memory, except to open the converter of a code page
// that the thread did not use last.
void for_each_wide_piece(std::string_view bytes, bool last,
                         const std::function<void(std::u16string_view)> &take);
void for_each_narrow_piece(std::u16string_view text, bool last,
                           const std::function<void(std::string_view)> &take);

class Converter;

// Decodes a text that arrives in blocks. A block may end anywhere, also within a character. For an
// unknown code page the decoder uses UTF-8.
class StreamDecoder {
public:
    explicit StreamDecoder(unsigned code_page);
    ~StreamDecoder();
    StreamDecoder(const StreamDecoder &) = delete;
    StreamDecoder &operator=(const StreamDecoder &) = delete;

    // Returns the units that Decode stores at most for `count` bytes and for the bytes kept from
    // the block before.
    static constexpr std::size_t Capacity(std::size_t count) { return count + 8; }

    // Decodes the `count` bytes of a block into `units`, which holds Capacity(count) units. `last`
    // says that no block follows; a character cut there is broken. Returns the units stored.
    std::size_t Decode(const char *bytes, std::size_t count, bool last, WCHAR *units);

private:
    std::unique_ptr<Converter> m_converter;  // null for UTF-8
    char m_pending[4];                       // the bytes of a UTF-8 character that a block cut
    std::size_t m_pendingCount = 0;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_CHARSET_H
