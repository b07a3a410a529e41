#include "ostrel/core/cm_guid.h"

#include "ostrel/core/trace.h"
#include "ostrel/platform/crt_text.h"

namespace {

// The one path of every failed call.
void require_success(RPC_STATUS status) {
    if (status != RPC_S_OK) {
        const int last_error = OS::CSystemException::GetLastError();
        OSTREL_TRACE(DBG::kLevelFailure, TEXT("RPC_STATUS status = %d, last error = %d"), status,
                     last_error);
        OSTREL_RAISE_SYSTEM(last_error);
    }
}

// Owns a text of the platform's.
class RpcText {
public:
    explicit RpcText(const UUID &uuid) { require_success(UuidToStringW(&uuid, &m_text)); }
    ~RpcText() {
        if (m_text != nullptr) {
            RpcStringFreeW(&m_text);
        }
    }
    RpcText &operator=(RpcText &&) = delete;  // nor copied

    const WCHAR *Get() const { return reinterpret_cast<const WCHAR *>(m_text); }
    void Free() {
        const RPC_STATUS status = RpcStringFreeW(&m_text);
        m_text = nullptr;
        require_success(status);
    }

private:
    RPC_WSTR m_text = nullptr;
};

}  // namespace

CGUID::CGUID() {
    _GUID guid;
    require_success(UuidCreate(&guid));
    CGUID::operator=(guid);
}

CGUID::CGUID(const OS::x_wstring &text) {
    CGUID::operator=(text);
}

CGUID::CGUID(const _GUID &guid) {
    CGUID::operator=(guid);
}

CGUID::CGUID(const CGUID &other) {
    CGUID::operator=(other);
}

CGUID::~CGUID() = default;

int CGUID::operator==(const CGUID &other) const {
    return m_text == other.m_text ? 1 : 0;
}

int CGUID::operator==(const _GUID &guid) const {
    RPC_STATUS status = RPC_S_OK;
    // Only reads, although it takes pointers to what it could change.
    const int order =
        UuidCompare(const_cast<_GUID *>(&m_guid), const_cast<_GUID *>(&guid), &status);
    require_success(status);
    return order == 0 ? 1 : 0;
}

int CGUID::operator==(const OS::x_wstring &text) const {
    return m_text == text ? 1 : 0;
}

bool CGUID::operator<(const CGUID &other) const {
    return m_text > other.m_text;
}

const CGUID &CGUID::operator=(const CGUID &other) {
    m_text = other.m_text;
    m_guid = other.m_guid;
    return *this;
}

const CGUID &CGUID::operator=(const _GUID &guid) {
    m_guid = guid;
    RpcText text(m_guid);
    m_text.assign(text.Get(), wcslen(text.Get()));
    text.Free();
    return *this;
}

const CGUID &CGUID::operator=(const OS::x_wstring &text) {
    m_text = text;
    // UuidFromStringW takes a pointer to what it could change. A longer text is no GUID, nor is
    // what the copy holds of it.
    constexpr std::size_t kCapacity = 64;
    WCHAR copy[kCapacity];
    copy[m_text.copy(copy, kCapacity - 1)] = 0;
    require_success(UuidFromStringW(reinterpret_cast<RPC_WSTR>(copy), &m_guid));
    return *this;
}

const OS::x_wstring &CGUID::GetString() const {
    return m_text;
}

OS::x_wstring CGUID::GetStringBraced() const {
    OS::x_wstring braced;
    braced.Format(TEXT("{%s}"), m_text.c_str());
    return braced;
}

const _GUID &CGUID::GetGUID() const {
    return m_guid;
}
