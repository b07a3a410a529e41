#ifndef OSTREL_CORE_ESCAPE_H
#define OSTREL_CORE_ESCAPE_H

// Internal. Replaces characters by texts, all of them in one pass.

#include <cstdint>
#include <string>

#include "ostrel/platform/types.h"

namespace OS::detail {

enum class EscapeSet {
    kMarkup,            // & " < > CR LF
    kMarkupApostrophe,  // these and '
    kMarkupBlanks,      // blank and tab
    kCString,           // \ " '
};

// Gives what a replacement of one character after the other would: no character of a set occurs in
// the texts that replace the characters behind it. Of each character the first `limit` are
// replaced. When memory fails the text is unchanged.
void escape(std::string *text, EscapeSet set, std::uint64_t limit);
void escape(std::basic_string<WCHAR> *text, EscapeSet set, std::uint64_t limit);

}  // namespace OS::detail

#endif  // OSTREL_CORE_ESCAPE_H
