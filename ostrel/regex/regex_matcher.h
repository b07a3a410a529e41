#ifndef OSTREL_REGEX_REGEX_MATCHER_H
#define OSTREL_REGEX_REGEX_MATCHER_H

// Internal. The state and the results of a match; see CompiledPattern::Match.

#include <cstddef>
#include <cstdint>

#include "ostrel/platform/types.h"
#include "ostrel/regex/growing_array.h"
#include "ostrel/regex/regex_program.h"

namespace OS::regex {

// The text that a group has captured; null for both when it took no part.
struct Capture {
    const WCHAR *start;
    const WCHAR *end;
};

// A context can be used again: each match prepares it afresh.
//
// Threads: one match at a time.
class MatchContext {
public:
    // `initialStack` is the number of words that the stack starts with.
    explicit MatchContext(std::size_t initialStack);

    // Hands out what the group has captured, as places in the text that was matched.
    //
    // Errors: a null pointer, or an index that is not below groupCount, throws RegexFailure with
    // kFailed.
    void GetGroup(unsigned index, const WCHAR **start, const WCHAR **end) const;

    std::uint32_t groupCount = 0;
    const WCHAR *matchStart = nullptr;  // where the last attempt began
    const WCHAR *matchEnd = nullptr;    // where it ended, with a match or without
    GrowingArray<Word, 8> memory;
    GrowingArray<Capture, 24> groups;
    GrowingArray<Word, 256> stack;  // index 0 is not used
    Word stackTop = 0;              // index of the top word; 0 when the stack is empty
};

}  // namespace OS::regex

#endif  // OSTREL_REGEX_REGEX_MATCHER_H
