#ifndef OSTREL_CORE_EXCEPTION_H
#define OSTREL_CORE_EXCEPTION_H

// The exceptions of the library. They are raised by value and caught by reference:
//
//   try {
//       CIDMapping mapping(TEXT("config\\ids.txt"));
//   } catch (const OS::CSystemException &failure) {
//       Report(failure.GetErrorMsg().c_str(), failure.GetErrorCode());
//   }
//
// CException is the root and has no relation to std::exception. CSystemException tells of a failed
// call of the platform and carries a system error code or an errno, as the operation that raises it
// says. CTimeException tells of a time that cannot be represented; its code is 0.
//
// Threads: an object belongs to one thread at a time; copies are independent.
// Errors: building and copying text can raise std::bad_alloc, nothing else does.

#include <memory>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"

namespace OS {

class OSTREL_API CException {
public:
    // `file` is the path of the source file that raises; its name and extension are kept. Null
    // leaves the name empty, as does a name or an extension of more than 255 characters.
    CException(int code = 0, const WCHAR *file = TEXT(""), int line = 0);
    CException(const CException &) = default;
    CException &operator=(const CException &) = default;
    virtual ~CException();

    virtual int GetErrorCode() const;

    // The failure in words. Here: the code as a number.
    virtual x_wstring GetErrorMsg() const;

    // GetErrorMsg with the position, "%s, (%d), [%s|%d]" of message, code, file and line;
    // GetErrorMsg alone when no file name is stored.
    virtual x_wstring GetErrorMsgEx() const;

    // The stored file name, valid as long as the exception; never null.
    const WCHAR *GetFilename() const { return m_strFile.c_str(); }
    int GetLineNumber() const { return m_nLine; }

private:
    int m_nCode;
    x_wstring m_strFile;
    int m_nLine;
};

class OSTREL_API CTimeException : public CException {
public:
    CTimeException(int code = 0, const WCHAR *file = TEXT(""), int line = 0);
    CTimeException(const CTimeException &) = default;
    CTimeException &operator=(const CTimeException &) = default;
    ~CTimeException() override;
};

// What a CSystemException holds. Catch and hold CSystemException.
class OSTREL_API CSystemExceptionImp : public CException {
public:
    CSystemExceptionImp(int code, const WCHAR *file, int line);
    CSystemExceptionImp(const CSystemExceptionImp &) = default;
    CSystemExceptionImp &operator=(const CSystemExceptionImp &) = default;
    ~CSystemExceptionImp() override;

    // The system's text of the code, asked for at each call and used as it is, with its line end:
    // "%s (%d)" of text and code when file name and line are missing, else "%s, (%d), [%s|%d]" of
    // text, code, file and line. When the system has no text, "(%d, %d)" and "%d, (%d), [%s|%d]",
    // with the error of that lookup in front of the code.
    x_wstring GetErrorMsg() const override;

    // The calling thread's last system error.
    static int GetLastError();
};

class OSTREL_API CSystemException : public CException {
public:
    CSystemException(int code, const WCHAR *file, int line);
    CSystemException(const CSystemException &) = default;
    CSystemException &operator=(const CSystemException &) = default;
    ~CSystemException() override;

    int GetErrorCode() const override;

    // As CSystemExceptionImp::GetErrorMsg. GetErrorMsgEx gives the same text: the position stands
    // in it, while GetFilename is empty and GetLineNumber 0.
    x_wstring GetErrorMsg() const override;

    // The calling thread's last system error.
    static int GetLastError();

private:
    std::shared_ptr<const CSystemExceptionImp> m_pImp;  // shared by the copies
};

}  // namespace OS

#endif  // OSTREL_CORE_EXCEPTION_H
