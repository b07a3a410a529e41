#ifndef OSTREL_CORE_HANDLES_H
#define OSTREL_CORE_HANDLES_H

// Owners of a platform handle for the length of a scope.
//
// A constructor stores the value it is given without checking it; the destructor releases it with
// the call named at the class and looks at no result. Assignment, where a class has it, stores a
// new value and does not release the old one: assign to an empty object only. None of the classes
// can be copied.
//
//   CHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
//   if (event == nullptr) ...
//   WaitForSingleObject(event, INFINITE);
//
// Threads: an object belongs to one thread at a time.

#include <cstdint>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/types.h"

// A handle that CloseHandle closes; neither 0 nor -1 is closed.
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
    // The field itself, for an out-parameter of a platform call.
    operator void *&() noexcept { return m_handle; }

private:
    void *m_handle;
};

// A search that FindClose ends; neither 0 nor -1 is closed.
class OSTREL_API CFindHandle {
public:
    CFindHandle(void *search = INVALID_HANDLE_VALUE) noexcept : m_search(search) {}
    ~CFindHandle();
    CFindHandle(const CFindHandle &) = delete;
    CFindHandle &operator=(const CFindHandle &) = delete;

    // Gives an empty object: the search has one owner.
    const CFindHandle operator=(void *const &search) noexcept {
        m_search = search;
        return CFindHandle();
    }
    operator void * const &() const noexcept { return m_search; }
    // The field itself, for an out-parameter of a platform call.
    operator void *&() noexcept { return m_search; }

private:
    void *m_search;
};

// A handle of the service manager or of a service that CloseServiceHandle closes; 0 is not closed.
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

// A module that FreeLibrary gives back; 0 is not given back.
class OSTREL_API CAutoCloseLibrary {
public:
    CAutoCloseLibrary(HINSTANCE module = nullptr) noexcept : m_module(module) {}
    ~CAutoCloseLibrary();
    CAutoCloseLibrary(const CAutoCloseLibrary &) = delete;
    CAutoCloseLibrary &operator=(const CAutoCloseLibrary &) = delete;

    operator HINSTANCE() const noexcept { return m_module; }

    // Hands the module over to the caller; the object is empty afterwards.
    HINSTANCE Release() noexcept;

private:
    HINSTANCE m_module;
};

// A search of the runtime's _wfindfirst family that _findclose ends; 0 is not closed, -1 is passed
// on like any other value.
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

// A file that is removed (_wremove) at the end of the scope. The path is copied, may be of any
// length, and counts as empty when null; an empty path removes nothing.
class OSTREL_API CAutoDeleteFile {
public:
    CAutoDeleteFile(const WCHAR *path = TEXT("")) : m_strPath(path) {}
    ~CAutoDeleteFile();
    CAutoDeleteFile(const CAutoDeleteFile &) = delete;
    CAutoDeleteFile &operator=(const CAutoDeleteFile &) = delete;

    // Replaces the path; the file that it named before is left alone.
    CAutoDeleteFile &operator=(const WCHAR *path) {
        m_strPath = path;
        return *this;
    }
    operator const WCHAR *() const noexcept { return m_strPath.c_str(); }

private:
    OS::x_wstring m_strPath;
};

#endif  // OSTREL_CORE_HANDLES_H
