#include "ostrel/regex/regex_suffix.h"

namespace OS::regex {

namespace {

// An open bracket, or the whole pattern.
struct Bracket {
    WCHAR closing;
    std::uint32_t index;     // in the order of the opening brackets
    std::uint64_t size = 0;  // of its content, in instructions, at least
};

// Returns the `]` of the set whose content begins at `at`, or the end of the pattern. The character
// at the end of a range stands for itself, also a backslash.
const WCHAR *skip_set(const WCHAR *at) {
    at += *at == TEXT('^') ? 1 : 0;
    while (*at != 0 && *at != TEXT(']')) {
        if (*at == TEXT('\\') && *++at == 0) {
            break;
        }
        if (*++at == TEXT('-') && *++at != 0) {
            ++at;
        }
    }
    return at;
}

}  // namespace

const WCHAR *read_bracket_suffixes(const WCHAR *pattern, std::pmr::vector<Suffix> &suffixes) {
    std::pmr::vector<Bracket> open(suffixes.get_allocator());
    open.reserve(16);
    open.push_back({.closing = 0, .index = 0});
    for (const WCHAR *at = pattern; *at != 0;) {
        const WCHAR character = *at++;
        switch (character) {
            case TEXT('\\'):
                at += *at != 0 ? 1 : 0;
                break;
            case TEXT('['):
                at = skip_set(at);
                at += *at != 0 ? 1 : 0;
                break;
            case TEXT('{'):
            case TEXT('('):
                open.push_back({.closing = character == TEXT('{') ? TEXT('}') : TEXT(')'),
                                .index = static_cast<std::uint32_t>(suffixes.size())});
                suffixes.emplace_back();
                break;
            case TEXT('}'):
            case TEXT(')'):
            case TEXT(']'): {
                const Bracket bracket = open.back();
                if (bracket.closing != character) {
                    return nullptr;
                }
                open.pop_back();
                const WCHAR *const closing = at - 1;
                const Suffix suffix = read_suffix(at);
                suffixes[bracket.index] = suffix;
                const std::uint64_t size = bracket.size + 2;
                open.back().size += suffix.quantifier == Quantifier::kPlus ? 2 * size : size;
                if (open.back().size > kMaxInstructions) {
                    return closing;
                }
                break;
            }
            default:
                break;
        }
    }
    return nullptr;
}

}  // namespace OS::regex
