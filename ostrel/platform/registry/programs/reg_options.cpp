#include "ostrel/platform/registry/programs/reg_options.h"

#include <algorithm>

#include "ostrel/platform/base/ascii.h"

namespace ostrel_platform {
namespace {

constexpr char kWrongSyntax[] = "Invalid syntax. Type \"ostrel-reg --help\" for usage.";

const OptionRule *find_rule(std::string_view argument, const std::vector<OptionRule> &rules) {
    if (argument.starts_with("--")) {
        argument.remove_prefix(2);
    } else if (argument.starts_with('/') || argument.starts_with('-')) {
        argument.remove_prefix(1);
    } else {
        return nullptr;
    }
    const auto rule = std::find_if(rules.begin(), rules.end(), [argument](const OptionRule &known) {
        return std::equal(argument.begin(), argument.end(), known.name.begin(), known.name.end(),
                          [](char a, char b) { return to_upper(a) == to_upper(b); });
    });
    return rule != rules.end() ? &*rule : nullptr;
}

}  // namespace

RegOptions::RegOptions(const std::vector<std::string_view> &arguments,
                       const std::vector<OptionRule> &rules, std::size_t operands) {
    bool has_ended = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const OptionRule *const rule = has_ended ? nullptr : find_rule(arguments[i], rules);
        if (rule == nullptr) {
            if (arguments[i] == "--" && !has_ended) {
                has_ended = true;
            } else {
                m_operands.emplace_back(arguments[i]);
            }
            continue;
        }
        std::optional<std::string> value;
        const bool is_last = i + 1 == arguments.size();
        if (rule->value == OptionValue::kRequired && is_last) {
            throw RegFailure{kWrongSyntax};
        }
        if (rule->value == OptionValue::kRequired ||
            (rule->value == OptionValue::kOptional && !is_last &&
             find_rule(arguments[i + 1], rules) == nullptr)) {
            value = arguments[++i];
        }
        if (!m_options.emplace(rule->name, std::move(value)).second) {
            throw RegFailure{kWrongSyntax};
        }
    }
    if (m_operands.size() != operands) {
        throw RegFailure{kWrongSyntax};
    }
}

std::optional<std::string> RegOptions::Value(std::string_view name) const {
    const auto found = m_options.find(name);
    return found != m_options.end() ? found->second : std::nullopt;
}

void RegOptions::RequireAtMostOne(const std::vector<std::string_view> &names) const {
    if (std::count_if(names.begin(), names.end(),
                      [this](std::string_view name) { return Has(name); }) > 1) {
        throw RegFailure{kWrongSyntax};
    }
}

}  // namespace ostrel_platform
