#ifndef OSTREL_PLATFORM_BASE_NEVER_DESTROYED_H
#define OSTREL_PLATFORM_BASE_NEVER_DESTROYED_H

// Internal. An object that outlives every static object and needs no heap memory of its own, so
// that its first use cannot fail.

#include <cstddef>
#include <new>

namespace ostrel_platform {

//   static NeverDestroyed<Table> table;
//   return *table;
template <class T>
class NeverDestroyed {
public:
    NeverDestroyed() noexcept { new (m_storage) T; }
    NeverDestroyed &operator=(NeverDestroyed &&) = delete;  // nor copied

    T &operator*() { return *std::launder(reinterpret_cast<T *>(m_storage)); }

private:
    alignas(T) std::byte m_storage[sizeof(T)];
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_NEVER_DESTROYED_H
