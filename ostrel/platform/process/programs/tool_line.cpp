#include "ostrel/platform/process/programs/tool_line.h"

#include <algorithm>

#include "ostrel/platform/file/host_path.h"
#include "ostrel/platform/process/command_line.h"

namespace ostrel_platform {
namespace {

std::u16string text_of(std::string_view argument) {
    std::u16string text(argument.size(), 0);
    text.resize(name_from_host(argument, text.data()));
    std::replace(text.begin(), text.end(), kNameBackslash, u'\\');
    return text;
}

}  // namespace

std::u16string tool_line(int count, const char *const *arguments) {
    if (count == 2) {
        return text_of(arguments[1]);
    }
    std::u16string line;
    for (int i = 1; i < count; ++i) {
        const std::u16string text = text_of(arguments[i]);
        const bool is_plain = !text.empty() && text.find_first_of(u" \t\"") == text.npos;
        line += is_plain ? u' ' + text : u" \"" + text + u'"';
    }
    return line;
}

std::u16string_view trim_front(std::u16string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(u" \t"), text.size()));
    return text;
}

std::u16string_view take_word(std::u16string_view *text) {
    *text = trim_front(*text);
    const std::u16string_view word = text->substr(0, text->find_first_of(u" \t"));
    *text = trim_front(text->substr(word.size()));
    return word;
}

std::string printable(std::u16string_view text) {
    std::u16string shown(text);
    std::replace_if(
        shown.begin(), shown.end(),
        [](WCHAR unit) { return unit < u' ' || (unit >= 0x7F && unit < 0xA0); }, u'?');
    return argument_to_host(shown);
}

}  // namespace ostrel_platform
