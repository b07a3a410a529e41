#ifndef OSTREL_CHARSET_HEAP_TEXT_H
#define OSTREL_CHARSET_HEAP_TEXT_H

// Internal. Owns strings from malloc, which the functions of this directory return.

#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace OS::charset {

struct FreeText {
    void operator()(char *text) const { std::free(text); }
};
using HeapText = std::unique_ptr<char, FreeText>;

// Allocates `length` x `factor` bytes and one more for a zero byte; sets no values. Returns null
// when `length` is above INT_MAX, when the size does not fit std::size_t, and when memory is short.
inline HeapText allocate_text(std::size_t length, std::size_t factor = 1) {
    constexpr std::size_t kMax = static_cast<std::size_t>(-1) / 2;
    const bool fits = length <= INT_MAX && length <= kMax / factor;
    return HeapText(fits ? static_cast<char *>(std::malloc(length * factor + 1)) : nullptr);
}

// Returns a copy of the terminated text, or null as allocate_text does.
inline HeapText copy_text(const char *text) {
    const std::size_t length = std::strlen(text);
    HeapText copy = allocate_text(length);
    if (copy != nullptr) {
        std::memcpy(copy.get(), text, length + 1);
    }
    return copy;
}

}  // namespace OS::charset

#endif  // OSTREL_CHARSET_HEAP_TEXT_H
