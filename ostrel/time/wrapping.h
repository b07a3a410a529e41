#ifndef OSTREL_TIME_WRAPPING_H
#define OSTREL_TIME_WRAPPING_H

// Internal. Integer arithmetic that wraps instead of overflowing, for fields that nothing checks.

#include <type_traits>

namespace OS::detail {

template <class Int>
constexpr Int wrapping_add(Int left, Int right) noexcept {
    using Unsigned = std::make_unsigned_t<Int>;
    return static_cast<Int>(static_cast<Unsigned>(left) + static_cast<Unsigned>(right));
}

template <class Int>
constexpr Int wrapping_subtract(Int left, Int right) noexcept {
    using Unsigned = std::make_unsigned_t<Int>;
    return static_cast<Int>(static_cast<Unsigned>(left) - static_cast<Unsigned>(right));
}

template <class Int>
constexpr Int wrapping_multiply(Int left, Int right) noexcept {
    using Unsigned = std::make_unsigned_t<Int>;
    return static_cast<Int>(static_cast<Unsigned>(left) * static_cast<Unsigned>(right));
}

}  // namespace OS::detail

#endif  // OSTREL_TIME_WRAPPING_H
