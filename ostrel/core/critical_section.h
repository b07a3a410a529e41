#ifndef OSTREL_CORE_CRITICAL_SECTION_H
#define OSTREL_CORE_CRITICAL_SECTION_H

// A recursive lock, and an object that holds it for the length of a scope.
//
//   static OS::CCriticalSection_local lock;
//   {
//       const OS::CCriticalSection_local::CHolder holder(lock);
//       ++count;
//   }
//
// Threads: every function may run on any thread. Destroy a lock only when no other thread uses it.
// Errors: nothing throws.
// Platform: a critical section of platform/sync.h, which says what a thread that ends or is
// terminated leaves behind.

#include "ostrel/core/api.h"
#include "ostrel/platform/sync.h"

namespace OS {

class OSTREL_API CCriticalSection_local {
public:
    CCriticalSection_local() noexcept;
    ~CCriticalSection_local();
    CCriticalSection_local(const CCriticalSection_local &) = delete;
    CCriticalSection_local &operator=(const CCriticalSection_local &) = delete;

    // Waits until the calling thread owns the lock. The owner may enter again.
    void Enter() noexcept;
    // Returns whether the calling thread owns the lock, without waiting for another owner.
    bool TryEnter() noexcept;
    // Leaves the lock once. It is free when its owner has left as often as it has entered. Has no
    // effect when the calling thread does not own the lock.
    void Leave() noexcept;

    // Enters a lock when constructed and leaves it when destroyed, on the same thread.
    class CHolder {
    public:
        explicit CHolder(CCriticalSection_local &lock) noexcept : m_lock(lock) { m_lock.Enter(); }
        ~CHolder() { m_lock.Leave(); }
        CHolder(const CHolder &) = delete;
        CHolder &operator=(const CHolder &) = delete;

    private:
        CCriticalSection_local &m_lock;
    };

private:
    CRITICAL_SECTION m_section;
};

}  // namespace OS

#endif  // OSTREL_CORE_CRITICAL_SECTION_H
