// Random bytes when the host gives them in pieces, or not at all.

#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "ostrel/platform/error.h"
#include "ostrel/platform/rpc_crypt.h"
#include "support/test.h"

namespace {

// What the host's call does: it fails with `error`, every second time with EINTR, and otherwise
// fills up to `most` bytes, or tells so where that is much; 0 leaves the call to the host.
struct {
    int error = 0;
    std::size_t most = 0;
    std::size_t filled = 0;
    bool interrupts = false;
} host;

}  // namespace

extern "C" ssize_t getrandom(void *bytes, std::size_t count, unsigned flags) {
    if (host.error != 0) {
        errno = host.error;
        return -1;
    }
    if (host.most == 0) {
        return static_cast<ssize_t>(syscall(SYS_getrandom, bytes, count, flags));
    }
    host.interrupts = !host.interrupts;
    if (host.interrupts) {
        errno = EINTR;
        return -1;
    }
    const std::size_t filled = std::min(count, host.most);
    if (host.most < 1000) {
        std::fill_n(static_cast<char *>(bytes), filled, 'x');
    }
    host.filled += filled;
    return static_cast<ssize_t>(filled);
}

namespace {

TEST(RandomFaults, OfAHostThatGivesPiecesGiveAllBytes) {
    HCRYPTPROV provider = 0;
    ASSERT_TRUE(
        CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    BYTE bytes[101] = {};
    host.most = 7;
    EXPECT_TRUE(CryptGenRandom(provider, 100, bytes));
    EXPECT_EQ(std::count(std::begin(bytes), std::end(bytes), 'x'), 100);
    host.filled = 0;
    host.most = (std::size_t{32} << 20) - 1;
    EXPECT_TRUE(CryptGenRandom(provider, 0xFFFFFFFF, bytes));  // which that host leaves alone
    EXPECT_EQ(host.filled, 0xFFFFFFFFu);
    host.most = 0;
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

TEST(RandomFaults, EndCallsWithTheirCode) {
    HCRYPTPROV provider = 0;
    ASSERT_TRUE(
        CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    BYTE byte;
    UUID uuid;
    EXPECT_EQ(UuidCreate(&uuid), RPC_S_OK);
    host.error = EIO;
    while (UuidCreate(&uuid) == RPC_S_OK) {  // from the bytes that the thread has left
    }
    uuid = {7, 7, 7, {}};
    for (const auto &[error, code] :
         {std::pair(ENOSYS, ERROR_CALL_NOT_IMPLEMENTED), std::pair(EPERM, ERROR_ACCESS_DENIED)}) {
        host.error = error;
        EXPECT_FALSE(CryptGenRandom(provider, 1, &byte));
        EXPECT_EQ(GetLastError(), code);
        SetLastError(0);
        EXPECT_EQ(UuidCreate(&uuid), static_cast<RPC_STATUS>(code));
        EXPECT_EQ(uuid.Data1, 7u);
        EXPECT_EQ(GetLastError(), 0u);
    }
    host.error = 0;
    EXPECT_EQ(UuidCreate(&uuid), RPC_S_OK);
    EXPECT_NE(uuid.Data3, 7u);
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

}  // namespace
