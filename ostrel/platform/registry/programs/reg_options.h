#ifndef OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_OPTIONS_H
#define OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_OPTIONS_H

// Internal. The command line of ostrel-reg: operands, and options that begin with '/' or '-'.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// What ends a command: the message on standard error, behind "ERROR: ". The exit code is 1.
struct RegFailure {
    std::string message;
    DWORD code = 0;  // of the call that failed, if one did
};

enum class OptionValue { kNone, kRequired, kOptional };

struct OptionRule {
    std::string_view name;  // in lower case, without '/' or '-'
    OptionValue value = OptionValue::kNone;
};

// The operands and options of one command. Names of options ignore case. "/x", "-x" and "--x" are
// one option; an operand may begin with '/' unless it is an option of the command. Behind "--"
// everything is an operand. A value is taken as it stands, also when it begins with '-'; an
// optional value is absent where the command line ends or an option follows.
class RegOptions {
public:
    // Throws a RegFailure when the command line does not follow the rules.
    RegOptions(const std::vector<std::string_view> &arguments, const std::vector<OptionRule> &rules,
               std::size_t operands);

    const std::string &Operand(std::size_t i) const { return m_operands[i]; }
    bool Has(std::string_view name) const { return m_options.count(name) != 0; }

    // Returns the value of an option, or nothing when the option or its value is absent.
    std::optional<std::string> Value(std::string_view name) const;

    // Throws a RegFailure when the command line has more than one of the options.
    void RequireAtMostOne(const std::vector<std::string_view> &names) const;

private:
    std::vector<std::string> m_operands;
    std::map<std::string_view, std::optional<std::string>> m_options;  // by the names of the rules
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_PROGRAMS_REG_OPTIONS_H
