#ifndef OSTREL_REGEX_REGEX_MATCHER_H
#define OSTREL_REGEX_REGEX_MATCHER_H

// Internal. Holds the state and the results of a match; see CompiledPattern::Match.

#include <cstddef>
#include <cstdint>

#include "ostrel/platform/types.h"
#include "ostrel/regex/growing_array.h"
#include "ostrel/regex/regex_program.h"

namespace OS::regex {

// The text that a group captured; both pointers are null when the group took no part in the match.
struct Capture {
    const WCHAR *start;
    const WCHAR *end;
};

// The context of a match. Each match prepares the context anew, so a context can be reused.
//
// Threads: use a context for one match at a time.
class MatchContext {
public:
    // `initialStack` is the initial number of words of the stack.
    explicit MatchContext(std::size_t initialStack);

    // Stores what the group captured, as pointers into the text that was matched. Throws
    // RegexFailure with kFailed when a pointer is null or `index` is not below groupCount.
    void GetGroup(unsigned index, const WCHAR **start, const WCHAR **end) const;

    std::uint32_t groupCount = 0;
    const WCHAR *matchStart = nullptr;  // where the last attempt began
    const WCHAR *matchEnd = nullptr;    // where it ended, also without a match
    GrowingArray<Word, 8> memory;
    GrowingArray<Capture, 24> groups;
    GrowingArray<Word, 256> stack;  // index 0 is not used
    Word stackTop = 0;              // index of the top word; 0 when the stack is empty
};

}  // namespace OS::regex

#endif  // OSTREL_REGEX_REGEX_MATCHER_H
