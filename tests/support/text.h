#ifndef TESTS_SUPPORT_TEXT_H
#define TESTS_SUPPORT_TEXT_H

// How the library's strings look in a failure, and short forms for tests.

#include <ostream>
#include <string>

#include "ostrel/core/x_string.h"

namespace OS {

inline void PrintTo(const x_wstring &text, std::ostream *out) {
    x_astring narrow;
    narrow.Format("%S", text.c_str());
    *out << '"' << narrow.c_str() << "\" (" << text.size() << ")";
}

inline void PrintTo(const x_astring &text, std::ostream *out) {
    *out << '"' << text.c_str() << "\" (" << text.size() << ")";
}

}  // namespace OS

// The full content, NULs included.
inline std::u16string whole(const OS::x_wstring &text) {
    return text;
}
inline std::string whole(const OS::x_astring &text) {
    return text;
}

template <class... Values>
OS::x_wstring wide(const WCHAR *format, Values... values) {
    OS::x_wstring text;
    text.Format(format, values...);
    return text;
}

template <class... Values>
OS::x_astring narrow(const char *format, Values... values) {
    OS::x_astring text;
    text.Format(format, values...);
    return text;
}

#endif  // TESTS_SUPPORT_TEXT_H
