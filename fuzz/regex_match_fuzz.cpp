// Compiles a pattern and looks for it in a text. Input: a byte for the case rule, then the pattern
// and the text in UTF-16 with a NUL between them. A pattern can try without end, so the steps are
// bounded here.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "ostrel/regex/regex_interpreter.h"
#include "ostrel/regex/regex_matcher.h"
#include "ostrel/regex/regex_program.h"

using namespace OS::regex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    std::u16string input((size - 1) / 2, u'\0');
    std::memcpy(input.data(), data + 1, input.size() * 2);
    const std::u16string pattern = input.substr(0, input.find(u'\0'));
    const std::u16string text = input.substr(std::min(pattern.size() + 1, input.size())).c_str();
    if (std::count(pattern.begin(), pattern.end(), u'+') > 8) {
        return 0;
    }
    CompiledPattern program;
    if (program.Compile(pattern.c_str(), data[0] & 1) != RegexOk) {
        return 0;
    }
    MatchContext context(1 + data[0] / 2);
    const WCHAR *stopped = nullptr;
    int steps = 20000;
    const int matched =
        match_while(program, text.c_str(), &context, &stopped, [&steps] { return --steps >= 0; });

    // What is handed out lies within the text; `$` steps over its NUL.
    const WCHAR *const first = text.c_str();
    const WCHAR *const last = first + text.size();
    bool sound = first <= context.matchStart && context.matchStart <= last &&
                 first <= context.matchEnd && context.matchEnd <= last + 1 &&
                 (steps < 0 || stopped == context.matchEnd);
    for (unsigned group = 0; group < context.groupCount; ++group) {
        const WCHAR *start = nullptr;
        const WCHAR *end = nullptr;
        context.GetGroup(group, &start, &end);
        sound = sound && (start == nullptr || (first <= start && start <= last)) &&
                (end == nullptr || (first <= end && end <= last));
    }
    if (!sound && (matched != 0 || steps >= 0)) {
        __builtin_trap();
    }
    return 0;
}
