#ifndef TESTS_SUPPORT_FILE_CALLS_H
#define TESTS_SUPPORT_FILE_CALLS_H

// Short forms for tests of the platform's file calls.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/handle.h"

inline constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// An open file, closed with the object.
struct Opened {
    Opened(const WCHAR *path, DWORD access, DWORD share = kShareAll, DWORD creation = OPEN_EXISTING,
           DWORD flags = 0)
        : handle(CreateFileW(path, access, share, nullptr, creation, flags, nullptr)),
          error(GetLastError()) {}
    ~Opened() {
        if (*this) {
            EXPECT_TRUE(CloseHandle(handle));
        }
    }
    Opened &operator=(Opened &&) = delete;  // nor copied

    explicit operator bool() const { return handle != INVALID_HANDLE_VALUE; }

    const HANDLE handle;
    const DWORD error;  // the last error, also of an open that succeeded
};

// 0, or why a call has failed.
inline DWORD error_of(BOOL result) {
    return result ? 0 : GetLastError();
}

inline DWORD error_of(const Opened &file) {
    return file ? 0 : file.error;
}

inline std::string content_of(const std::filesystem::path &path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

#endif  // TESTS_SUPPORT_FILE_CALLS_H
