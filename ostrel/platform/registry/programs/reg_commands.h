#ifndef OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_COMMANDS_H
#define OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_COMMANDS_H

// Internal. The commands of ostrel-reg; its --help describes them. Each takes the command line
// behind its name, prints to standard output, and returns the exit code. Each throws a RegFailure.

#include <string>
#include <string_view>
#include <vector>

namespace ostrel_platform {

using RegArguments = std::vector<std::string_view>;

int run_query(const RegArguments &arguments);
int run_add(const RegArguments &arguments);
int run_delete(const RegArguments &arguments);
int run_copy(const RegArguments &arguments);
int run_export(const RegArguments &arguments);
int run_import(const RegArguments &arguments);
int run_watch(const RegArguments &arguments);
int run_compact(const RegArguments &arguments);
int run_check(const RegArguments &arguments);
int run_where(const RegArguments &arguments);

// Prints a text, at once.
void print(std::string_view text);

// Prints that the command is done. Returns the exit code 0.
int report_done();

// Asks on standard output, and reads the answer from standard input: the first letter of one of
// `answers`, which ignores case, or the whole word. Asks again until there is an answer. Returns
// its first letter in lower case, and 'n' at the end of the input.
char ask(const std::string &question, const std::vector<std::string_view> &answers);

// The same for yes and no. Throws a RegFailure when the answer is no.
void require_yes(const std::string &question);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_COMMANDS_H
