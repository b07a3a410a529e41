#ifndef OSTREL_PLATFORM_BASE_ASCII_H
#define OSTREL_PLATFORM_BASE_ASCII_H

// Internal. Classes and case of ASCII characters, and comparison of names that ignores the case of
// A to Z.

#include <algorithm>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

template <class Char>
constexpr bool is_digit(Char character) {
    return character >= '0' && character <= '9';
}

template <class Char>
constexpr Char to_upper(Char character) {
    return character >= 'a' && character <= 'z' ? static_cast<Char>(character - 'a' + 'A')
                                                : character;
}

template <class Char>
constexpr bool is_letter(Char character) {
    return to_upper(character) >= 'A' && to_upper(character) <= 'Z';
}

// Returns the value of a digit in bases up to 36, and 36 for any other character.
template <class Char>
constexpr int digit_value(Char character) {
    return is_digit(character)    ? character - '0'
           : is_letter(character) ? to_upper(character) - 'A' + 10
                                  : 36;
}

constexpr bool is_same_name(std::u16string_view a, std::u16string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](WCHAR left, WCHAR right) { return to_upper(left) == to_upper(right); });
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_ASCII_H
