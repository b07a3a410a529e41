#include "ostrel/core/x_string.h"

#include <cstdarg>
#include <limits>

#include "ostrel/core/escape.h"
#include "ostrel/core/format.h"
#include "ostrel/core/raw_text.h"
#include "ostrel/core/replace_all.h"
#include "ostrel/platform/crt_text.h"

namespace OS {
namespace {

// The differences between x_wstring and x_astring.
template <class Char>
struct Twin;

template <>
struct Twin<WCHAR> {
    static constexpr std::uint64_t kMaxReplacements = std::numeric_limits<std::uint64_t>::max();
    static constexpr auto kMarkup = detail::EscapeSet::kMarkupApostrophe;

    static int CompareNoCase(const WCHAR *left, const WCHAR *right) {
        return _wcsicmp(left, right);
    }
    static WCHAR ToUpper(WCHAR c) { return towupper(c); }
    static bool IsSpace(WCHAR c) { return iswspace(c) != 0; }
};

template <>
struct Twin<char> {
    static constexpr std::uint64_t kMaxReplacements = 4999;
    static constexpr auto kMarkup = detail::EscapeSet::kMarkup;

    static int CompareNoCase(const char *left, const char *right) { return _stricmp(left, right); }
    static char ToUpper(char c) { return static_cast<char>(c >= 'a' && c <= 'z' ? c - 0x20 : c); }
    static bool IsSpace(char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x80 && iswspace(static_cast<WCHAR>(byte)) != 0;
    }
};

}  // namespace

template <class Self, class Char>
const Self &x_string_members<Self, Char>::operator=(const Char *text) {
    if (text != nullptr) {
        this->assign(text);
    } else {
        this->clear();
    }
    return self();
}

template <class Self, class Char>
int x_string_members<Self, Char>::CompareNoCase(const Char *text) const noexcept {
    return text != nullptr ? Twin<Char>::CompareNoCase(this->c_str(), text) : -1;
}

template <class Self, class Char>
Self &x_string_members<Self, Char>::operator+=(const Char *text) {
    if (text != nullptr) {
        std_string::append(text);
    }
    return self();
}

template <class Self, class Char>
Self &x_string_members<Self, Char>::operator+=(Char character) {
    this->push_back(character);
    return self();
}

template <class Self, class Char>
Self &x_string_members<Self, Char>::replace(std::uint64_t position, std::uint64_t count,
                                            const Self &text) {
    std_string::replace(position, count, text, 0, npos);
    return self();
}

template <class Self, class Char>
Self x_string_members<Self, Char>::substr(std::uint64_t position, std::uint64_t count) const {
    return Self(std_string::substr(position, count));
}

template <class Self, class Char>
std::uint64_t x_string_members<Self, Char>::FindAndReplace(const x_string &search,
                                                           const x_string &replacement,
                                                           std::uint64_t start) {
    const std::uint64_t found = this->find(search, start);
    if (found == npos) {
        return npos;
    }
    const std::uint64_t length = replacement.size();  // read first: it may be this string
    std_string::replace(found, search.size(), replacement);
    return found + length;
}

template <class Self, class Char>
bool x_string_members<Self, Char>::FindAndReplaceAll(const x_string &search,
                                                     const x_string &replacement) {
    constexpr std::uint64_t kLimit = Twin<Char>::kMaxReplacements;
    constexpr bool kBounded = kLimit != std::numeric_limits<std::uint64_t>::max();
    if (search.empty()) {
        if (kBounded) {
            std_string front;
            for (std::uint64_t i = 0; i < kLimit; ++i) {
                front += replacement;
            }
            this->insert(0, front);
        }
        return !kBounded;
    }
    const std::uint64_t count = detail::replace_all(
        this, {search.data(), search.size()}, {replacement.data(), replacement.size()}, kLimit);
    return !kBounded || count < kLimit;
}

template <class Self, class Char>
void x_string_members<Self, Char>::ToUpper() noexcept {
    for (Char *at = this->data(); *at != 0; ++at) {
        *at = Twin<Char>::ToUpper(*at);
    }
}

template <class Self, class Char>
void x_string_members<Self, Char>::TrimLeft() {
    const Char *const begin = this->c_str();
    const Char *at = begin;
    while (Twin<Char>::IsSpace(*at)) {
        ++at;
    }
    if (at != begin) {
        this->erase(0, static_cast<std::size_t>(at - begin));
        this->resize(std::char_traits<Char>::length(this->c_str()));
    }
}

template <class Self, class Char>
void x_string_members<Self, Char>::TrimRight() {
    std::size_t length = this->size();
    while (length > 0 && Twin<Char>::IsSpace((*this)[length - 1])) {
        --length;
    }
    this->resize(length);
    this->resize(std::char_traits<Char>::length(this->c_str()));
}

template <class Self, class Char>
Self &x_string_members<Self, Char>::EscapeSpecialCharacters() {
    detail::escape(this, Twin<Char>::kMarkup, Twin<Char>::kMaxReplacements);
    return self();
}

template <class Self, class Char>
Self &x_string_members<Self, Char>::EscapeSpecialCharactersForCString() {
    detail::escape(this, detail::EscapeSet::kCString, Twin<Char>::kMaxReplacements);
    return self();
}

x_wstring &x_wstring::EscapeSpecialSpaceAndTab() {
    detail::escape(this, detail::EscapeSet::kMarkupBlanks, Twin<WCHAR>::kMaxReplacements);
    return *this;
}

template <class Self, class Char>
void x_string_members<Self, Char>::TransTo(WCHAR *&target, const char *) const {
    detail::new_text(this->c_str(), &target);
}

template <class Self, class Char>
void x_string_members<Self, Char>::TransTo(char *&target, const char *) const {
    detail::new_text(this->c_str(), &target);
}

template <class Self, class Char>
void x_string_members<Self, Char>::Format(const Char *format, ...) {
    struct Lists {
        std::va_list to_measure;
        std::va_list to_print;

        ~Lists() {
            va_end(to_print);
            va_end(to_measure);
        }
    } lists;
    va_start(lists.to_measure, format);
    va_start(lists.to_print, format);
    detail::format_text(this, format, &lists.to_measure, &lists.to_print);
}

template <class Self, class Char>
Self x_string_members<Self, Char>::join(const std_string &left, const Char *right) {
    const std::size_t length = right != nullptr ? std::char_traits<Char>::length(right) : 0;
    Self joined;
    joined.reserve(left.size() + length);
    static_cast<std_string &>(joined).append(left);
    static_cast<std_string &>(joined).append(right, length);
    return joined;
}

template class x_string_members<x_wstring, WCHAR>;
template class x_string_members<x_astring, char>;

bool XWSTRICMP::operator()(const x_wstring &left, const x_wstring &right) const noexcept {
    return _wcsicmp(left.c_str(), right.c_str()) > 0;
}

bool XASTRICMP::operator()(const x_astring &left, const x_astring &right) const noexcept {
    return _stricmp(left.c_str(), right.c_str()) > 0;
}

}  // namespace OS
