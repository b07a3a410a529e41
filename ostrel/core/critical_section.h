#ifndef OSTREL_CORE_CRITICAL_SECTION_H
#define OSTREL_CORE_CRITICAL_SECTION_H

// CCriticalSection_local is a recursive lock between the threads of one process, a critical section
// of the platform. Objects of a scope enter and leave the lock.
//
//   OS::CCriticalSection_local lock;
//   {
//       const OS::CCriticalSection_local::CHolder held(lock);
//       ...
//   }
//
// Threads: the owner may enter again, and the lock is free when the owner has left as often as it
// has entered. A thread that TerminateThread ends leaves the lock first, or keeps it for ever while
// it does not come to leave it (ostrel/platform/sync.h).
// Errors: nothing throws.

#include "ostrel/core/api.h"
#include "ostrel/platform/sync.h"

namespace OS {

class OSTREL_API CCriticalSection_local {
public:
    // Owns a lock for the length of a scope.
    class OSTREL_API CHolder {
    public:
        // Waits until the calling thread owns `lock`.
        explicit CHolder(CCriticalSection_local &lock) noexcept;
        ~CHolder();
        CHolder(const CHolder &) = delete;
        CHolder &operator=(const CHolder &) = delete;

    private:
        CCriticalSection_local &m_lock;
    };

    // Makes a free lock. The destructor ends its use, also while another thread owns it.
    CCriticalSection_local() noexcept;
    ~CCriticalSection_local();
    CCriticalSection_local(const CCriticalSection_local &) = delete;
    CCriticalSection_local &operator=(const CCriticalSection_local &) = delete;

    // Waits for the lock for about so many milliseconds at most; 0 only tries. Returns true when
    // the calling thread owns the lock, which the thread then leaves by Leave. A thread that waits
    // asks once a millisecond, so threads that wait in CHolder come first.
    bool TryEnter(DWORD milliseconds) noexcept;
    void Leave() noexcept;

private:
    CRITICAL_SECTION m_section;
};

}  // namespace OS

#endif  // OSTREL_CORE_CRITICAL_SECTION_H
