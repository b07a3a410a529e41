// CCryptRandom when the platform's calls fail.

#include <memory>

#include "ostrel/core/crypt_random.h"
#include "ostrel/platform/rpc_crypt.h"
#include "support/test.h"

namespace {

BOOL g_acquires = TRUE;
int g_acquired, g_released;
std::string g_random;

}  // namespace

BOOL CryptAcquireContextW(HCRYPTPROV *provider, const WCHAR *container, const WCHAR *name,
                          DWORD type, DWORD flags) noexcept {
    EXPECT_TRUE(container == nullptr && name == nullptr && type == 1 && flags == 0xF0000000);
    *provider = static_cast<HCRYPTPROV>(g_acquired += g_acquires);
    return g_acquires;
}
BOOL CryptGenRandom(HCRYPTPROV provider, DWORD count, BYTE *) noexcept {
    g_random += std::to_string(provider) + ':' + std::to_string(count) + ' ';
    return static_cast<BOOL>(count);
}
BOOL CryptReleaseContext(HCRYPTPROV, DWORD) noexcept {
    return ++g_released;
}

namespace {

TEST(CryptRandomCallsReplaced, ReleaseAProviderWithItsLastUser) {
    auto first = std::make_unique<OS::CCryptRandom>();
    auto second = std::make_unique<OS::CCryptRandom>(*first);
    OS::CCryptRandom third;
    EXPECT_EQ(third.Get(nullptr, 0), 0);
    third = *second;
    EXPECT_EQ(g_released, 1);
    first.reset();
    EXPECT_EQ(second->Get(nullptr, 7) + third.Get(nullptr, 9), 16);
    EXPECT_EQ(g_random, "2:0 1:7 1:9 ");
    second.reset();
    EXPECT_EQ(g_released, 1);
    g_acquires = FALSE;
    {
        const OS::CCryptRandom none, copy(none);
        EXPECT_EQ(none.Get(nullptr, 7) + copy.Get(nullptr, 7), 0);
        third = none;
    }
    EXPECT_EQ(g_released, 2);
}

}  // namespace
