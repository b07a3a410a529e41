#ifndef OSTREL_CONFIG_LINE_TOKENS_H
#define OSTREL_CONFIG_LINE_TOKENS_H

// Token callbacks that store the fields of a configuration line, for
// CINIReader::CIterateEachLineCallback::Enumerate.
//
// A line is a row of fields without keys, sections or quoting, separated by runs of the delimiters.
// A line whose first token begins with '#' is a comment: it leaves the fields as they are. Further
// on a '#' is an ordinary character. Tokens beyond the last field end the line without effect.
//
// The fields start out empty (the number 0) and are read directly. Build a new object for each
// line. Errors: std::bad_alloc from copying a token.

#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"

// A number and three texts. A first token without leading digits gives 0; a number out of range
// gives the nearest 32-bit value.
class OSTREL_API CLineReaderTokenCallback : public CINIReader::CIterateEachTokenCallback {
public:
    CLineReaderTokenCallback(const WCHAR *line, const WCHAR *delimiter);
    CLineReaderTokenCallback(const CLineReaderTokenCallback &) = default;
    CLineReaderTokenCallback &operator=(const CLineReaderTokenCallback &) = default;
    ~CLineReaderTokenCallback() override;
    bool operator()(int index, const WCHAR *token) override;

    int m_nID = 0;              // token 0
    OS::x_wstring m_strToken1;  // tokens 1 to 3
    OS::x_wstring m_strToken2;
    OS::x_wstring m_strToken3;
};

// Three texts.
class OSTREL_API CLineReaderTokenCallbackEx : public CINIReader::CIterateEachTokenCallback {
public:
    CLineReaderTokenCallbackEx(const WCHAR *line, const WCHAR *delimiter);
    CLineReaderTokenCallbackEx(const CLineReaderTokenCallbackEx &) = default;
    CLineReaderTokenCallbackEx &operator=(const CLineReaderTokenCallbackEx &) = default;
    ~CLineReaderTokenCallbackEx() override;
    bool operator()(int index, const WCHAR *token) override;

    OS::x_wstring m_strToken0;  // tokens 0 to 2
    OS::x_wstring m_strToken1;
    OS::x_wstring m_strToken2;
};

// Five texts.
class OSTREL_API CLineReaderTokenCallback2 : public CINIReader::CIterateEachTokenCallback {
public:
    CLineReaderTokenCallback2(const WCHAR *line, const WCHAR *delimiter);
    CLineReaderTokenCallback2(const CLineReaderTokenCallback2 &) = default;
    CLineReaderTokenCallback2 &operator=(const CLineReaderTokenCallback2 &) = default;
    ~CLineReaderTokenCallback2() override;
    bool operator()(int index, const WCHAR *token) override;

    OS::x_wstring m_strToken0;  // tokens 0 to 4
    OS::x_wstring m_strToken1;
    OS::x_wstring m_strToken2;
    OS::x_wstring m_strToken3;
    OS::x_wstring m_strToken4;
};

#endif  // OSTREL_CONFIG_LINE_TOKENS_H
