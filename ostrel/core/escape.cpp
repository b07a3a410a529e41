#include "ostrel/core/escape.h"

#include <algorithm>
#include <bit>
#include <span>
#include <string_view>

#include "ostrel/core/character_finder.h"

namespace OS::detail {
namespace {

struct Escape {
    char character;
    std::string_view text;  // ASCII
};

constexpr Escape kMarkup[] = {{'&', "&amp;"},   {'"', "&quot;"},  {'<', "&lt;"},   {'>', "&gt;"},
                              {'\r', "&#x0D;"}, {'\n', "&#x0A;"}, {'\'', "&#039;"}};
constexpr Escape kMarkupBlanks[] = {{' ', "&nbsp;"}, {'\t', "&nbsp;"}};
constexpr Escape kCString[] = {{'\\', "\\\\"}, {'"', "\\\""}, {'\'', "\\'"}};

constexpr std::size_t kMaxEscapes = std::size(kMarkup);
static_assert(kMaxEscapes <= CharacterFinder<char>::kMax);

std::span<const Escape> escapes_of(EscapeSet set) {
    switch (set) {
        case EscapeSet::kMarkupBlanks:
            return kMarkupBlanks;
        case EscapeSet::kCString:
            return kCString;
        case EscapeSet::kMarkupApostrophe:
            return kMarkup;
        case EscapeSet::kMarkup:
            break;
    }
    return std::span(kMarkup).first(kMaxEscapes - 1);
}

// Calls take(index) for each position at which the finder finds a character.
template <class Char, class Take>
void for_each_found(const std::basic_string<Char> &text, const CharacterFinder<Char> &finder,
                    Take take) {
    constexpr std::size_t kBlock = CharacterFinder<Char>::kBlock;
    const auto take_block = [&](std::size_t at, const Char *block) {
        for (std::uint64_t found = finder.Mask(block); found != 0; found &= found - 1) {
            take(at + static_cast<std::size_t>(std::countr_zero(found)));
        }
    };
    std::size_t at = 0;
    for (; at + kBlock <= text.size(); at += kBlock) {
        take_block(at, text.data() + at);
    }
    Char rest[kBlock] = {};  // padded with NULs, which are in no set
    std::copy(text.data() + at, text.data() + text.size(), rest);
    take_block(at, rest);
}

template <class Char>
void escape_text(std::basic_string<Char> *text, std::span<const Escape> escapes,
                 std::uint64_t limit) {
    Char characters[kMaxEscapes];
    std::basic_string<Char> replacements[kMaxEscapes];
    std::size_t longest = 0;
    for (std::size_t i = 0; i < escapes.size(); ++i) {
        characters[i] = static_cast<Char>(escapes[i].character);
        replacements[i].assign(escapes[i].text.begin(), escapes[i].text.end());
        longest = std::max(longest, replacements[i].size());
    }
    const CharacterFinder<Char> finder(std::span(characters, escapes.size()));
    std::size_t found = 0;
    for_each_found(*text, finder, [&](std::size_t) { ++found; });
    if (found == 0) {
        return;
    }
    std::basic_string<Char> escaped;
    const std::uint64_t replaced =
        found > limit ? std::min<std::uint64_t>(found, limit * escapes.size()) : found;
    escaped.reserve(text->size() + replaced * (longest - 1));
    std::uint64_t counts[kMaxEscapes] = {};
    std::size_t copied = 0;
    for_each_found(*text, finder, [&](std::size_t at) {
        std::size_t which = 0;
        while ((*text)[at] != characters[which]) {
            ++which;
        }
        if (counts[which]++ < limit) {
            escaped.append(*text, copied, at - copied);
            escaped.append(replacements[which]);
            copied = at + 1;
        }
    });
    escaped.append(*text, copied);
    *text = std::move(escaped);
}

}  // namespace

void escape(std::string *text, EscapeSet set, std::uint64_t limit) {
    escape_text(text, escapes_of(set), limit);
}

void escape(std::basic_string<WCHAR> *text, EscapeSet set, std::uint64_t limit) {
    escape_text(text, escapes_of(set), limit);
}

}  // namespace OS::detail
