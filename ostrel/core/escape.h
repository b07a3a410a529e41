#ifndef OSTREL_CORE_ESCAPE_H
#define OSTREL_CORE_ESCAPE_H

// Internal. Escapes a text: replaces each character of a set by its escape, in one pass.

#include <cstdint>
#include <string>

#include "ostrel/platform/types.h"

namespace OS::detail {

enum class EscapeSet {
    kMarkup,            // & " < > CR LF
    kMarkupApostrophe,  // & " < > CR LF '
    kMarkupBlanks,      // blank and tab
    kCString,           // \ " '
};

// Replaces the first `limit` occurrences of each character of the set. The result is the same as
// that of one replacement pass for each character, in the order of the set, because no character of
// a set occurs in the escapes of the characters before it. Throws std::bad_alloc when memory is
// short; the text is unchanged then.
void escape(std::string *text, EscapeSet set, std::uint64_t limit);
void escape(std::basic_string<WCHAR> *text, EscapeSet set, std::uint64_t limit);

}  // namespace OS::detail

#endif  // OSTREL_CORE_ESCAPE_H
