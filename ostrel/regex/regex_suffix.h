#ifndef OSTREL_REGEX_REGEX_SUFFIX_H
#define OSTREL_REGEX_REGEX_SUFFIX_H

// Internal. What stands behind an atom of a pattern: its quantifier, and a `|`.

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
    bool alternative = false;  // a `|` and a further alternation follow
};

inline bool begins_suffix(WCHAR character) {
    return character == TEXT('*') || character == TEXT('+') || character == TEXT('?') ||
           character == TEXT('|');
}

// Reads what stands at `at` and moves it behind that.
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

// Indexes of instructions have 32 bits and a sign.
inline constexpr std::uint64_t kMaxInstructions = 0x7FFFFFFF;

// What stands behind each `{...}` and `(...)` of a pattern, in the order of the opening brackets;
// nothing for brackets that the pattern does not close.
//
// Result: false when the pattern repeats so much by nested `+` that its program must have more than
// kMaxInstructions. Throws std::bad_alloc.
bool read_bracket_suffixes(const WCHAR *pattern, std::pmr::vector<Suffix> &suffixes);

}  // namespace OS::regex

#endif  // OSTREL_REGEX_REGEX_SUFFIX_H
