#ifndef OSTREL_CONFIG_LINE_TOKENS_H
#define OSTREL_CONFIG_LINE_TOKENS_H

// Token callbacks that store the fields of a configuration line. They are passed to
// CINIReader::CIterateEachLineCallback::Enumerate.
//
//   CLineReaderTokenCallback fields(line, TEXT(" \t\n"));
//   Enumerate(fields);  // in a line callback
//
// A line is a sequence of fields without keys, sections or quoting; runs of delimiters separate the
// fields. A line whose first token begins with '#' is a comment and leaves the fields as they are.
// In other tokens '#' is an ordinary character. Tokens after the last field are ignored.
//
// operator() stores the token in the field that `index` names and returns true. It returns false,
// which ends the line, for a comment and for an `index` without a field. `token` must not be null.
//
// The fields are empty, and the number is 0, until a token is stored. Build a new object for each
// line.
//
// Ownership: the fields hold copies of the tokens; the line stays the caller's. The line must be
// writable: Enumerate writes a NUL behind each token. A string literal is not.
// Errors: std::bad_alloc when memory for a copy is short.

#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"

// A number and three texts. A first token that does not begin with a number, with or without a
// sign, gives 0. A number out of range gives the nearest 32-bit value.
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
