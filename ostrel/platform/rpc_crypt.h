#ifndef OSTREL_PLATFORM_RPC_CRYPT_H
#define OSTREL_PLATFORM_RPC_CRYPT_H

// Universal unique identifiers (UUID, GUID), and random bytes of cryptographic quality.
//
//   UUID id;
//   RPC_WSTR text = nullptr;
//   if (UuidCreate(&id) == RPC_S_OK && UuidToStringW(&id, &text) == RPC_S_OK) {
//       show(text);  // "f81d4fae-7dec-41d0-a765-00a0c91e6bf6"
//       RpcStringFreeW(&text);
//   }
//
//   HCRYPTPROV provider = 0;
//   BYTE key[32];
//   if (CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
//       if (CryptGenRandom(provider, sizeof key, key)) {
//           use(key);
//       }
//       CryptReleaseContext(provider, 0);
//   }
//
// The calls of UUIDs return their error code, from error.h, and leave the last error as it is. The
// calls of the provider set the last error.
//
// Implemented with getrandom. Early in the start of the host, until the kernel's random source is
// ready, UuidCreate and CryptGenRandom wait for it.

#include "ostrel/platform/types.h"

#ifndef _WIN32

// A universal unique identifier of RFC 4122: the fields of its text form from left to right, where
// Data4 holds the last two groups.
struct _GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};
using GUID = _GUID;
using UUID = _GUID;

using RPC_STATUS = LONG;
using RPC_WSTR = WCHAR *;

inline constexpr RPC_STATUS RPC_S_OK = 0;
inline constexpr RPC_STATUS RPC_S_OUT_OF_MEMORY = 14;
inline constexpr RPC_STATUS RPC_S_INVALID_ARG = 87;

// Stores a new random UUID, version 4 of RFC 4122, to `uuid`. No two are alike: not on two threads,
// and not before and after a fork in parent and child, even a fork that runs no handler of
// pthread_atfork, where the host has pages that a fork clears (Linux 4.14). A machine that is
// cloned while it runs can repeat up to 64 UUIDs for each thread.
//
// A UUID is unique but no secret: each thread takes the bytes for the next 64 in advance. Take the
// bytes of a key from CryptGenRandom.
//
// Returns RPC_S_OK. On failure stores nothing and returns RPC_S_INVALID_ARG (`uuid` is null), or
// the code that error_codes.inc gives for the errno of getrandom. Never returns
// RPC_S_UUID_LOCAL_ONLY.
OSTREL_PLATFORM_API RPC_STATUS UuidCreate(UUID *uuid) noexcept;

// Stores the UUID whose text is `text` to `uuid`. The text has 36 characters: groups of 8, 4, 4, 4
// and 12 hexadecimal digits in either case, joined by hyphens. Braces, blanks and further text are
// refused. Any version is accepted. `text` may be null, which gives the UUID of zeros; the call
// does not change the text.
//
// Returns RPC_S_OK. On failure stores nothing and returns RPC_S_INVALID_STRING_UUID (another text)
// or RPC_S_INVALID_ARG (`uuid` is null).
OSTREL_PLATFORM_API RPC_STATUS UuidFromStringW(RPC_WSTR text, UUID *uuid) noexcept;

// Stores the address of a new text to `text`: 36 characters in lower case, without braces, and a
// NUL. The caller releases the text with RpcStringFreeW.
//
// Returns RPC_S_OK. On failure stores nothing and returns RPC_S_INVALID_ARG (a null pointer) or
// RPC_S_OUT_OF_MEMORY.
OSTREL_PLATFORM_API RPC_STATUS UuidToStringW(const UUID *uuid, RPC_WSTR *text) noexcept;

// Releases the text of UuidToStringW to which `text` points, and stores null there. A null text is
// allowed; any other address is not detected. Returns RPC_S_OK, or RPC_S_INVALID_ARG when `text`
// itself is null.
OSTREL_PLATFORM_API RPC_STATUS RpcStringFreeW(RPC_WSTR *text) noexcept;

// Compares two UUIDs field by field, as unsigned numbers in the order of the text. A null pointer
// stands for the UUID of zeros. Returns -1, 0 or 1 when `a` is less than, equal to or greater than
// `b`, and stores RPC_S_OK to `status`, unless `status` is null. Cannot fail.
OSTREL_PLATFORM_API int UuidCompare(UUID *a, UUID *b, RPC_STATUS *status) noexcept;

// A provider of cryptographic services; 0 is none.
using HCRYPTPROV = std::uintptr_t;

inline constexpr DWORD PROV_RSA_FULL = 1;
inline constexpr DWORD PROV_RSA_AES = 24;
inline constexpr DWORD CRYPT_VERIFYCONTEXT = 0xF0000000;
inline constexpr DWORD CRYPT_MACHINE_KEYSET = 0x20;
inline constexpr DWORD CRYPT_SILENT = 0x40;

// Opens a provider and stores its handle to `provider`. The caller closes the handle with
// CryptReleaseContext. The handle works on any thread, and in the child of a fork.
//
// The layer has random bytes and no containers of keys. `container` and `name` are null, `type` is
// PROV_RSA_FULL or PROV_RSA_AES. `flags` holds CRYPT_VERIFYCONTEXT; the two other flags above are
// accepted and have no effect.
//
// Returns TRUE. On failure returns FALSE, stores nothing and sets the last error:
//   ERROR_INVALID_PARAMETER  `provider` is null
//   NTE_BAD_PROV_TYPE        `type` is 0 or more than 999
//   NTE_PROV_TYPE_NOT_DEF    another type
//   NTE_KEYSET_NOT_DEF       `name` is not null: there is no provider of that name
//   NTE_BAD_FLAGS            another flag, or CRYPT_VERIFYCONTEXT with a container
//   NTE_BAD_KEYSET           no CRYPT_VERIFYCONTEXT: there is no container to open
//   ERROR_NOT_ENOUGH_MEMORY  the handle cannot be allocated
OSTREL_PLATFORM_API BOOL CryptAcquireContextW(HCRYPTPROV *provider, const WCHAR *container,
                                              const WCHAR *name, DWORD type, DWORD flags) noexcept;

// Fills `buffer` with `count` random bytes of the kernel's. What `buffer` holds before has no
// effect. With a count of 0 the call succeeds, and `buffer` may be null. The bytes come straight
// from the kernel: the process holds none in advance. Large counts take about 3 seconds for each
// GiB, and neither signals nor pthread_cancel end the call early.
//
// Returns TRUE. On failure returns FALSE and sets the last error; `buffer` may hold a part of the
// bytes then:
//   ERROR_INVALID_HANDLE     `provider` is not open
//   ERROR_INVALID_PARAMETER  `buffer` is null
//   ERROR_NOACCESS           the buffer ends before `count` bytes, or is read-only
// or the code that error_codes.inc gives for the errno of getrandom.
OSTREL_PLATFORM_API BOOL CryptGenRandom(HCRYPTPROV provider, DWORD count, BYTE *buffer) noexcept;

// Closes the handle of a provider. A call that already uses the handle on another thread completes
// normally. `flags` must be 0; with other flags the call closes the handle and fails with
// NTE_BAD_FLAGS.
//
// Returns TRUE. On failure returns FALSE and sets the last error, to ERROR_INVALID_HANDLE when
// `provider` is not open.
OSTREL_PLATFORM_API BOOL CryptReleaseContext(HCRYPTPROV provider, DWORD flags) noexcept;

#endif

#endif  // OSTREL_PLATFORM_RPC_CRYPT_H
