// Random bytes when the host gives them in pieces, or not at all.

#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>

#include "ostrel/core/cm_guid.h"
#include "ostrel/core/exception.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/rpc_crypt.h"
#include "support/test.h"

namespace {

std::function<ssize_t(void *, std::size_t)> g_getrandom;  // in place of the host's call

}  // namespace

extern "C" ssize_t getrandom(void *bytes, std::size_t count, unsigned flags) {
    return g_getrandom ? g_getrandom(bytes, count) : syscall(SYS_getrandom, bytes, count, flags);
}

namespace {

TEST(RandomFaults, OfAHostThatGivesPiecesOrNothing) {
    HCRYPTPROV provider = 0;
    ASSERT_TRUE(CryptAcquireContextW(&provider, nullptr, nullptr, 1, CRYPT_VERIFYCONTEXT));
    g_getrandom = [is_interrupted = false](void *bytes, std::size_t count) mutable -> ssize_t {
        errno = EINTR;
        is_interrupted = !is_interrupted;
        const std::size_t filled = std::min<std::size_t>(count, 7);
        std::fill_n(static_cast<char *>(bytes), is_interrupted ? 0 : filled, 'x');
        return is_interrupted ? -1 : static_cast<ssize_t>(filled);
    };
    BYTE bytes[101] = {};
    EXPECT_TRUE(CryptGenRandom(provider, 100, bytes));
    EXPECT_EQ(std::count(std::begin(bytes), std::end(bytes), 'x'), 100);

    g_getrandom = [](void *, std::size_t) {
        errno = EPERM;
        return -1;
    };
    UUID uuid = {7, 7, 7, {}};
    EXPECT_FALSE(CryptGenRandom(provider, 1, bytes));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    SetLastError(0);
    EXPECT_EQ(UuidCreate(&uuid), RPC_STATUS{ERROR_ACCESS_DENIED});
    EXPECT_EQ(uuid.Data1 + GetLastError(), 7u);
    EXPECT_THROW(CGUID(), OS::CSystemException);
    g_getrandom = nullptr;
    EXPECT_EQ(UuidCreate(&uuid), RPC_S_OK);
    EXPECT_NE(uuid.Data3, 7u);
    EXPECT_TRUE(CryptReleaseContext(provider, 0));
}

}  // namespace
