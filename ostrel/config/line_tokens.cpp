#include "ostrel/config/line_tokens.h"

#include <initializer_list>

#include "ostrel/platform/crt_text.h"

namespace {

bool starts_comment(const CINIReader::CIterateEachTokenCallback &line, int index,
                    const WCHAR *token) {
    return index == 0 && line.IsComment(token, TEXT("#"));
}

// Stores the token in the field that `index` names. Returns false when there is no such field.
bool store(std::initializer_list<OS::x_wstring *> fields, int index, const WCHAR *token) {
    if (index < 0 || static_cast<std::size_t>(index) >= fields.size()) {
        return false;
    }
    *fields.begin()[index] = token;
    return true;
}

}  // namespace

CLineReaderTokenCallback::CLineReaderTokenCallback(const WCHAR *line, const WCHAR *delimiter)
    : CIterateEachTokenCallback(line, delimiter) {}

CLineReaderTokenCallback::~CLineReaderTokenCallback() = default;

bool CLineReaderTokenCallback::operator()(int index, const WCHAR *token) {
    if (starts_comment(*this, index, token)) {
        return false;
    }
    if (index == 0) {
        m_nID = _wtoi(token);
        return true;
    }
    return store({&m_strToken1, &m_strToken2, &m_strToken3}, index - 1, token);
}

CLineReaderTokenCallbackEx::CLineReaderTokenCallbackEx(const WCHAR *line, const WCHAR *delimiter)
    : CIterateEachTokenCallback(line, delimiter) {}

CLineReaderTokenCallbackEx::~CLineReaderTokenCallbackEx() = default;

bool CLineReaderTokenCallbackEx::operator()(int index, const WCHAR *token) {
    return !starts_comment(*this, index, token) &&
           store({&m_strToken0, &m_strToken1, &m_strToken2}, index, token);
}

CLineReaderTokenCallback2::CLineReaderTokenCallback2(const WCHAR *line, const WCHAR *delimiter)
    : CIterateEachTokenCallback(line, delimiter) {}

CLineReaderTokenCallback2::~CLineReaderTokenCallback2() = default;

bool CLineReaderTokenCallback2::operator()(int index, const WCHAR *token) {
    return !starts_comment(*this, index, token) &&
           store({&m_strToken0, &m_strToken1, &m_strToken2, &m_strToken3, &m_strToken4}, index,
                 token);
}
