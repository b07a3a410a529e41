#include "ostrel/platform/process/command_line.h"

#include <algorithm>
#include <cstddef>

#include "ostrel/platform/text/utf8.h"

namespace ostrel_platform {
namespace {

// Whether a unit stands for a byte of a host name when no other surrogate precedes it.
constexpr bool is_byte(WCHAR unit) {
    return (unit >= 0xDC80 && unit <= 0xDCFF) || unit == 0xDC5C;
}

// Takes one argument from the front of a text that begins with one.
std::u16string take_argument(std::u16string_view *text) {
    std::u16string argument;
    bool is_quoted = false;
    std::size_t at = 0;
    for (; at < text->size() && (is_quoted || !is_blank((*text)[at])); ++at) {
        const std::size_t mark = std::min(text->find_first_not_of(u'\\', at), text->size());
        const std::size_t backslashes = mark - at;
        const bool before_mark = mark < text->size() && (*text)[mark] == u'"';
        argument.append(before_mark ? backslashes / 2 : backslashes, u'\\');
        if (before_mark && backslashes % 2 == 0) {
            const bool is_doubled =
                is_quoted && mark + 1 < text->size() && (*text)[mark + 1] == u'"';
            argument.append(is_doubled ? 1 : 0, u'"');
            at = is_doubled ? mark + 1 : mark;
            is_quoted = is_doubled || !is_quoted;
        } else if (before_mark) {
            argument += u'"';
            at = mark;
        } else if (backslashes > 0) {
            at = mark - 1;
        } else {
            argument += (*text)[at];
        }
    }
    text->remove_prefix(at);
    return argument;
}

}  // namespace

ProgramWord program_word(std::u16string_view line) {
    if (line.starts_with(u'"')) {
        const std::size_t end = std::min(line.find(u'"', 1), line.size());
        return {line.substr(1, end - 1), line.substr(std::min(end + 1, line.size())), true};
    }
    const std::size_t end = std::min(line.find_first_of(u" \t"), line.size());
    return {line.substr(0, end), line.substr(end), false};
}

std::vector<std::u16string> cut_arguments(std::u16string_view rest) {
    std::vector<std::u16string> arguments;
    for (;;) {
        rest.remove_prefix(std::min(rest.find_first_not_of(u" \t"), rest.size()));
        if (rest.empty()) {
            return arguments;
        }
        arguments.push_back(take_argument(&rest));
    }
}

std::string argument_to_host(std::u16string_view argument) {
    std::string bytes;
    while (!argument.empty()) {
        std::size_t run = 0;
        while (run < argument.size() && !is_byte(argument[run])) {
            run += (argument[run] & 0xFC00) == 0xD800 && run + 1 < argument.size() ? 2 : 1;
        }
        const std::size_t before = bytes.size();
        bytes.resize(before + 3 * run);
        bytes.resize(before + utf16_to_utf8(argument.data(), run, bytes.data() + before));
        argument.remove_prefix(run);
        if (!argument.empty()) {
            bytes += static_cast<char>(argument.front() & 0xFF);
            argument.remove_prefix(1);
        }
    }
    return bytes;
}

}  // namespace ostrel_platform
