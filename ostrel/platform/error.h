#ifndef OSTREL_PLATFORM_ERROR_H
#define OSTREL_PLATFORM_ERROR_H

// The last error of a thread, and the texts of the system's error codes.
//
//   WCHAR text[200];
//   if (CloseHandle(file) == FALSE &&  // handle.h
//       FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
//                      GetLastError(), 0, text, 200, nullptr) != 0) {
//       show(text);  // "The handle is invalid." and CR LF
//   }
//
// Implemented with a thread_local variable, the table in error_codes.inc, malloc and free.

#include "ostrel/platform/types.h"

#ifndef _WIN32

#include <cstdarg>

// Return and set the calling thread's last error, which is 0 until a call on that thread sets it. A
// call of the system sets the last error when it fails, and leaves it as it is when it succeeds;
// the comment on a call names the exceptions. A call of the runtime reports its failure in errno; a
// failing one may change the last error too.
OSTREL_PLATFORM_API DWORD GetLastError() noexcept;
OSTREL_PLATFORM_API void SetLastError(DWORD code) noexcept;

// The system's error codes, one constant of type DWORD for each row of error_codes.inc.
#define OSTREL_ERROR(name, number, ...) inline constexpr DWORD name = number;
#include "ostrel/platform/error_codes.inc"
#undef OSTREL_ERROR

inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x0100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x0200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

// Stores the system's English text of an error code, with its CR LF and a NUL behind it.
//
// `flags` is FORMAT_MESSAGE_FROM_SYSTEM, alone or with the two others. `source` is ignored. `id` is
// the code; an HRESULT of the form 0x8007xxxx has the text of xxxx. `language` is 0, 0x400
// (neutral) or 0x409 (US English). `args` must be null: no argument is ever inserted.
//
// Without ALLOCATE_BUFFER, `buffer` holds `size` characters. With ALLOCATE_BUFFER, `buffer` is the
// address of a WCHAR pointer, cast to WCHAR *. The pointer receives a block of at least `size`
// characters, which the caller releases with LocalFree, or null on failure.
//
// Returns the number of characters stored, without the NUL. On failure returns 0, stores no text
// and sets the last error:
//   ERROR_INVALID_PARAMETER        other flags, a null `buffer`, `args` that is not null, or a text
//                                  with an insert such as "%1" without IGNORE_INSERTS
//   ERROR_RESOURCE_LANG_NOT_FOUND  another language
//   ERROR_MR_MID_NOT_FOUND         no text for this code
//   ERROR_INSUFFICIENT_BUFFER      `size` is too small for the text and its NUL
//   ERROR_NOT_ENOUGH_MEMORY        the block cannot be allocated
OSTREL_PLATFORM_API DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD id, DWORD language,
                                         WCHAR *buffer, DWORD size, std::va_list *args);

// Releases a block that FormatMessageW allocated for its caller. Null is allowed; any other address
// is not detected. Always returns null.
OSTREL_PLATFORM_API HLOCAL LocalFree(HLOCAL block) noexcept;

#endif

#endif  // OSTREL_PLATFORM_ERROR_H
