#include "ostrel/regex/regex_matcher.h"

#include <cstddef>

#include "ostrel/regex/regex_interpreter.h"
#include "ostrel/regex/validators.h"

namespace OS::regex {

MatchContext::MatchContext(std::size_t initialStack) {
    (void)stack.Resize(initialStack);  // when memory is short, the first push retries
}

void MatchContext::GetGroup(unsigned index, const WCHAR **start, const WCHAR **end) const {
    if (start == nullptr || end == nullptr || index >= groupCount) {
        throw RegexFailure{RegexFailure::kFailed};
    }
    *start = groups[index].start;
    *end = groups[index].end;
}

bool grow_stack(MatchContext &context, Word top) {
    constexpr Word kLimit = static_cast<Word>(-1) / 2 - 2;
    return top <= kLimit && context.stack.Resize(top * 2 + 2);
}

bool prepare(MatchContext &context, const CompiledPattern &program) {
    context.stackTop = 0;
    context.groupCount = 0;
    context.matchStart = nullptr;
    context.matchEnd = nullptr;
    if (!context.groups.Renew(program.groupCount)) {
        return false;
    }
    context.groupCount = program.groupCount;
    return context.memory.Renew(program.memoryCount);
}

void translate(MatchContext &context, const WCHAR *copy, const WCHAR *text) {
    if (copy == text) {
        return;
    }
    const auto move_to_text = [=](const WCHAR *&position) {
        position = position == nullptr ? nullptr : text + (position - copy);
    };
    move_to_text(context.matchStart);
    move_to_text(context.matchEnd);
    for (std::uint32_t group = 0; group < context.groupCount; ++group) {
        move_to_text(context.groups[group].start);
        move_to_text(context.groups[group].end);
    }
}

int CompiledPattern::Match(const WCHAR *text, MatchContext *context, const WCHAR **stopped) const {
    return match_while(*this, text, context, stopped, [] { return true; });
}

}  // namespace OS::regex
