#ifndef OSTREL_PLATFORM_SYSTEM_H
#define OSTREL_PLATFORM_SYSTEM_H

// The version of the platform, and the environment of the process.
//
//   OSVERSIONINFOW version = {};
//   version.dwOSVersionInfoSize = sizeof version;
//   const bool known = GetVersionExW(&version) != FALSE;  // 6.2.9200
//   _putenv_s("SERVER_MODE", known ? "full" : "basic");
//   const WCHAR *const mode = _wgetenv(TEXT("SERVER_MODE"));  // null without the variable
//
// Implemented with the host's `environ`.

#include "ostrel/platform/types.h"

#ifdef _WIN32

#include <cstdlib>

#else

inline constexpr DWORD VER_PLATFORM_WIN32_NT = 2;

struct OSVERSIONINFOW {
    DWORD dwOSVersionInfoSize;  // in bytes, set by the caller: 276
    DWORD dwMajorVersion;
    DWORD dwMinorVersion;
    DWORD dwBuildNumber;
    DWORD dwPlatformId;
    WCHAR szCSDVersion[128];
};

// Stores the version of the platform whose calls the layer offers: always 6.2.9200,
// VER_PLATFORM_WIN32_NT, no service pack, whatever the host is.
//
// Returns TRUE. On failure returns FALSE and sets the last error to ERROR_NOACCESS for null, or to
// ERROR_INSUFFICIENT_BUFFER when `dwOSVersionInfoSize` is not sizeof(OSVERSIONINFOW).
OSTREL_PLATFORM_API BOOL GetVersionExW(OSVERSIONINFOW *version) noexcept;

// Looks up a variable of the process environment. Compares names without regard to the case of A to
// Z. Among names that differ in case only, takes the one spelled like `name`, else the first. A
// variable with an empty value counts as missing. In a program that has rights which its caller
// lacks, such as a set-user-ID program (AT_SECURE), the variables TMP, TEMP, TMPDIR and USERPROFILE
// count as missing too.
//
// Returns the value, decoded in the system code page (GetACP), or null when the variable is
// missing. On failure returns null and sets errno to EINVAL for a null name, or to ENOMEM.
//
// The layer owns the text: do not change or release it. The text stays valid and unchanged until
// the process ends, whatever happens to the variable. The layer keeps each different text once.
//
// Threads: safe while other threads call _putenv_s; not safe while one calls the host's setenv.
OSTREL_PLATFORM_API WCHAR *_wgetenv(const WCHAR *name) noexcept;

// Sets a variable of the environment, or removes it when `value` is empty. Matches `name` exactly,
// case included. Both texts are bytes, which the call copies. Every pair of name and value that was
// ever set stays in memory, once.
//
// Returns 0. On failure returns and sets errno to EINVAL for a null pointer or a name that is empty
// or holds '=', or ENOMEM; the environment is then as it was.
//
// Threads: safe while other threads read the environment.
OSTREL_PLATFORM_API int _putenv_s(const char *name, const char *value) noexcept;

#endif

#endif  // OSTREL_PLATFORM_SYSTEM_H
