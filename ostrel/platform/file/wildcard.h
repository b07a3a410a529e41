#ifndef OSTREL_PLATFORM_FILE_WILDCARD_H
#define OSTREL_PLATFORM_FILE_WILDCARD_H

// Internal. Matches names against patterns, by the rules in find.h.

#include <array>
#include <cstddef>
#include <string_view>

#include "ostrel/platform/file.h"
#include "ostrel/platform/types.h"

namespace ostrel_platform {

// Whether a text contains a '*' or a '?'.
bool is_pattern(std::u16string_view text);

// A pattern, prepared for many names. The time for a name grows at most with the product of the two
// lengths.
class Wildcard {
public:
    // `pattern` has fewer than MAX_PATH characters.
    explicit Wildcard(std::u16string_view pattern);

    bool Matches(std::u16string_view name) const;

private:
    // places[i]: whether the first i characters of the pattern match the characters read so far.
    using Places = std::array<bool, MAX_PATH>;

    bool Read(WCHAR character, Places *places) const;
    void Skip(bool atDot, bool atEnd, Places *places) const;

    std::array<WCHAR, MAX_PATH> m_pattern;  // in upper case
    std::size_t m_length;
    bool m_anything;      // matches every name
    bool m_noExtension;   // matches the names without a dot
    bool m_anyExtension;  // ends in ".*", which may be left out
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_WILDCARD_H
