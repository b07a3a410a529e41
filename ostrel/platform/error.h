#ifndef OSTREL_PLATFORM_ERROR_H
#define OSTREL_PLATFORM_ERROR_H

// The last error of a thread, and the texts of the system's error codes.

#include "ostrel/platform/types.h"

#ifndef _WIN32

#include <cstdarg>

// The calling thread's last error; 0 in a thread in which no call has set one. A call of the
// platform that fails sets it; one that succeeds leaves it alone unless its comment says otherwise.
OSTREL_PLATFORM_API DWORD GetLastError() noexcept;
OSTREL_PLATFORM_API void SetLastError(DWORD code) noexcept;

// The system's error codes: ERROR_FILE_NOT_FOUND and so on, each a constant of type DWORD.
#define OSTREL_ERROR(name, number, ...) inline constexpr DWORD name = number;
#include "ostrel/platform/error_codes.inc"
#undef OSTREL_ERROR

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x0100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x0200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

// Gives the system's English text of an error code, with its full stop and its CR LF.
//
// `flags` is FORMAT_MESSAGE_FROM_SYSTEM with or without the two others; `source` is not looked at.
// `id` is the code; an HRESULT of the form 0x8007xxxx has the text of xxxx. `language` is 0, 0x400
// (neutral) or 0x409 (US English). `args` must be null: no argument is ever inserted.
//
// With ALLOCATE_BUFFER, `buffer` is the address of a WCHAR pointer, cast to WCHAR *; it receives a
// block of at least `size` characters that the caller releases with LocalFree, or null on failure.
// Without, `buffer` holds `size` characters.
//
// Result: the characters stored, without the NUL behind them; 0 on failure, with the last error
// ERROR_MR_MID_NOT_FOUND (no text for this code), ERROR_RESOURCE_LANG_NOT_FOUND (another language),
// ERROR_INVALID_PARAMETER (other flags, a null buffer, arguments, or a text with an insert such as
// "%1" when IGNORE_INSERTS is not given), ERROR_INSUFFICIENT_BUFFER or ERROR_NOT_ENOUGH_MEMORY.
OSTREL_PLATFORM_API DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD id, DWORD language,
                                         WCHAR *buffer, DWORD size, std::va_list *args);

// Releases a block that a call of the platform has allocated for its caller. Null is allowed.
// Result: null.
OSTREL_PLATFORM_API HLOCAL LocalFree(HLOCAL block) noexcept;

#endif

#endif  // OSTREL_PLATFORM_ERROR_H
