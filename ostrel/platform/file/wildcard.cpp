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

// Reads one character of the name. Returns whether the rest of the name can still match.
bool Wildcard::Read(WCHAR character, Places *places) const {
    const WCHAR upper = towupper(character);
    bool any = false;
    for (std::size_t i = m_length + 1; i-- > 0;) {
        const bool stays = (*places)[i] && i < m_length && m_pattern[i] == u'*';
        const bool comes =
            i > 0 && (*places)[i - 1] && (m_pattern[i - 1] == u'?' || m_pattern[i - 1] == upper);
        (*places)[i] = stays || comes;
        any |= stays || comes;
    }
    return any;
}

// Skips the parts of the pattern that match no character here.
void Wildcard::Skip(bool atDot, bool atEnd, Places *places) const {
    for (std::size_t i = 0; i < m_length; ++i) {
        const WCHAR part = m_pattern[i];
        const bool leftOut = part == u'*' || (part == u'?' && (atDot || atEnd)) ||
                             (atEnd && m_anyExtension && i + 2 == m_length);
        (*places)[i + 1] |= leftOut && (*places)[i];
    }
}

bool Wildcard::Matches(std::u16string_view name) const {
    if (m_anything) {
        return true;
    }
    if (m_noExtension) {
        return name.find(u'.') == name.npos || name == u"." || name == u"..";
    }
    Places places;
    std::fill_n(places.begin(), m_length + 1, false);
    places[0] = true;
    for (const WCHAR character : name) {
        Skip(character == u'.', false, &places);
        if (!Read(character, &places)) {
            return false;
        }
    }
    Skip(false, true, &places);
    return places[m_length];
}

}  // namespace ostrel_platform
