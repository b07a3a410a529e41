#ifndef OSTREL_PLATFORM_SYSTEM_H
#define OSTREL_PLATFORM_SYSTEM_H

// The system a process runs on, and the environment it runs in.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <cstdlib>

#else

inline constexpr DWORD VER_PLATFORM_WIN32_NT = 2;

struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;  // set by the caller: 276
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};

// The version of the platform whose calls the layer offers: 6.2.9200, VER_PLATFORM_WIN32_NT, no
// service pack. It says nothing of the host. Result: FALSE with the last error
// ERROR_INSUFFICIENT_BUFFER when the size field is not sizeof(OSVERSIONINFOW), ERROR_NOACCESS for
// null.
OSTREL_PLATFORM_API BOOL GetVersionExW(OSVERSIONINFOW *version) noexcept;

// The value of a variable of the process environment, decoded in the system code page (GetACP).
// Names are compared without regard to case, A-Z only; of two that differ in case only, the one
// that is spelled as asked for wins, then the first. An empty value counts as none.
//
// Result: null when there is none, with errno EINVAL for a null name, ENOMEM when memory is
// missing. A value stays in place for the whole process, as it was at that call; each different
// value of a variable is kept once.
OSTREL_PLATFORM_API WCHAR *_wgetenv(const WCHAR *name) noexcept;

// Sets a variable of the environment, or removes it when `value` is empty. A pair of name and value
// that was ever set stays in memory, once. Result: 0; EINVAL for a null pointer and for a name that
// is empty or holds '='; ENOMEM when memory is missing. errno is set to the same, unless it is 0.
OSTREL_PLATFORM_API int _putenv_s(const char *name, const char *value) noexcept;

#endif

#endif  // OSTREL_PLATFORM_SYSTEM_H
