#ifndef OSTREL_PLATFORM_TYPES_H
#define OSTREL_PLATFORM_TYPES_H

// The platform's basic types under the platform's own names. On Windows they are the system's;
// elsewhere this header gives them the same widths: `LONG` and `DWORD` have 32 bits in a 64-bit
// program too, and `WCHAR` is the 16-bit character that UTF-16 text is made of.

#ifdef _WIN32

#include <windows.h>

#define OSTREL_PLATFORM_API

#else

#include <cstddef>
#include <cstdint>

// Marks what libostrel_platform exports.
#define OSTREL_PLATFORM_API __attribute__((visibility("default")))

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using WCHAR = char16_t;
using LPVOID = void *;
using LPCVOID = const void *;

// A broken-down time.
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

// A count of 100 ns from 1601-01-01 00:00:00 UTC, in two halves.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

// Handles are opaque values. None of them may be dereferenced; the calls that take one check it.
using HANDLE = void *;
using HLOCAL = void *;
struct HINSTANCE__;
using HINSTANCE = HINSTANCE__ *;
using HMODULE = HINSTANCE;
struct SC_HANDLE__;
using SC_HANDLE = SC_HANDLE__ *;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

// What a call that opens something gives instead of a handle when it fails (all bits set).
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(std::intptr_t{-1});

// TEXT("...") is a literal of 16-bit characters, TEXT('.') one such character.
#define OSTREL_TEXT(literal) u##literal
#define TEXT(literal) OSTREL_TEXT(literal)

#endif

#endif  // OSTREL_PLATFORM_TYPES_H
