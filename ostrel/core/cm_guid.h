#ifndef OSTREL_CORE_CM_GUID_H
#define OSTREL_CORE_CM_GUID_H

// CGUID is a GUID that holds its binary value and its text side by side.
//
//   const CGUID id;                                                 // a new GUID
//   write(id.GetStringBraced());                                    // 38 characters
//   const CGUID same(TEXT("6B29FC40-CA47-1067-B31D-00DD010662DA"));  // from its text
//   if (same == stored.GetGUID()) ...
//
// The text keeps the letter case that it came with. A text that the object makes from a binary
// value is in lower case: five groups of 8, 4, 4, 4 and 12 hexadecimal digits, joined by hyphens,
// without braces.
//
// Threads: one thread at a time may use an object; copies may be used on different threads.
// Errors: where a call of the platform fails, the operation writes the trace line
// "RPC_STATUS status = %d, last error = %d" (DBG::kLevelFailure) and throws OS::CSystemException.
// The code is the thread's last error, not the status, and the calls of rpc_crypt.h leave the last
// error as it is: set it to 0 before, where the code matters. Operations that store or return a
// text throw std::bad_alloc when memory is short.

#include "ostrel/core/api.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/rpc_crypt.h"

class OSTREL_API CGUID {
public:
    // Makes a new GUID with UuidCreate. Throws when UuidCreate returns another status than 0, also
    // RPC_S_UUID_LOCAL_ONLY.
    CGUID();
    // Assign, as the operators below do.
    CGUID(const OS::x_wstring &text);
    CGUID(const _GUID &guid);
    CGUID(const CGUID &other);
    virtual ~CGUID();

    // Whether the texts are the same to the letter, case included: 1 or 0. Objects of one binary
    // value differ here when their texts differ in case.
    virtual int operator==(const CGUID &other) const;
    // Whether the binary values are the same, by UuidCompare: 1 or 0. Throws when UuidCompare
    // gives a status other than 0.
    virtual int operator==(const _GUID &guid) const;
    // Whether `text` is the text of the object to the letter: 1 or 0.
    virtual int operator==(const OS::x_wstring &text) const;
    // Whether the text of this object is GREATER than that of `other`, character by character as
    // unsigned numbers: a sorted container holds the texts in descending order.
    virtual bool operator<(const CGUID &other) const;

    // Copies text and binary value, and calls nothing of the platform.
    virtual const CGUID &operator=(const CGUID &other);
    // Stores the binary value, and the text that UuidToStringW gives for it.
    virtual const CGUID &operator=(const _GUID &guid);
    // Stores `text`, and the binary value that UuidFromStringW reads from it. Throws for any other
    // form than the 36 characters, such as a text in braces; the object then holds that text, and
    // its binary value is undefined.
    virtual const CGUID &operator=(const OS::x_wstring &text);

    // Returns the text. The reference is valid while the object lives.
    virtual const OS::x_wstring &GetString() const;
    // Returns the text in braces.
    virtual OS::x_wstring GetStringBraced() const;
    // Returns the binary value. The reference is valid while the object lives.
    virtual const _GUID &GetGUID() const;

private:
    _GUID m_guid = {};
    OS::x_wstring m_text;
};

#endif  // OSTREL_CORE_CM_GUID_H
