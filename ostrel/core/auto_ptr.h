#ifndef OSTREL_CORE_AUTO_PTR_H
#define OSTREL_CORE_AUTO_PTR_H

// CAutoPtr is an owning pointer whose copy takes the object from the source.
//
//   OS::CAutoPtr<Job> job(new Job);
//   OS::CAutoPtr<Job> taken(job);    // job holds null
//   queue.push_back(taken);          // so does taken
//
// Ownership: a CAutoPtr holds one pointer or null and deletes the object when the CAutoPtr is
// destroyed or receives another pointer. Copy and assignment move the pointer to the target and
// leave null in the source, even in a const source: copying a container of CAutoPtr takes the
// objects from the original. Use std::unique_ptr where that is not wanted.
// Threads: one thread at a time may use an object. A copy changes its source too.
// Errors: no function throws anything except what the destructor of T throws.

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

    // Access to the object. get returns null when there is none; -> and * must not be used then.
    T *get() const noexcept { return m_p; }
    T *operator->() const noexcept { return m_p; }
    T &operator*() const noexcept { return *m_p; }
    explicit operator bool() const noexcept { return m_p != nullptr; }

    // Returns the pointer and holds null afterwards: the caller owns the object.
    T *release() const noexcept { return std::exchange(m_p, nullptr); }

    // Takes ownership of `object`, which may be null, and deletes the object held before. Has no
    // effect when `object` is the one already held.
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
