#ifndef TESTS_SUPPORT_FILE_CALLS_H
#define TESTS_SUPPORT_FILE_CALLS_H

// Short forms for tests of the platform's file calls.

#include <sys/stat.h>

#include <cerrno>

#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/handle.h"
#include "ostrel/platform/stream.h"
#include "ostrel/platform/time.h"
#include "support/file_tree.h"
#include "support/test.h"

inline constexpr DWORD kHidden = FILE_ATTRIBUTE_HIDDEN, kReadOnly = FILE_ATTRIBUTE_READONLY;
inline constexpr DWORD kSystem = FILE_ATTRIBUTE_SYSTEM, kArchive = FILE_ATTRIBUTE_ARCHIVE;
inline constexpr DWORD kDirectory = FILE_ATTRIBUTE_DIRECTORY, kNormal = FILE_ATTRIBUTE_NORMAL;
inline constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// A new current directory with what plant() makes.
struct Planted : TempDir {
    explicit Planted(const std::string &text) { plant(text); }
};

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

// The text of a call and the call, for a row of a table.
#define CALL(...) #__VA_ARGS__, [] { return __VA_ARGS__; }

inline void set(const WCHAR *path, DWORD attributes) {
    EXPECT_EQ(error_of(SetFileAttributesW(path, attributes)), 0u);
}

// An absolute path as the platform writes it.
inline std::u16string platform_path(const fs::path &path) {
    std::u16string text = u"C:" + path.u16string();
    std::replace(text.begin(), text.end(), u'/', u'\\');
    return text;
}

// What the host says of an entry; a link stands for itself.
inline struct stat host_facts(const fs::path &path) {
    struct stat facts = {};
    EXPECT_EQ(lstat(path.c_str(), &facts), 0) << path;
    return facts;
}

#endif  // TESTS_SUPPORT_FILE_CALLS_H
