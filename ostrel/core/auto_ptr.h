#ifndef OSTREL_CORE_AUTO_PTR_H
#define OSTREL_CORE_AUTO_PTR_H

// CAutoPtr: an owning pointer whose copy takes the object over.
//
// It holds one pointer, or null, and destroys its object (delete) when it is destroyed itself or
// given another one. Copying and assigning move the pointer to the target and leave the source
// null, also when the source is const: a container of CAutoPtr that is copied hands its objects
// over. Where that is not wanted, use std::unique_ptr.
//
// Threads: an object belongs to one thread at a time.

#include <utility>

namespace OS {

template <class T>
class CAutoPtr {
public:
    // Takes ownership of `object`.
    constexpr explicit CAutoPtr(T *object = nullptr) noexcept : m_p(object) {}
    CAutoPtr(const CAutoPtr &source) noexcept : m_p(source.release()) {}
    ~CAutoPtr() { delete m_p; }

    CAutoPtr &operator=(const CAutoPtr &source) {
        reset(source.release());
        return *this;
    }

    T *get() const noexcept { return m_p; }
    T *operator->() const noexcept { return m_p; }
    T &operator*() const noexcept { return *m_p; }
    explicit operator bool() const noexcept { return m_p != nullptr; }

    // Gives the object to the caller.
    T *release() const noexcept { return std::exchange(m_p, nullptr); }

    // Destroys the object held, unless it is this one, and takes ownership of `object`.
    void reset(T *object = nullptr) {
        if (object != m_p) {
            delete std::exchange(m_p, object);
        }
    }

private:
    mutable T *m_p;
};

}  // namespace OS

#endif  // OSTREL_CORE_AUTO_PTR_H
