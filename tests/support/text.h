#ifndef TESTS_SUPPORT_TEXT_H
#define TESTS_SUPPORT_TEXT_H

// Short forms for tests, and how the library's strings look in a failure.

#include "ostrel/core/x_string.h"
#include "support/test.h"

// The string that Format makes, of the width of its format.
template <class Char, class... Values>
auto formatted(const Char *format, Values... values) {
    std::conditional_t<sizeof(Char) == 1, OS::x_astring, OS::x_wstring> text;
    text.Format(format, values...);
    return text;
}

// The full content, NULs included.
template <class Char>
std::basic_string<Char> whole(const std::basic_string<Char> &text) {
    return text;
}

namespace OS {

inline void PrintTo(const x_astring &text, std::ostream *out) {
    *out << '"' << text.c_str() << "\" (" << text.size() << ")";
}
inline void PrintTo(const x_wstring &text, std::ostream *out) {
    PrintTo(formatted("%S", text.c_str()), out);
}

}  // namespace OS

#endif  // TESTS_SUPPORT_TEXT_H
