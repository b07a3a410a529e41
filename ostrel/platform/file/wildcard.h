#ifndef OSTREL_PLATFORM_FILE_WILDCARD_H
#define OSTREL_PLATFORM_FILE_WILDCARD_H

// Internal. Matches names against patterns, by the rules in find.h. Simulates the pattern as a
// nondeterministic automaton, so no pattern causes exponential time.

#include <array>
#include <cstddef>
#include <string_view>

#include "ostrel/platform/file.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Whether `text` contains a '*' or a '?'.
bool is_pattern(std::u16string_view text);

// A pattern, prepared to match many names. A match takes time proportional to the length of the
// pattern times the length of the name, or less.
class Wildcard {
public:
    // `pattern` must have fewer than MAX_PATH characters.
    explicit Wildcard(std::u16string_view pattern);

    bool Matches(std::u16string_view name) const;

private:
    // states[i]: whether the first i characters of the pattern match the characters read so far.
    using States = std::array<bool, MAX_PATH>;

    bool Read(WCHAR character, States *states) const;
    void Skip(bool atDot, bool atEnd, States *states) const;

    std::array<WCHAR, MAX_PATH> m_pattern;  // in upper case
    std::size_t m_length;
    bool m_anything;      // the pattern matches every name
    bool m_noExtension;   // the pattern matches the names without a dot
    bool m_anyExtension;  // the pattern ends in ".*", which may match nothing
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_WILDCARD_H
