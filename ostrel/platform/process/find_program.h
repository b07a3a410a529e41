#ifndef OSTREL_PLATFORM_PROCESS_FIND_PROGRAM_H
#define OSTREL_PLATFORM_PROCESS_FIND_PROGRAM_H

// Internal. Which file CreateProcessW executes, by the rules in process.h.

#include <string>
#include <string_view>
#include <vector>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

struct Program {
    std::string path;                    // absolute
    std::vector<std::string> arguments;  // that for the program's name first
};

// Finds a program and cuts its arguments. `application` and `line` are not both null. Returns 0 or
// an error code.
DWORD find_program(const WCHAR *application, const WCHAR *line, Program *program);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_PROCESS_FIND_PROGRAM_H
