#ifndef OSTREL_CORE_EXCEPTION_H
#define OSTREL_CORE_EXCEPTION_H

// The exceptions of the library. Throw them by value and catch them by reference:
//
//   try {
//       CIDMapping mapping(TEXT("config\\ids.txt"));
//   } catch (const OS::CSystemException &failure) {
//       Report(failure.GetErrorMsg().c_str(), failure.GetErrorCode());
//   }
//
// Threads: one thread at a time may use an object; copies may be used on different threads.
// Errors: constructors, copies and functions that return a string throw std::bad_alloc when memory
// is short. The other functions do not throw.

#include <memory>

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"

namespace OS {

// The base class: an error code and the source position of the throw. Does not derive from
// std::exception.
class OSTREL_API CException {
public:
    // Stores the code, the name and extension of `file`, and the line. `file` is the path of the
    // source file that throws. The stored name is empty when `file` is null, and when its name or
    // its extension with the dot has more than 255 characters.
    CException(int code = 0, const WCHAR *file = TEXT(""), int line = 0);
    CException(const CException &) = default;
    CException &operator=(const CException &) = default;
    virtual ~CException();

    // Returns the code as the constructor received it.
    virtual int GetErrorCode() const;

    // Returns a text of the failure; for a CException and a CTimeException the code in decimal.
    virtual x_wstring GetErrorMsg() const;

    // Returns GetErrorMsg with the position: "%s, (%d), [%s|%d]" of message, code, file and line.
    // Returns GetErrorMsg alone when the stored file name is empty.
    virtual x_wstring GetErrorMsgEx() const;

    // Returns the stored file name; never null, and valid until the exception is destroyed or
    // assigned to.
    const WCHAR *GetFilename() const { return m_strFile.c_str(); }

    // Returns the line as the constructor received it.
    int GetLineNumber() const { return m_nLine; }

private:
    int m_nCode;
    x_wstring m_strFile;
    int m_nLine;
};

// A time that cannot be represented. The library throws it with the code 0.
class OSTREL_API CTimeException : public CException {
public:
    CTimeException(int code = 0, const WCHAR *file = TEXT(""), int line = 0);
    CTimeException(const CTimeException &) = default;
    CTimeException &operator=(const CTimeException &) = default;
    ~CTimeException() override;
};

// The content of a CSystemException. Callers catch and hold CSystemException instead.
class OSTREL_API CSystemExceptionImp : public CException {
public:
    CSystemExceptionImp(int code, const WCHAR *file, int line);
    CSystemExceptionImp(const CSystemExceptionImp &) = default;
    CSystemExceptionImp &operator=(const CSystemExceptionImp &) = default;
    ~CSystemExceptionImp() override;

    // Returns the system's text of the code, with its CR LF, and the position. Each call looks the
    // text up with FormatMessageW. The position is missing when the file name is empty and the line
    // is 0:
    //
    //   "%s (%d)"             text, code                     position missing
    //   "%s, (%d), [%s|%d]"   text, code, file, line         position stored
    //   "(%d, %d)"            lookup error, code             no text, position missing
    //   "%d, (%d), [%s|%d]"   lookup error, code, file, line no text, position stored
    //
    // The lookup error is the last error that FormatMessageW sets (see ostrel/platform/error.h); it
    // stays set. A code whose text has an insert (182, 193) counts as a code without text; its
    // lookup error is ERROR_INVALID_PARAMETER (87). When FormatMessageW lacks memory, GetErrorMsg
    // does not throw: the lookup error is ERROR_NOT_ENOUGH_MEMORY (8). An errno is looked up as if
    // it were a system error code, so its text can be that of another failure.
    //
    // GetErrorMsgEx of a CSystemExceptionImp with a file name states the position twice.
    x_wstring GetErrorMsg() const override;

    // Returns the calling thread's last system error.
    static int GetLastError();
};

// A failed platform call. The code is a system error code or an errno; the operation that throws
// says which.
class OSTREL_API CSystemException : public CException {
public:
    // Stores code and position as CException does.
    CSystemException(int code, const WCHAR *file, int line);
    CSystemException(const CSystemException &) = default;
    CSystemException &operator=(const CSystemException &) = default;
    ~CSystemException() override;

    int GetErrorCode() const override;

    // Returns the text of CSystemExceptionImp::GetErrorMsg, position included. GetErrorMsgEx
    // returns the same text. GetFilename is empty and GetLineNumber is 0.
    x_wstring GetErrorMsg() const override;

    // Returns the calling thread's last system error.
    static int GetLastError();

private:
    std::shared_ptr<const CSystemExceptionImp> m_pImp;  // shared by the copies
};

}  // namespace OS

#endif  // OSTREL_CORE_EXCEPTION_H
