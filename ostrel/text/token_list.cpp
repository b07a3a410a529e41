#include "ostrel/text/token_list.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <optional>
#include <span>
#include <string>

#include "ostrel/core/character_finder.h"
#include "ostrel/core/text_length.h"

namespace {

using OS::detail::CharacterFinder;
using OS::detail::text_length;

constexpr std::size_t kBlock = CharacterFinder<char>::kBlock;

// A set of delimiters. Holds copies, so that their source may change afterwards.
template <class Char>
class DelimiterSet {
public:
    explicit DelimiterSet(const Char *members) {
        Char few[kFew];
        std::size_t count = 0;
        for (; *members != 0; ++members) {
            const auto code = static_cast<std::make_unsigned_t<Char>>(*members);
            if (Has(*members)) {
                continue;
            }
            if (count < kFew) {
                few[count] = *members;
            }
            ++count;
            if (code < kLow) {
                m_low[code] = true;
            } else {
                m_high.resize(0x10000 - kLow);
                m_high[code - kLow] = true;
            }
        }
        if (count <= kFew) {
            m_finder.emplace(std::span(few, count));
        }
    }

    bool Has(Char c) const {
        const auto code = static_cast<std::make_unsigned_t<Char>>(c);
        return code < kLow ? m_low[code] : !m_high.empty() && m_high[code - kLow];
    }

    // Returns a mask whose bit i is set when text[i] is a delimiter, for i below `count`. `count`
    // is at most kBlock.
    std::uint64_t Mask(const Char *text, std::size_t count) const {
        if (count == kBlock && m_finder) {
            return m_finder->Mask(text);
        }
        std::uint64_t mask = 0;
        for (std::size_t i = 0; i < count; ++i) {
            mask |= std::uint64_t{Has(text[i])} << i;
        }
        return mask;
    }

private:
    static constexpr std::size_t kFew = CharacterFinder<Char>::kMax;
    static constexpr std::size_t kLow = 256;

    std::optional<CharacterFinder<Char>> m_finder;  // set when there are at most kFew delimiters
    bool m_low[kLow] = {};
    std::vector<bool> m_high;  // for the characters from kLow on; empty when none is a delimiter
};

// Calls take(begin, length) for each token of the terminated text.
template <class Char, class Take>
void for_each_token(const Char *text, std::size_t length, const DelimiterSet<Char> &delimiters,
                    Take take) {
    std::size_t begin = 0;
    for (std::size_t block = 0; block < length; block += kBlock) {
        std::uint64_t ends = delimiters.Mask(text + block, std::min(kBlock, length - block));
        for (; ends != 0; ends &= ends - 1) {
            const std::size_t end = block + static_cast<std::size_t>(std::countr_zero(ends));
            if (end > begin) {
                take(text + begin, end - begin);
            }
            begin = end + 1;
        }
    }
    if (length > begin) {
        take(text + begin, length - begin);
    }
}

// Returns the number of tokens that for_each_token finds.
template <class Char>
std::size_t count_tokens(const Char *text, std::size_t length,
                         const DelimiterSet<Char> &delimiters) {
    std::size_t tokens = 0;
    std::uint64_t behind_end = 1;  // whether the next character may begin a token
    for (std::size_t block = 0; block < length; block += kBlock) {
        const std::size_t count = std::min(kBlock, length - block);
        const std::uint64_t ends = delimiters.Mask(text + block, count);
        const std::uint64_t begins = ~ends & (ends << 1 | behind_end);
        tokens += static_cast<std::size_t>(std::popcount(begins << (kBlock - count)));
        behind_end = ends >> (kBlock - 1);
    }
    return tokens;
}

template <class String>
bool holds(const std::vector<String> &tokens, const String &text) {
    const std::less<const String *> before;
    return !before(&text, tokens.data()) && before(&text, tokens.data() + tokens.size());
}
template <class String, class Order>
bool holds(const std::set<String, Order> &tokens, const String &text) {
    const auto found = tokens.find(text);
    return found != tokens.end() && &*found == &text;
}

template <class String, class Char>
void add(std::vector<String> *tokens, const Char *begin, std::size_t length) {
    String &token = tokens->emplace_back();  // in place, because a move would copy a short token
    try {
        token.assign(begin, length);
    } catch (...) {
        tokens->pop_back();
        throw;
    }
}
template <class String, class Order, class Char>
void add(std::set<String, Order> *tokens, const Char *begin, std::size_t length) {
    String token;
    token.assign(begin, length);
    tokens->insert(std::move(token));
}

template <class List, class String, class Char>
bool split(List *tokens, const String &text, const Char *delimiter_text) {
    if (tokens == nullptr || delimiter_text == nullptr) {
        return false;
    }
    const DelimiterSet<Char> delimiters(delimiter_text);
    List kept;  // keeps the elements alive when the text is one of them
    if (holds(*tokens, text)) {
        kept.swap(*tokens);
    }
    tokens->clear();
    const Char *const begin = text.c_str();
    const std::size_t length = text_length(begin);
    if constexpr (requires { tokens->reserve(length); }) {
        tokens->reserve(count_tokens(begin, length, delimiters));
    }
    for_each_token(begin, length, delimiters,
                   [tokens](const Char *token, std::size_t size) { add(tokens, token, size); });
    return true;
}

// Builds the whole addition before it changes the result, because the arguments may lie in the
// result.
template <class List, class String, class Char>
bool combine(const List &tokens, String *result, const Char *delimiter) {
    if (result == nullptr || delimiter == nullptr) {
        return false;
    }
    const std::size_t delimiter_length = text_length(delimiter);
    typename String::std_string addition;
    for (const String &token : tokens) {
        addition.append(token.c_str(), text_length(token.c_str()));
        addition.append(delimiter, delimiter_length);
    }
    result->append(addition.data(), addition.size());
    return true;
}

}  // namespace

bool SplitStringToTokensA(std::vector<OS::x_astring> *tokens, const OS::x_astring &text,
                          const char *delimiters) {
    return split(tokens, text, delimiters);
}

bool SplitStringToTokensA(std::set<OS::x_astring, OS::XASTRICMP> *tokens, const OS::x_astring &text,
                          const char *delimiters) {
    return split(tokens, text, delimiters);
}

bool SplitStringToTokensW(std::vector<OS::x_wstring> *tokens, const OS::x_wstring &text,
                          const WCHAR *delimiters) {
    return split(tokens, text, delimiters);
}

bool SplitStringToTokensW(std::set<OS::x_wstring, OS::XWSTRICMP> *tokens, const OS::x_wstring &text,
                          const WCHAR *delimiters) {
    return split(tokens, text, delimiters);
}

bool CombineTokensToStringA(const std::vector<OS::x_astring> &tokens, OS::x_astring *result,
                            const char *delimiter) {
    return combine(tokens, result, delimiter);
}

bool CombineTokensToStringA(const std::set<OS::x_astring, OS::XASTRICMP> &tokens,
                            OS::x_astring *result, const char *delimiter) {
    return combine(tokens, result, delimiter);
}

bool CombineTokensToStringW(const std::vector<OS::x_wstring> &tokens, OS::x_wstring *result,
                            const WCHAR *delimiter) {
    return combine(tokens, result, delimiter);
}

bool CombineTokensToStringW(const std::set<OS::x_wstring, OS::XWSTRICMP> &tokens,
                            OS::x_wstring *result, const WCHAR *delimiter) {
    return combine(tokens, result, delimiter);
}
