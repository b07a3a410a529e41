#ifndef OSTREL_CORE_HANDLES_H
#define OSTREL_CORE_HANDLES_H

// Scope guards: each object owns one platform handle and releases it in its destructor.
//
// A constructor stores its argument without checking it. The destructor releases the stored value
// with the call that the class names and ignores the result of that call, which may set the last
// error or errno. The conversion operators return the stored value. No class can be copied or
// moved.
//
//   CHandle file(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
//                            FILE_ATTRIBUTE_NORMAL, nullptr));
//   if (file == INVALID_HANDLE_VALUE) ...
//   ReadFile(file, bytes, count, &done, nullptr);
//
// Ownership: an object owns the value that it stores. Assignment, where a class has it, stores the
// new value and does not release the old one: assign only to an empty object.
// Threads: one thread at a time may use an object.
// Errors: only CAutoDeleteFile throws: std::bad_alloc, from its constructor and its assignment.

#include <cstdint>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/types.h"

// Owns a handle and closes it with CloseHandle, unless the value is 0 or -1.
class OSTREL_API CHandle {
public:
    CHandle(void *handle = nullptr) noexcept : m_handle(handle) {}
    ~CHandle();
    CHandle(const CHandle &) = delete;
    CHandle &operator=(const CHandle &) = delete;

    CHandle &operator=(void *const &handle) noexcept {
        m_handle = handle;
        return *this;
    }
    operator void * const &() const noexcept { return m_handle; }
    // Returns the member itself, so that a platform call can store a handle through it.
    operator void *&() noexcept { return m_handle; }

private:
    void *m_handle;
};

// Owns a file search and closes it with FindClose, unless the value is 0 or -1.
class OSTREL_API CFindHandle {
public:
    CFindHandle(void *search = INVALID_HANDLE_VALUE) noexcept : m_search(search) {}
    ~CFindHandle();
    CFindHandle(const CFindHandle &) = delete;
    CFindHandle &operator=(const CFindHandle &) = delete;

    // Stores `search`. Returns an empty object, not this one, because a search has only one owner.
    const CFindHandle operator=(void *const &search) noexcept {
        m_search = search;
        return CFindHandle();
    }
    operator void * const &() const noexcept { return m_search; }
    // Returns the member itself, so that a platform call can store a search through it.
    operator void *&() noexcept { return m_search; }

private:
    void *m_search;
};

// Owns a handle of the service manager or of a service and closes it with CloseServiceHandle,
// unless the value is 0.
class OSTREL_API CSCHandle {
public:
    CSCHandle(SC_HANDLE handle = nullptr) noexcept : m_handle(handle) {}
    ~CSCHandle();
    CSCHandle(const CSCHandle &) = delete;
    CSCHandle &operator=(const CSCHandle &) = delete;

    operator SC_HANDLE() const noexcept { return m_handle; }

private:
    SC_HANDLE m_handle;
};

// Owns a loaded module and releases it with FreeLibrary, unless the value is 0.
class OSTREL_API CAutoCloseLibrary {
public:
    CAutoCloseLibrary(HINSTANCE module = nullptr) noexcept : m_module(module) {}
    ~CAutoCloseLibrary();
    CAutoCloseLibrary(const CAutoCloseLibrary &) = delete;
    CAutoCloseLibrary &operator=(const CAutoCloseLibrary &) = delete;

    operator HINSTANCE() const noexcept { return m_module; }

    // Returns the module and leaves the object empty: the caller owns the module. Returns null when
    // the object is empty.
    HINSTANCE Release() noexcept;

private:
    HINSTANCE m_module;
};

// Owns a search of the runtime's _wfindfirst family and closes it with _findclose, unless the value
// is 0. A stored -1, the result of a failed search, is passed to _findclose like any other value.
class OSTREL_API CAutoFindClose {
public:
    CAutoFindClose(std::int64_t search = 0) noexcept : m_search(search) {}
    ~CAutoFindClose();
    CAutoFindClose(const CAutoFindClose &) = delete;
    CAutoFindClose &operator=(const CAutoFindClose &) = delete;

    operator std::int64_t() const noexcept { return m_search; }

private:
    std::int64_t m_search;
};

// Removes a file with _wremove in its destructor. The object copies the path, which may have any
// length. Null counts as an empty path, and an empty path removes nothing. A failed removal is not
// reported.
class OSTREL_API CAutoDeleteFile {
public:
    CAutoDeleteFile(const WCHAR *path = TEXT("")) : m_strPath(path) {}
    ~CAutoDeleteFile();
    CAutoDeleteFile(const CAutoDeleteFile &) = delete;
    CAutoDeleteFile &operator=(const CAutoDeleteFile &) = delete;

    // Replaces the path. The file of the old path stays.
    CAutoDeleteFile &operator=(const WCHAR *path) {
        m_strPath = path;
        return *this;
    }
    // Returns the stored path, never null.
    operator const WCHAR *() const noexcept { return m_strPath.c_str(); }

private:
    OS::x_wstring m_strPath;
};

#endif  // OSTREL_CORE_HANDLES_H
