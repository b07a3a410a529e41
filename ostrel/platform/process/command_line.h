#ifndef OSTREL_PLATFORM_PROCESS_COMMAND_LINE_H
#define OSTREL_PLATFORM_PROCESS_COMMAND_LINE_H

// Internal. Cuts a command line into arguments, as the platform's runtime does for a program.

#include <string>
#include <string_view>
#include <vector>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

constexpr bool is_blank(WCHAR unit) {
    return unit == u' ' || unit == u'\t';
}

// The first word of a command line, which names the program.
struct ProgramWord {
    std::u16string_view text;  // without its quotation marks
    std::u16string_view rest;  // what follows the word, blanks included
    bool is_quoted;
};

// Returns the first word: in quotation marks up to the next one, or up to a blank.
ProgramWord program_word(std::u16string_view line);

// Cuts what follows the program's word. Blanks separate arguments. A quotation mark begins or ends
// a part in which blanks separate nothing; two of them within such a part are one of the argument.
// Before a quotation mark, each two backslashes are one of the argument, and an odd one makes the
// mark part of the argument. All other backslashes are ordinary.
std::vector<std::u16string> cut_arguments(std::u16string_view rest);

// Converts an argument to the host's bytes: UTF-8, with the units that stand for bytes of host
// names (file.h) as those bytes.
std::string argument_to_host(std::u16string_view argument);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PROCESS_COMMAND_LINE_H
