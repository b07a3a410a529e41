#include "ostrel/core/crypt_random.h"

#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "ostrel/platform/rpc_crypt.h"

namespace OS {

struct CCryptRandom::Provider {
    HCRYPTPROV handle = 0;
    std::atomic<std::size_t> users{1};
};

CCryptRandom::CCryptRandom() noexcept : m_provider(nullptr) {
    std::unique_ptr<Provider> provider(new (std::nothrow) Provider);
    if (provider != nullptr && CryptAcquireContextW(&provider->handle, nullptr, nullptr,
                                                    PROV_RSA_FULL, CRYPT_VERIFYCONTEXT) != FALSE) {
        m_provider = provider.release();
    }
}

CCryptRandom::CCryptRandom(const CCryptRandom &other) noexcept : m_provider(other.m_provider) {
    if (m_provider != nullptr) {
        m_provider->users.fetch_add(1, std::memory_order_relaxed);
    }
}

CCryptRandom &CCryptRandom::operator=(const CCryptRandom &other) noexcept {
    CCryptRandom copy(other);
    std::swap(m_provider, copy.m_provider);
    return *this;
}

CCryptRandom::~CCryptRandom() {
    if (m_provider != nullptr && m_provider->users.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        CryptReleaseContext(m_provider->handle, 0);
        delete m_provider;
    }
}

int CCryptRandom::Get(void *buffer, DWORD count) const noexcept {
    return m_provider != nullptr
               ? CryptGenRandom(m_provider->handle, count, static_cast<BYTE *>(buffer))
               : 0;
}

}  // namespace OS
