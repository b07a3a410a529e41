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

// What a call returns, and what all have been asked for.
struct {
    RPC_STATUS create = 0, from_string = 0, to_string = 0, free = 0, compare = 0;
    int order = 0;
    BOOL acquires = TRUE;
    int texts = 0, acquired = 0, released = 0;
    std::string random;
} calls;

RPC_STATUS failed(RPC_STATUS status) {
    if (status != 0) {
        SetLastError(55);
    }
    return status;
}

}  // namespace

RPC_STATUS UuidCreate(UUID *uuid) noexcept {
    *uuid = {};
    return failed(calls.create);
}
RPC_STATUS UuidFromStringW(RPC_WSTR text, UUID *) noexcept {
    *text = 0;  // in a copy
    return failed(calls.from_string);
}
RPC_STATUS UuidToStringW(const UUID *, RPC_WSTR *text) noexcept {
    static WCHAR written[] = TEXT("text");
    if (calls.to_string == 0) {
        *text = written;
        ++calls.texts;
    }
    return failed(calls.to_string);
}
RPC_STATUS RpcStringFreeW(RPC_WSTR *) noexcept {
    --calls.texts;
    return failed(calls.free);
}
int UuidCompare(UUID *, UUID *, RPC_STATUS *status) noexcept {
    *status = failed(calls.compare);
    return calls.order;
}
BOOL CryptAcquireContextW(HCRYPTPROV *provider, const WCHAR *container, const WCHAR *name,
                          DWORD type, DWORD flags) noexcept {
    EXPECT_TRUE(container == nullptr && name == nullptr && type == 1 && flags == 0xF0000000);
    calls.acquired += calls.acquires;
    *provider = calls.acquires ? static_cast<HCRYPTPROV>(calls.acquired) : 0;
    return calls.acquires;
}
BOOL CryptGenRandom(HCRYPTPROV provider, DWORD count, BYTE *) noexcept {
    calls.random += std::to_string(provider) + ':' + std::to_string(count) + ' ';
    return static_cast<BOOL>(count);
}
BOOL CryptReleaseContext(HCRYPTPROV, DWORD flags) noexcept {
    EXPECT_EQ(flags, 0u);
    ++calls.released;
    return TRUE;
}

namespace {

TEST(GuidCallsReplaced, ThatFailThrowTheLastErrorOnOnePath) {
    const CGUID guid;
    const struct {
        const char *name;
        RPC_STATUS *status;
        std::function<void()> act;
    } kRows[] = {
        {"create", &calls.create, [] { CGUID made; }},
        {"from string", &calls.from_string, [] { CGUID(OS::x_wstring(TEXT("text"))); }},
        {"to string", &calls.to_string, [] { CGUID(_GUID{}); }},
        {"to string of a new one", &calls.to_string, [] { CGUID made; }},
        {"free", &calls.free, [] { CGUID(_GUID{}); }},
        {"compare", &calls.compare, [&guid] { EXPECT_EQ(guid == _GUID{}, 2); }},
    };
    for (const auto &row : kRows) {
        for (const RPC_STATUS status : {1824, -1}) {
            SCOPED_TRACE(row.name);
            const TraceCapture trace;
            *row.status = status;
            try {
                row.act();
                ADD_FAILURE();
            } catch (const OS::CSystemException &failure) {
                EXPECT_EQ(failure.GetErrorCode(), 55);
            }
            *row.status = 0;
            EXPECT_EQ(trace.Lines(), "4097 .\\cm_guid.cpp RPC_STATUS status = " +
                                         std::to_string(status) + ", last error = 55\n");
            EXPECT_EQ(calls.texts, 0);
        }
    }
}

TEST(GuidCallsReplaced, DecideWhatIsEqualAndTakeACopyOfTheText) {
    const OS::x_wstring text(TEXT("any"));
    const CGUID guid(text);
    EXPECT_EQ(guid.GetString(), text);
    EXPECT_EQ(CGUID(_GUID{}).GetString(), TEXT("text"));
    for (const int order : {-1, 0, 1}) {
        calls.order = order;
        EXPECT_EQ(guid == _GUID{}, order == 0 ? 1 : 0);
    }
}

TEST(GuidCallsReplaced, ReleaseAProviderWithItsLastUser) {
    auto first = std::make_unique<OS::CCryptRandom>();
    auto second = std::make_unique<OS::CCryptRandom>(*first);
    OS::CCryptRandom third;
    EXPECT_EQ(calls.acquired, 2);
    EXPECT_EQ(second->Get(nullptr, 7), 7);
    EXPECT_EQ(third.Get(nullptr, 0), 0);
    third = *second;
    EXPECT_EQ(calls.released, 1);
    first.reset();
    second.reset();
    EXPECT_EQ(third.Get(nullptr, 9), 9);
    EXPECT_EQ(calls.random, "1:7 2:0 1:9 ");
    EXPECT_EQ(calls.released, 1);
    third = OS::CCryptRandom();
    EXPECT_EQ(calls.released, 2);
}

TEST(GuidCallsReplaced, WithoutAProviderGiveNothingAndTraceNothing) {
    const TraceCapture trace;
    const int released = calls.released;
    calls.acquires = FALSE;
    {
        const OS::CCryptRandom random, copy(random);
        EXPECT_EQ(random.Get(nullptr, 7), 0);
        EXPECT_EQ(copy.Get(nullptr, 7), 0);
    }
    EXPECT_EQ(calls.released, released);
    EXPECT_EQ(trace.Lines(), "");
}

}  // namespace
