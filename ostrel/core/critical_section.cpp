#include "ostrel/core/critical_section.h"

namespace OS {

CCriticalSection_local::CHolder::CHolder(CCriticalSection_local &lock) noexcept : m_lock(lock) {
    EnterCriticalSection(&m_lock.m_section);
}

CCriticalSection_local::CHolder::~CHolder() {
    m_lock.Leave();
}

CCriticalSection_local::CCriticalSection_local() noexcept {
    InitializeCriticalSection(&m_section);
}

CCriticalSection_local::~CCriticalSection_local() {
    DeleteCriticalSection(&m_section);
}

bool CCriticalSection_local::TryEnter(DWORD milliseconds) noexcept {
    for (; TryEnterCriticalSection(&m_section) == FALSE; --milliseconds) {
        if (milliseconds == 0) {
            return false;
        }
        Sleep(1);
    }
    return true;
}

void CCriticalSection_local::Leave() noexcept {
    LeaveCriticalSection(&m_section);
}

}  // namespace OS
