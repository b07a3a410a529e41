#include <sys/mman.h>

#include <algorithm>

#include "ostrel/platform/error.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/rpc_crypt.h"
#include "ostrel/platform/sync.h"
#include "support/test.h"

namespace {

HCRYPTPROV acquired() {
    HCRYPTPROV provider = 0;
    EXPECT_TRUE(
        CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    EXPECT_NE(provider, 0u);
    return provider;
}

// The last error of a call, or 0 when it succeeds.
DWORD code_of(BOOL result) {
    return result != FALSE ? 0 : GetLastError();
}

TEST(Provider, OpensWithoutContainersAlone) {
    const WCHAR *const none = nullptr;
    const WCHAR *const name = TEXT("name");
    const struct {
        const char *row;
        const WCHAR *container, *name;
        DWORD type, flags, code;
    } kRows[] = {
        {"RSA", none, none, 1, 0xF0000000, 0},
        {"AES", none, none, 24, 0xF0000000, 0},
        {"silent, of the machine", none, none, 1, 0xF0000060, 0},
        {"type 0", none, none, 0, 0xF0000000, NTE_BAD_PROV_TYPE},
        {"type 1000", none, none, 1000, 0xF0000000, NTE_BAD_PROV_TYPE},
        {"type 13", none, none, 13, 0xF0000000, NTE_PROV_TYPE_NOT_DEF},
        {"a provider's name", none, name, 1, 0xF0000000, NTE_KEYSET_NOT_DEF},
        {"a container to verify", name, none, 1, 0xF0000000, NTE_BAD_FLAGS},
        {"a part of the flag", none, none, 1, 0x80000000, NTE_BAD_FLAGS},
        {"a new container", name, none, 1, 8, NTE_BAD_FLAGS},
        {"a stored container", name, none, 1, 0, NTE_BAD_KEYSET},
        {"the default container", none, none, 1, 0x20, NTE_BAD_KEYSET},
    };
    for (const auto &row : kRows) {
        HCRYPTPROV provider = 1;
        EXPECT_EQ(
            code_of(CryptAcquireContextW(&provider, row.container, row.name, row.type, row.flags)),
            row.code)
            << row.row;
        EXPECT_EQ(code_of(CryptReleaseContext(provider, 0)),
                  row.code == 0 ? 0 : ERROR_INVALID_HANDLE)
            << row.row;
    }
    EXPECT_EQ(code_of(CryptAcquireContextW(nullptr, none, none, 1, CRYPT_VERIFYCONTEXT)),
              ERROR_INVALID_PARAMETER);
}

TEST(Provider, FillsBuffersOfAnySize) {
    constexpr std::size_t kSize = 40 << 20;  // more than the host fills at once
    const HCRYPTPROV provider = acquired();
    std::vector<BYTE> bytes(kSize + 1, BYTE{0x55});
    for (const std::size_t size : {std::size_t{1}, std::size_t{16}, std::size_t{300}, kSize}) {
        std::fill_n(bytes.begin(), size, BYTE{0});
        ASSERT_TRUE(CryptGenRandom(provider, static_cast<DWORD>(size), bytes.data()));
        EXPECT_EQ(bytes[size], 0x55) << size;
        for (std::size_t at = 0; at + 16 <= size; at += 16 + size / 1000) {
            EXPECT_NE(std::count(&bytes[at], &bytes[at] + 16, 0), 16) << size << ' ' << at;
        }
    }
    EXPECT_TRUE(CryptGenRandom(provider, 0, nullptr));
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

TEST(Provider, RefusesWrongHandlesAndBuffers) {
    const HCRYPTPROV open = acquired(), closed = acquired();
    EXPECT_TRUE(CryptReleaseContext(closed, 0));
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    const auto other = reinterpret_cast<HCRYPTPROV>(event);
    void *const pages =
        mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_EQ(mprotect(static_cast<BYTE *>(pages) + 4096, 4096, PROT_NONE), 0);
    BYTE bytes[16];
    const struct {
        const char *name;
        HCRYPTPROV provider;
        DWORD count;
        BYTE *buffer;
        DWORD code;
    } kRows[] = {
        {"none", 0, 16, bytes, ERROR_INVALID_HANDLE},
        {"none, for nothing", 0, 0, nullptr, ERROR_INVALID_HANDLE},
        {"closed", closed, 16, bytes, ERROR_INVALID_HANDLE},
        {"an event", other, 16, bytes, ERROR_INVALID_HANDLE},
        {"no handle", ~HCRYPTPROV{0}, 16, bytes, ERROR_INVALID_HANDLE},
        {"no buffer", open, 1, nullptr, ERROR_INVALID_PARAMETER},
        {"4 GiB of it", open, 0xFFFFFFFF, nullptr, ERROR_INVALID_PARAMETER},
        {"a buffer that ends", open, 8192, static_cast<BYTE *>(pages), ERROR_NOACCESS},
    };
    for (const auto &row : kRows) {
        EXPECT_EQ(code_of(CryptGenRandom(row.provider, row.count, row.buffer)), row.code)
            << row.name;
    }
    EXPECT_EQ(code_of(CryptReleaseContext(other, 0)), ERROR_INVALID_HANDLE);
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_EQ(code_of(CryptReleaseContext(open, 1)), NTE_BAD_FLAGS);
    EXPECT_EQ(code_of(CryptReleaseContext(open, 0)), ERROR_INVALID_HANDLE);
    munmap(pages, 8192);
}

}  // namespace
