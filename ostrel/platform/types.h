#ifndef OSTREL_PLATFORM_TYPES_H
#define OSTREL_PLATFORM_TYPES_H

// The platform's basic types under the platform's own names. On Windows this header includes the
// system's. Elsewhere the types have the same widths: `LONG` and `DWORD` have 32 bits in a 64-bit
// program too, and `WCHAR` is a 16-bit unit of UTF-16 text.
//
//   const WCHAR *const path = TEXT("C:\\srv\\list.txt");
//   const FILETIME unchanged = {0, 0};
//   HANDLE file = INVALID_HANDLE_VALUE;
//   static_assert(sizeof(WCHAR) == 2 && sizeof(LONG) == 4 && sizeof(DWORD) == 4);
//
// Types and constants alone: nothing here calls the host.

#ifdef _WIN32

#include <windows.h>

#define OSTREL_PLATFORM_API

#else

#include <cstddef>
#include <cstdint>

// Marks a function that libostrel_platform exports.
#define OSTREL_PLATFORM_API __attribute__((visibility("default")))

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using WCHAR = char16_t;
using LPVOID = void *;
using LPCVOID = const void *;

// A calendar time as fields.
struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;      // 1 to 12
    WORD wDayOfWeek;  // 0 is Sunday
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

// A count of 100 ns since 1601-01-01 00:00:00 UTC, as the low and the high 32 bits of a 64-bit
// number.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

// Who may use an object that a call creates. Each call says what it makes of the fields.
struct SECURITY_ATTRIBUTES {
    DWORD nLength;  // sizeof(SECURITY_ATTRIBUTES)
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};

// Handles are opaque values: never dereference a HANDLE, an HMODULE or an SC_HANDLE. A call that
// takes one checks the value and fails for one that is not valid. An HLOCAL is the address of a
// block that the layer allocated; LocalFree does not check it.
using HANDLE = void *;
using HLOCAL = void *;
struct HINSTANCE__;
using HINSTANCE = HINSTANCE__ *;
using HMODULE = HINSTANCE;
struct SC_HANDLE__;
using SC_HANDLE = SC_HANDLE__ *;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

// What CreateFileW, FindFirstFileW and FindFirstFileExW return on failure (all bits set).
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(std::intptr_t{-1});

// TEXT("...") is a string literal of WCHAR, TEXT('.') a character literal of type WCHAR.
#define OSTREL_TEXT(literal) u##literal
#define TEXT(literal) OSTREL_TEXT(literal)

#endif

#endif  // OSTREL_PLATFORM_TYPES_H
