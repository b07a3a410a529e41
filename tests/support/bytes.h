#ifndef TESTS_SUPPORT_BYTES_H
#define TESTS_SUPPORT_BYTES_H

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

// The text in a block of just its size, so that an overrun is seen.
inline std::unique_ptr<char[]> block_of(const std::string &text) {
    std::unique_ptr<char[]> block(new char[text.size() + 1]);
    std::memcpy(block.get(), text.c_str(), text.size() + 1);
    return block;
}

// ASCII as wide text.
inline std::u16string wide(std::string_view text) {
    return {text.begin(), text.end()};
}

inline std::string repeated(std::size_t count, const std::string &piece) {
    std::string text;
    for (; count > 0; --count) {
        text += piece;
    }
    return text;
}

#endif  // TESTS_SUPPORT_BYTES_H
