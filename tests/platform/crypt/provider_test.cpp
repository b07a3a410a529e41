#include <sys/mman.h>

#include "ostrel/platform/rpc_crypt.h"
#include "support/file_calls.h"
#include "support/signals.h"

namespace {

TEST(Provider, OpensWithoutContainersAlone) {
    const WCHAR *const none = nullptr, *const name = TEXT("name");
    const std::tuple<const WCHAR *, const WCHAR *, DWORD, DWORD, DWORD> cases[] = {
        {none, none, PROV_RSA_FULL, 0xF0000000, 0},
        {none, none, PROV_RSA_AES, 0xF0000060, 0},  // silent, of the machine
        {none, none, 0, 0xF0000000, NTE_BAD_PROV_TYPE},
        {none, none, 13, 0xF0000000, NTE_PROV_TYPE_NOT_DEF},
        {none, name, 1, 0xF0000000, NTE_KEYSET_NOT_DEF},
        {name, none, 1, 0xF0000000, NTE_BAD_FLAGS},
        {name, none, 1, 0, NTE_BAD_KEYSET},
    };
    for (const auto &[container, provider_name, type, flags, code] : cases) {
        SCOPED_TRACE(code);
        HCRYPTPROV provider = 1;
        EXPECT_EQ(error_of(CryptAcquireContextW(&provider, container, provider_name, type, flags)),
                  code);
        EXPECT_EQ(error_of(CryptReleaseContext(provider, 0)), code == 0 ? 0 : ERROR_INVALID_HANDLE);
    }
}

TEST(Provider, RefusesWrongHandlesAndBuffers) {
    HCRYPTPROV open = 0;
    ASSERT_TRUE(CryptAcquireContextW(&open, nullptr, nullptr, 1, CRYPT_VERIFYCONTEXT));
    const Handles events = {event(false)};
    const auto other = reinterpret_cast<HCRYPTPROV>(events[0]);
    void *const page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    BYTE bytes[16];
    EXPECT_EQ(error_of(CryptGenRandom(other, 16, bytes)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(error_of(CryptGenRandom(open, 16, nullptr)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(error_of(CryptGenRandom(open, 16, static_cast<BYTE *>(page))), ERROR_NOACCESS);
    munmap(page, 4096);
    EXPECT_EQ(error_of(CryptReleaseContext(other, 0)), ERROR_INVALID_HANDLE);
    EXPECT_EQ(error_of(CryptReleaseContext(open, 1)), NTE_BAD_FLAGS);  // and releases
    EXPECT_EQ(error_of(CryptGenRandom(open, 16, bytes)), ERROR_INVALID_HANDLE);
}

}  // namespace
