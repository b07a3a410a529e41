#include "ostrel/core/critical_section.h"

namespace OS {

CCriticalSection_local::CCriticalSection_local() noexcept {
    InitializeCriticalSection(&m_section);
}

CCriticalSection_local::~CCriticalSection_local() {
    DeleteCriticalSection(&m_section);
}

void CCriticalSection_local::Enter() noexcept {
    EnterCriticalSection(&m_section);
}

bool CCriticalSection_local::TryEnter() noexcept {
    return TryEnterCriticalSection(&m_section) != FALSE;
}

void CCriticalSection_local::Leave() noexcept {
    LeaveCriticalSection(&m_section);
}

}  // namespace OS
