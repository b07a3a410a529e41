#ifndef OSTREL_REGEX_GROWING_ARRAY_H
#define OSTREL_REGEX_GROWING_ARRAY_H

// Internal. The array that holds the programs and stacks of the pattern engine.

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "ostrel/regex/validators.h"

namespace OS::regex {

[[noreturn]] inline void throw_bad_index() {
    throw RegexFailure{RegexFailure::kInvalidArgument};
}

inline void check_index(bool within) {
    if (!within) {
        throw_bad_index();
    }
}

// An array of trivial elements that begins empty. It checks each index and returns false when
// memory is short. The object itself has space for `local` elements, so that the validators
// allocate nothing for an ordinary text.
//
// Errors: operator[] throws RegexFailure with kInvalidArgument when the index is not below Count().
template <class T, std::size_t local>
class GrowingArray {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

public:
    GrowingArray() = default;
    GrowingArray(const GrowingArray &) = delete;
    GrowingArray &operator=(const GrowingArray &) = delete;

    std::size_t Count() const { return m_count; }
    T *Data() { return m_elements; }
    const T *Data() const { return m_elements; }

    T &operator[](std::size_t index) {
        check_index(index < m_count);
        return m_elements[index];
    }
    const T &operator[](std::size_t index) const {
        check_index(index < m_count);
        return m_elements[index];
    }

    // Sets the number of elements; new elements have no value. The first allocation has exactly
    // `count` elements. A later one adds at least an eighth of the present number, limited to 4 to
    // 1024 elements. A smaller `count` keeps the memory. Returns true. When memory is short,
    // returns false and changes nothing.
    bool Resize(std::size_t count) noexcept {
        if (count > m_capacity && !Reserve(count)) {
            return false;
        }
        m_count = count;
        return true;
    }

    // Replaces the elements by `count` zeroed ones. Returns true. When memory is short, returns
    // false and leaves the array empty.
    bool Renew(std::size_t count) noexcept {
        Clear();
        if (!Resize(count)) {
            return false;
        }
        if (count != 0) {
            std::memset(m_elements, 0, count * sizeof(T));
        }
        return true;
    }

    void Clear() noexcept {
        m_heap.reset();
        m_elements = m_local;
        m_count = 0;
        m_capacity = local;
    }

private:
    struct Release {
        void operator()(T *elements) const { ::operator delete(elements); }
    };

    bool Reserve(std::size_t count) noexcept {
        if (m_heap != nullptr) {
            const std::size_t step = std::clamp<std::size_t>(m_count / 8, 4, 1024);
            count = std::max(count, m_capacity + step);
        }
        if (count > static_cast<std::size_t>(-1) / sizeof(T)) {
            return false;
        }
        std::unique_ptr<T, Release> grown(
            static_cast<T *>(::operator new(count * sizeof(T), std::nothrow)));
        if (grown == nullptr) {
            return false;
        }
        std::memcpy(grown.get(), m_elements, m_count * sizeof(T));
        m_heap = std::move(grown);
        m_elements = m_heap.get();
        m_capacity = count;
        return true;
    }

    T m_local[local];
    std::unique_ptr<T, Release> m_heap;
    T *m_elements = m_local;
    std::size_t m_count = 0;
    std::size_t m_capacity = local;
};

}  // namespace OS::regex

#endif  // OSTREL_REGEX_GROWING_ARRAY_H
