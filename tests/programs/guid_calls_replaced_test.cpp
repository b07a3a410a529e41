// CGUID and CCryptRandom when the platform's calls fail.

#include <functional>
#include <memory>

#include "ostrel/core/cm_guid.h"
#include "ostrel/core/crypt_random.h"
#include "ostrel/core/exception.h"
#include "ostrel/platform/error.h"
#include "support/test.h"
#include "support/trace_capture.h"

namespace {

// What each call returns, and what has been asked for.
RPC_STATUS g_create, g_from_string, g_to_string, g_free, g_compare;
BOOL g_acquires = TRUE;
int g_texts, g_acquired, g_released;
std::string g_random;

}  // namespace

RPC_STATUS UuidCreate(UUID *uuid) noexcept {
    *uuid = {};
    return g_create;
}
RPC_STATUS UuidFromStringW(RPC_WSTR text, UUID *) noexcept {
    *text = 0;  // in a copy
    return g_from_string;
}
RPC_STATUS UuidToStringW(const UUID *, RPC_WSTR *text) noexcept {
    static WCHAR written[] = TEXT("text");
    *text = g_to_string == 0 ? written : *text;
    g_texts += g_to_string == 0 ? 1 : 0;
    return g_to_string;
}
RPC_STATUS RpcStringFreeW(RPC_WSTR *) noexcept {
    --g_texts;
    return g_free;
}
int UuidCompare(UUID *, UUID *, RPC_STATUS *status) noexcept {
    *status = g_compare;
    return -1;
}
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

TEST(GuidCallsReplaced, ThatFailThrowTheLastErrorOnOnePath) {
    const OS::x_wstring text(TEXT("any"));
    const CGUID guid(text);
    EXPECT_EQ(guid.GetString(), text);
    EXPECT_EQ(guid == _GUID{}, 0);
    const std::pair<RPC_STATUS *, std::function<void()>> cases[] = {
        {&g_create, [] { CGUID made; }},
        {&g_from_string, [&text] { CGUID made(text); }},
        {&g_to_string, [] { CGUID made; }},
        {&g_free, [] { CGUID made; }},
        {&g_compare, [&guid] { EXPECT_EQ(guid == _GUID{}, 2); }},
    };
    for (const auto &[status, act] : cases) {
        const TraceCapture trace;
        *status = 1824;
        SetLastError(55);
        try {
            act();
            ADD_FAILURE();
        } catch (const OS::CSystemException &failure) {
            EXPECT_EQ(failure.GetErrorCode(), 55);
        }
        *status = 0;
        EXPECT_EQ(trace.Lines(), "4097 .\\cm_guid.cpp RPC_STATUS status = 1824, last error = 55\n");
        EXPECT_EQ(g_texts, 0);
    }
}

TEST(GuidCallsReplaced, ReleaseAProviderWithItsLastUser) {
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
