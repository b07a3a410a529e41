#include "ostrel/core/exception.h"

#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/error.h"

namespace OS {
namespace {

x_wstring file_name(const WCHAR *path) {
    x_wstring file;
    if (path != nullptr) {
        WCHAR name[_MAX_FNAME];
        WCHAR extension[_MAX_EXT];
        _wsplitpath(path, nullptr, nullptr, name, extension);
        file = name;
        file += extension;
    }
    return file;
}

// Looks up the system's text of a code. Get returns null when the lookup has failed.
class SystemText {
public:
    explicit SystemText(int code) {
        constexpr DWORD kNeutralLanguage = 0x400;
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
                       static_cast<DWORD>(code), kNeutralLanguage,
                       reinterpret_cast<WCHAR *>(&m_text), 0, nullptr);
    }
    ~SystemText() { LocalFree(m_text); }
    SystemText(const SystemText &) = delete;
    SystemText &operator=(const SystemText &) = delete;

    const WCHAR *Get() const { return m_text; }

private:
    WCHAR *m_text = nullptr;
};

int last_error() {
    return static_cast<int>(::GetLastError());
}

}  // namespace

CException::CException(int code, const WCHAR *file, int line)
    : m_nCode(code), m_strFile(file_name(file)), m_nLine(line) {}

CException::~CException() = default;

int CException::GetErrorCode() const {
    return m_nCode;
}

x_wstring CException::GetErrorMsg() const {
    x_wstring text;
    text.Format(TEXT("%d"), m_nCode);
    return text;
}

x_wstring CException::GetErrorMsgEx() const {
    x_wstring text = GetErrorMsg();
    if (!m_strFile.IsEmpty()) {
        text.Format(TEXT("%s, (%d), [%s|%d]"), text.c_str(), GetErrorCode(), GetFilename(),
                    m_nLine);
    }
    return text;
}

CTimeException::CTimeException(int code, const WCHAR *file, int line)
    : CException(code, file, line) {}

CTimeException::~CTimeException() = default;

CSystemExceptionImp::CSystemExceptionImp(int code, const WCHAR *file, int line)
    : CException(code, file, line) {}

CSystemExceptionImp::~CSystemExceptionImp() = default;

x_wstring CSystemExceptionImp::GetErrorMsg() const {
    const SystemText system(GetErrorCode());
    const int lookup_error = last_error();
    const bool positioned = GetFilename()[0] != 0 || GetLineNumber() != 0;
    x_wstring text;
    if (system.Get() != nullptr && !positioned) {
        text.Format(TEXT("%s (%d)"), system.Get(), GetErrorCode());
    } else if (system.Get() != nullptr) {
        text.Format(TEXT("%s, (%d), [%s|%d]"), system.Get(), GetErrorCode(), GetFilename(),
                    GetLineNumber());
    } else if (!positioned) {
        text.Format(TEXT("(%d, %d)"), lookup_error, GetErrorCode());
    } else {
        text.Format(TEXT("%d, (%d), [%s|%d]"), lookup_error, GetErrorCode(), GetFilename(),
                    GetLineNumber());
    }
    return text;
}

int CSystemExceptionImp::GetLastError() {
    return last_error();
}

CSystemException::CSystemException(int code, const WCHAR *file, int line)
    : m_pImp(std::make_shared<const CSystemExceptionImp>(code, file, line)) {}

CSystemException::~CSystemException() = default;

int CSystemException::GetErrorCode() const {
    return m_pImp->GetErrorCode();
}

x_wstring CSystemException::GetErrorMsg() const {
    return m_pImp->GetErrorMsg();
}

int CSystemException::GetLastError() {
    return last_error();
}

}  // namespace OS
