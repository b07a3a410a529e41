// The provider of random bytes. Its handle holds nothing; a shortcut of the table of handles tells
// whether a value is an open provider.

#include <memory>

#include "ostrel/platform/base/call_result.h"
#include "ostrel/platform/base/handle_table.h"
#include "ostrel/platform/crypt/random.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/rpc_crypt.h"

namespace {

using ostrel_platform::call_result;
using ostrel_platform::HandleKind;
using ostrel_platform::HandleObject;
using ostrel_platform::HandleTable;

constexpr DWORD kMaxType = 999;

char provider_mark;  // its address is the shortcut of every provider

DWORD code_of_request(const WCHAR *container, const WCHAR *name, DWORD type, DWORD flags) {
    if (type == 0 || type > kMaxType) {
        return NTE_BAD_PROV_TYPE;
    }
    if (type != PROV_RSA_FULL && type != PROV_RSA_AES) {
        return NTE_PROV_TYPE_NOT_DEF;
    }
    if (name != nullptr) {
        return NTE_KEYSET_NOT_DEF;
    }
    const DWORD others = flags & ~(CRYPT_VERIFYCONTEXT | CRYPT_MACHINE_KEYSET | CRYPT_SILENT);
    const DWORD verify = flags & CRYPT_VERIFYCONTEXT;
    if (others != 0 || (verify != 0 && (verify != CRYPT_VERIFYCONTEXT || container != nullptr))) {
        return NTE_BAD_FLAGS;
    }
    return verify != 0 ? ERROR_SUCCESS : NTE_BAD_KEYSET;
}

}  // namespace

BOOL CryptAcquireContextW(HCRYPTPROV *provider, const WCHAR *container, const WCHAR *name,
                          DWORD type, DWORD flags) noexcept {
    return call_result([&] {
        if (provider == nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        const DWORD code = code_of_request(container, name, type, flags);
        if (code == ERROR_SUCCESS) {
            *provider = HandleTable::Instance().Open(
                HandleKind::kProvider, std::make_shared<HandleObject>(), {&provider_mark, 0});
        }
        return code;
    });
}

BOOL CryptGenRandom(HCRYPTPROV provider, DWORD count, BYTE *buffer) noexcept {
    DWORD code = ERROR_SUCCESS;
    if (HandleTable::Instance().FindShortcut(provider).memory != &provider_mark) {
        code = ERROR_INVALID_HANDLE;
    } else if (count != 0) {
        code = buffer == nullptr ? ERROR_INVALID_PARAMETER
                                 : ostrel_platform::fill_random(buffer, count);
    }
    if (code != ERROR_SUCCESS) {
        SetLastError(code);
    }
    return code == ERROR_SUCCESS;
}

BOOL CryptReleaseContext(HCRYPTPROV provider, DWORD flags) noexcept {
    if (!HandleTable::Instance().Close(HandleKind::kProvider, provider)) {
        return FALSE;
    }
    if (flags != 0) {
        SetLastError(NTE_BAD_FLAGS);
    }
    return flags == 0;
}
