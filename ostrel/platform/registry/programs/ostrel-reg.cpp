// Shows and changes the registry. The text of --help describes the commands.

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <new>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/registry/programs/reg_commands.h"
#include "ostrel/platform/registry/programs/reg_options.h"

namespace ostrel_platform {
namespace {

constexpr char kHelp[] =
    "Usage: ostrel-reg COMMAND ...\n"
    "\n"
    "  query KEY [/v [NAME] | /ve] [/s] [/f DATA [/k] [/d] [/c] [/e]] [/t TYPE[,TYPE...]]\n"
    "        [/z] [/se SEPARATOR] [--json]\n"
    "      Prints a key's values and subkeys.\n"
    "        /v NAME  only this value; without NAME, /f searches in names of values only\n"
    "        /ve      only the unnamed value\n"
    "        /s       all keys below too\n"
    "        /f DATA  search for DATA, which may hold * and ?, in names and data\n"
    "        /k, /d   search only in names of keys, only in data\n"
    "        /c, /e   search with regard to case, for the whole of a name or data\n"
    "        /t TYPE  only values of these types\n"
    "        /z       print the numbers of types\n"
    "        /se SEP  print SEP between the texts of a REG_MULTI_SZ; \\0 by default\n"
    "\n"
    "  add KEY [/v NAME | /ve] [/t TYPE] [/s SEPARATOR] [/d DATA] [/f]\n"
    "      Creates a key, and sets a value when /v, /ve, /t or /d is given. TYPE is REG_SZ by\n"
    "      default, or a number. /s separates the texts of a REG_MULTI_SZ; \\0 by default.\n"
    "\n"
    "  delete KEY [/v NAME | /ve | /va] [/f]\n"
    "      Deletes a key with all below it, one value, or with /va all values of the key.\n"
    "\n"
    "  copy KEY1 KEY2 [/s] [/f]\n"
    "      Copies the values of KEY1 to KEY2, with /s all keys below too, in one commit.\n"
    "\n"
    "  export KEY FILE [/y]\n"
    "      Writes a key with all below it to a file for registry editors. - is standard output.\n"
    "\n"
    "  import FILE\n"
    "      Carries out such a file, in UTF-16, UTF-8 or the older 8-bit form. A file with a fault\n"
    "      changes nothing. - is standard input.\n"
    "\n"
    "  watch KEY [/s] [--json]\n"
    "      Prints the changes of a key, with /s of all keys below too, as they come.\n"
    "\n"
    "  check\n"
    "      Checks the files of the registry. The exit code is 1 when one is damaged.\n"
    "\n"
    "  compact\n"
    "      Returns the room of what was deleted, in the files that this user may write.\n"
    "\n"
    "  where [--json]\n"
    "      Prints the paths of the files.\n"
    "\n"
    "KEY is ROOT\\NAME\\...; where it holds no \\, / separates too. ROOT is HKLM, HKCU, HKCR, "
    "HKU,\n"
    "HKCC or the full name. /f and /y answer every question with yes. Options begin with /, - or\n"
    "--. /reg:32 and /reg:64 have no effect.\n"
    "\n"
    "The exit code is 0 for success and 1 for failure, also when a search finds nothing.\n";

constexpr struct {
    std::string_view name;
    int (*run)(const RegArguments &arguments);
} kCommands[] = {
    {"query", run_query},     {"add", run_add},       {"delete", run_delete}, {"copy", run_copy},
    {"export", run_export},   {"import", run_import}, {"watch", run_watch},   {"check", run_check},
    {"compact", run_compact}, {"where", run_where},
};

bool is_same_word(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char left, char right) { return to_upper(left) == to_upper(right); });
}

bool is_help(std::string_view argument) {
    return argument == "/?" || argument == "-?" || argument == "-h" || argument == "--help";
}

int run(const RegArguments &arguments) {
    if (arguments.empty() || is_help(arguments[0]) ||
        (arguments.size() == 2 && is_help(arguments[1]))) {
        print(kHelp);
        return arguments.empty() ? 1 : 0;
    }
    for (const auto &command : kCommands) {
        if (is_same_word(command.name, arguments[0])) {
            return command.run({arguments.begin() + 1, arguments.end()});
        }
    }
    throw RegFailure{"There is no such command. Type \"ostrel-reg --help\" for usage."};
}

}  // namespace

void print(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
        std::fflush(stdout) != 0) {
        throw RegFailure{"Standard output cannot be written."};
    }
}

int report_done() {
    print("The operation completed successfully.\n");
    return 0;
}

char ask(const std::string &question, const std::vector<std::string_view> &answers) {
    std::string line;
    for (;;) {
        print(question);
        if (!std::getline(std::cin, line)) {
            print("\n");
            return 'n';
        }
        for (const std::string_view answer : answers) {
            if (is_same_word(line, answer) || is_same_word(line, answer.substr(0, 1))) {
                return answer[0];
            }
        }
    }
}

void require_yes(const std::string &question) {
    if (ask(question, {"yes", "no"}) == 'n') {
        throw RegFailure{"The operation was cancelled."};
    }
}

}  // namespace ostrel_platform

int main(int count, char **arguments) {
    try {
        return ostrel_platform::run({arguments + 1, arguments + std::max(count, 1)});
    } catch (const ostrel_platform::RegFailure &failure) {
        std::fprintf(stderr, "ERROR: %s\n", failure.message.c_str());
    } catch (const std::bad_alloc &) {
        std::fputs("ERROR: Memory is short.\n", stderr);
    }
    return 1;
}
