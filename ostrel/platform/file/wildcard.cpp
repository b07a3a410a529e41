#include "ostrel/platform/file/wildcard.h"

#include <algorithm>

#include "ostrel/platform/crt_text.h"

namespace ostrel_platform {

bool is_pattern(std::u16string_view text) {
    return text.find_first_of(u"*?") != text.npos;
}

Wildcard::Wildcard(std::u16string_view pattern) {
    m_noExtension = pattern == u"*.";
    while (pattern.ends_with(u'.')) {
        pattern.remove_suffix(1);
    }
    m_length = pattern.size();
    m_anything = !m_noExtension && (pattern == u"*" || pattern == u"*.*");
    m_anyExtension = pattern.ends_with(u".*");
    std::transform(pattern.begin(), pattern.end(), m_pattern.begin(),
                   [](WCHAR character) { return towupper(character); });
}

// Advances the states by one character of the name. Returns whether the name can still match.
bool Wildcard::Read(WCHAR character, States *states) const {
    const WCHAR upper = towupper(character);
    bool any = false;
    for (std::size_t i = m_length + 1; i-- > 0;) {
        const bool stays = (*states)[i] && i < m_length && m_pattern[i] == u'*';
        const bool comes =
            i > 0 && (*states)[i - 1] && (m_pattern[i - 1] == u'?' || m_pattern[i - 1] == upper);
        (*states)[i] = stays || comes;
        any |= stays || comes;
    }
    return any;
}

// Adds the states after each part of the pattern that may match no character here.
void Wildcard::Skip(bool atDot, bool atEnd, States *states) const {
    for (std::size_t i = 0; i < m_length; ++i) {
        const WCHAR part = m_pattern[i];
        const bool left_out = part == u'*' || (part == u'?' && (atDot || atEnd)) ||
                              (atEnd && m_anyExtension && i + 2 == m_length);
        (*states)[i + 1] |= left_out && (*states)[i];
    }
}

bool Wildcard::Matches(std::u16string_view name) const {
    if (m_anything) {
        return true;
    }
    if (m_noExtension) {
        return name.find(u'.') == name.npos || name == u"." || name == u"..";
    }
    States states;
    std::fill_n(states.begin(), m_length + 1, false);
    states[0] = true;
    for (const WCHAR character : name) {
        Skip(character == u'.', false, &states);
        if (!Read(character, &states)) {
            return false;
        }
    }
    Skip(false, true, &states);
    return states[m_length];
}

}  // namespace ostrel_platform
