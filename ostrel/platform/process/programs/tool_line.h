#ifndef OSTREL_PLATFORM_PROCESS_PROGRAMS_TOOL_LINE_H
#define OSTREL_PLATFORM_PROCESS_PROGRAMS_TOOL_LINE_H

// Internal. The command line of the layer's own programs, which CreateProcessW passes uncut: what a
// quotation mark means depends on the whole line.

#include <string>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// The unit of a backslash in a host name, where it separates nothing (file.h). The host's arguments
// do not tell it from a backslash in a path, which is what a command line has.
inline constexpr WCHAR kNameBackslash = 0xDC5C;

// Returns what followed the program's name. Arguments that a shell has cut are put together again,
// with quotation marks around those that hold a blank, a quotation mark or nothing.
std::u16string tool_line(int count, const char *const *arguments);

// Removes the blanks at the front of a text.
std::u16string_view trim_front(std::u16string_view text);

// Takes the first word of a text, up to a blank, and the blanks around it.
std::u16string_view take_word(std::u16string_view *text);

// Returns a text of a command line for a terminal, with '?' for each control character.
std::string printable(std::u16string_view text);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PROCESS_PROGRAMS_TOOL_LINE_H
