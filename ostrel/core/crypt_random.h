#ifndef OSTREL_CORE_CRYPT_RANDOM_H
#define OSTREL_CORE_CRYPT_RANDOM_H

// CCryptRandom hands out random bytes of cryptographic quality.
//
//   unsigned char key[32];
//   OS::CCryptRandom random;
//   if (random.Get(key, sizeof key) == 0) ...  // not filled: the key must not be used
//
// Ownership: copies share one provider of the platform. The last of them to be destroyed or
// assigned to releases the provider, in whatever order they go.
// Threads: any number of threads may call Get of one object at once, and destroy copies. Assignment
// needs the object for itself.
// Errors: nothing throws and nothing is traced. A provider that is missing shows in Get alone.
// Platform: ostrel/platform/rpc_crypt.h describes the bytes.

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

namespace OS {

class OSTREL_API CCryptRandom {
public:
    // Opens a provider, without keys. On failure, also when memory is short, the object has none.
    CCryptRandom() noexcept;
    CCryptRandom(const CCryptRandom &other) noexcept;
    CCryptRandom &operator=(const CCryptRandom &other) noexcept;
    virtual ~CCryptRandom();

    // Fills `buffer` with `count` random bytes and returns a value other than 0. Returns 0 when the
    // object has no provider or CryptGenRandom fails, which sets the last error; `buffer` may then
    // hold a part of the bytes.
    int Get(void *buffer, DWORD count) const noexcept;

private:
    struct Provider;

    Provider *m_provider;  // null without a provider
};

}  // namespace OS

#endif  // OSTREL_CORE_CRYPT_RANDOM_H
