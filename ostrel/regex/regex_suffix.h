#ifndef OSTREL_REGEX_REGEX_SUFFIX_H
#define OSTREL_REGEX_REGEX_SUFFIX_H

// Internal. Reads the suffix of an atom of a pattern: a quantifier, and a `|`.

#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <vector>

#include "ostrel/platform/types.h"

namespace OS::regex {

enum class Quantifier : std::uint8_t { kNone, kStar, kPlus, kQuestion };

struct Suffix {
    Quantifier quantifier = Quantifier::kNone;
    bool lazy = false;         // the shortest first
    bool alternative = false;  // a `|` follows
};

inline bool begins_suffix(WCHAR character) {
    return character == TEXT('*') || character == TEXT('+') || character == TEXT('?') ||
           character == TEXT('|');
}

// Reads the suffix at `at`, which may be empty, and advances `at` past it.
inline Suffix read_suffix(const WCHAR *&at) {
    Suffix suffix;
    switch (*at) {
        case TEXT('*'):
            suffix.quantifier = Quantifier::kStar;
            break;
        case TEXT('+'):
            suffix.quantifier = Quantifier::kPlus;
            break;
        case TEXT('?'):
            suffix.quantifier = Quantifier::kQuestion;
            break;
        case TEXT('|'):
            ++at;
            suffix.alternative = true;
            return suffix;
        default:
            return suffix;
    }
    suffix.lazy = *++at == TEXT('?');
    at += suffix.lazy ? 1 : 0;
    suffix.alternative = *at == TEXT('|');
    at += suffix.alternative ? 1 : 0;
    return suffix;
}

// The limit of an index of an instruction: 32 bits with a sign.
inline constexpr std::uint64_t kMaxInstructions = 0x7FFFFFFF;

// Adds to `suffixes` the suffix of each `{...}` and `(...)` of a pattern, in the order of the
// opening brackets. The suffix of a bracket that the pattern does not close is empty.
//
// Returns null, or the closing bracket at which nested `+` have repeated so much that the program
// has more than kMaxInstructions. The call then reads nothing behind that bracket. Throws
// std::bad_alloc when memory is short.
const WCHAR *read_bracket_suffixes(const WCHAR *pattern, std::pmr::vector<Suffix> &suffixes);

}  // namespace OS::regex

#endif  // OSTREL_REGEX_REGEX_SUFFIX_H
