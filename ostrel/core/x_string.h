#ifndef OSTREL_CORE_X_STRING_H
#define OSTREL_CORE_X_STRING_H

// x_wstring and x_astring: the standard string with what a caller of plain character pointers
// needs.
//
//   - A null pointer is a legal text, the empty one.
//   - A string converts to a character pointer by itself.
//   - Comparison, joining with + and +=, and output to a stream work on terminated text: a NUL
//     inside a string ends it there. So does the conversion to a string view.
//   - Find and replace, trimming, upper case, case-blind comparison, escaping, conversion and
//     printf-style formatting are members.
//
// x_wstring holds UTF-16 code units (WCHAR, 16 bits); lengths and positions count units, and no
// operation knows of surrogate pairs. x_astring holds bytes, in the system code page or in UTF-8 as
// its user decides. The members of the standard string, but not all its constructors and
// assignments, are there as well and treat the string by its full length.
//
//   OS::x_wstring line;
//   line.Format(TEXT("%s, %d items"), name.c_str(), count);
//   line.FindAndReplaceAll(TEXT(", "), TEXT("; "));
//   if (line == TEXT("disk; 4 items")) ...
//
// Ownership: a string copies what it is given. A pointer from it is valid until it changes. An
// argument may lie inside the string that a call changes.
// Threads: as the standard string; a string belongs to one thread at a time, const members may run
// in parallel.
// Errors: std::bad_alloc and std::length_error from whatever grows a string; std::out_of_range
// where a member says so.

#ifdef __cpp_impl_three_way_comparison
#include <compare>
#endif
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "ostrel/core/api.h"
#include "ostrel/platform/types.h"

namespace OS {

// The common root of the twins. It adds no field and no virtual operation to the standard string.
template <class Char, class Traits, class Allocator>
class x_basic_string : public std::basic_string<Char, Traits, Allocator> {
public:
    using std_string = std::basic_string<Char, Traits, Allocator>;
    using typename std_string::const_reference;
    using typename std_string::reference;
    using typename std_string::size_type;

    x_basic_string() = default;
    x_basic_string(const Char *text)
        : std_string(text != nullptr ? std_string(text) : std_string()) {}
    x_basic_string(std_string text) noexcept : std_string(std::move(text)) {}

    operator const Char *() const noexcept { return this->c_str(); }
    operator std::basic_string_view<Char, Traits>() const { return this->c_str(); }

    // As the standard string's, for an index of any integer type: beside the conversion to a
    // pointer, an index that is not a size_type would be ambiguous.
    using std_string::operator[];
    template <class Index, std::enable_if_t<std::is_integral_v<Index>, int> = 0>
    reference operator[](Index index) {
        return std_string::operator[](static_cast<size_type>(index));
    }
    template <class Index, std::enable_if_t<std::is_integral_v<Index>, int> = 0>
    const_reference operator[](Index index) const {
        return std_string::operator[](static_cast<size_type>(index));
    }
};

namespace detail {

// A standard or base-type string beside a Self.
template <class Other, class Self, class StdString>
inline constexpr bool is_base_text =
    std::is_base_of_v<StdString, std::decay_t<Other>> && !std::is_same_v<Self, std::decay_t<Other>>;

// What an x_basic_string is compared with: a character pointer (null too), or a standard string.
template <class Other, class Char, class String, class StdString>
using IfText =
    std::enable_if_t<(std::is_convertible_v<const Other &, const Char *> ||
                      std::is_base_of_v<StdString, Other>)&&!std::is_base_of_v<String, Other>,
                     int>;

template <class Char>
const Char *pointer_to(const Char *text) noexcept {
    return text;
}
template <class Char, class Traits, class Allocator>
const Char *pointer_to(const std::basic_string<Char, Traits, Allocator> &text) noexcept {
    return text.c_str();
}

// Compares terminated texts as unsigned values. Neither may be null.
template <class Char>
int compare(const Char *left, const Char *right) noexcept {
    using Traits = std::char_traits<Char>;
    while (*left == *right && *left != Char()) {
        ++left;
        ++right;
    }
    return Traits::lt(*left, *right) ? -1 : Traits::lt(*right, *left) ? 1 : 0;
}

// Null is equal to nothing.
template <class Char>
bool equal(const Char *left, const Char *right) noexcept {
    return left != nullptr && right != nullptr && compare(left, right) == 0;
}

// Null sorts as the empty text.
template <class Char>
bool less(const Char *left, const Char *right) noexcept {
    const Char empty = Char();
    return compare(left != nullptr ? left : &empty, right != nullptr ? right : &empty) < 0;
}

}  // namespace detail

// The members that the twins share. Self is x_wstring or x_astring.
template <class Self, class Char>
class OSTREL_API x_string_members
    : public x_basic_string<Char, std::char_traits<Char>, std::allocator<Char>> {
public:
    using x_string = x_basic_string<Char, std::char_traits<Char>, std::allocator<Char>>;
    using typename x_string::std_string;

    // "Not found", and "to the end": all bits set.
    static constexpr std::uint64_t npos = ~std::uint64_t{0};

    x_string_members() = default;
    x_string_members(const Char *text) : x_string(text) {}
    // Takes the content of a base-type string, such as the result of a standard operation.
    x_string_members(std_string text) noexcept : x_string(std::move(text)) {}

    // Null gives the empty string. The text may lie inside the string.
    const Self &operator=(const Char *text);

    std::uint64_t GetLength() const noexcept { return this->size(); }
    bool IsEmpty() const noexcept { return this->empty(); }

    // Compares with A-Z taken as a-z (the runtime's _wcsicmp, _stricmp): negative, 0 or positive;
    // -1 for null.
    int CompareNoCase(const Char *text) const noexcept;

    // Append terminated text, or one character. Null appends nothing.
    Self &operator+=(const Self &text) { return *this += text.c_str(); }
    Self &operator+=(const std_string &text) { return *this += text.c_str(); }
    Self &operator+=(const Char *text);
    Self &operator+=(Char character);
    using std_string::append;
    Self &append(const Self &text) { return *this += text.c_str(); }

    // Replaces `count` characters from `position` on by the whole of `text`. A count that runs past
    // the end is cut; a position behind the end raises std::out_of_range.
    using std_string::replace;
    Self &replace(std::uint64_t position, std::uint64_t count, const Self &text);

    // A copy of `count` characters from `position` on, by the same rules.
    Self substr(std::uint64_t position = 0, std::uint64_t count = npos) const;

    // Replaces the first `search` that begins at `start` or behind. Result: the position behind the
    // inserted text, where a next search goes on; npos when there is none (nothing has changed
    // then) and when `start` lies behind the end.
    std::uint64_t FindAndReplace(const x_string &search, const x_string &replacement,
                                 std::uint64_t start = 0);

    // Replaces every `search` from the start on; inserted text is not searched. The time is linear
    // in the length of the text and of the result.
    //
    // x_wstring: replaces all, and the result is true. An empty `search` replaces nothing.
    // x_astring: replaces 4999 at most. The result is true when fewer were found. An empty `search`
    // is found at the start each time: 4999 replacements stand before the text, result false.
    bool FindAndReplaceAll(const x_string &search, const x_string &replacement);

    // Turns a-z into A-Z, up to the first NUL (the runtime's towupper on each unit, toupper on each
    // byte).
    void ToUpper() noexcept;

    // Remove white space at one end. It is 0x09 to 0x0D and the blank, in x_wstring also U+0085 and
    // Unicode's other separators; in x_astring a byte of 0x80 or above is none. When something is
    // removed on the left, and always on the right, what lies behind a NUL goes too.
    void TrimLeft();
    void TrimRight();

    // Prepares the text for mark-up: & becomes &amp; " &quot; < &lt; > &gt; CR &#x0D; LF &#x0A; and
    // in x_wstring ' becomes &#039; as well. What is escaped already is escaped again. In x_astring
    // the first 4999 of each character are replaced and the others stay.
    Self &EscapeSpecialCharacters();

    // Prepares the text for a string literal: a backslash goes in front of each backslash, double
    // quote and apostrophe. In x_astring the first 4999 of each are replaced.
    Self &EscapeSpecialCharactersForCString();

    // Point `target` at a new copy of the terminated text, NUL included: in the same width as it
    // is, in the other one converted from or to the system code page (see ostrel/core/convert.h).
    // The caller releases it with operator delete. When the conversion fails nothing is allocated
    // and `target` keeps its value, so it is set to null before. The last argument is not looked
    // at.
    void TransTo(WCHAR *&target, const char *unused) const;
    void TransTo(char *&target, const char *unused) const;

    // Replaces the content by the text that `format` and the values make, with the conversions of
    // the platform's printf (see ostrel/platform/printf.h): in x_wstring %s and %c take wide text
    // and %S and %C narrow text, in x_astring the other way round; %hs and %ls are always narrow
    // and wide. Text of the other width is converted in the system code page. A value may point
    // into the string.
    //
    // The conversions of the contract are s S c C d i o u x X p e g G f n, with the flags - + 0 #
    // and blank, width, precision, * (not negative), and one of h l L F N before them. Others that
    // the platform knows (%lld, %I64d, %E, %a) print as they do there. Output behind a NUL that a
    // %c produced is lost. A conversion that the platform refuses ends the text there. A text of up
    // to 2048 characters is made, as a rule, without heap memory but that of the string itself.
    // A value that is a string is passed by its c_str(): an object among the values does not
    // compile.
    //
    // `format` must not be null.
    void Format(const Char *format, ...);
    template <class... Values, std::enable_if_t<(std::is_class_v<Values> || ...), int> = 0>
    void Format(const Char *format, const Values &...values) = delete;

    // A copy of the left side with the right side's terminated text behind it. Null is empty text.
    friend Self operator+(const Self &left, const Char *right) { return join(left, right); }
    friend Self operator+(Self &&left, const Char *right) { return std::move(left += right); }
    friend Self operator+(const Self &left, const Self &right) { return left + right.c_str(); }
    friend Self operator+(Self &&left, const Self &right) { return std::move(left += right); }
    friend Self operator+(const Self &left, Char right) {
        const Char text[] = {right, Char()};
        return join(left, text);
    }
    friend Self operator+(Self &&left, Char right) { return std::move(left += right); }
    friend Self operator+(const Char *left, const Self &right) { return Self(left) + right; }
    friend Self operator+(Char left, const Self &right) {
        return Self(std_string(1, left)) + right;
    }
    template <class Other, std::enable_if_t<detail::is_base_text<Other, Self, std_string>, int> = 0>
    friend Self operator+(const Self &left, Other &&right) {
        return left + right.c_str();
    }
    template <class Other, std::enable_if_t<detail::is_base_text<Other, Self, std_string>, int> = 0>
    friend Self operator+(Self &&left, Other &&right) {
        return std::move(left += right.c_str());
    }
    template <class Other, std::enable_if_t<detail::is_base_text<Other, Self, std_string>, int> = 0>
    friend Self operator+(Other &&left, const Self &right) {
        return Self(std_string(std::forward<Other>(left))) + right.c_str();
    }

private:
    static Self join(const std_string &left, const Char *right);
    Self &self() noexcept { return static_cast<Self &>(*this); }
};

class OSTREL_API x_wstring : public x_string_members<x_wstring, WCHAR> {
public:
    using x_string_members::x_string_members;
    x_wstring() = default;
    x_wstring(const x_wstring &) = default;
    x_wstring(x_wstring &&) noexcept = default;

    // Makes blanks and tabs &nbsp; each. The ampersands are not escaped, so EscapeSpecialCharacters
    // is called before.
    x_wstring &EscapeSpecialSpaceAndTab();

    const x_wstring &operator=(const WCHAR *text) { return x_string_members::operator=(text); }
    const x_wstring &operator=(const std_string &text) {
        assign(text);
        return *this;
    }
    const x_wstring &operator=(std_string &&text) noexcept {
        if (this != &text) {
            assign(std::move(text));
        }
        return *this;
    }
    const x_wstring &operator=(const x_wstring &text) {
        assign(text);
        return *this;
    }
    const x_wstring &operator=(x_wstring &&text) noexcept {
        if (this != &text) {
            assign(std::move(text));
        }
        return *this;
    }
};

class OSTREL_API x_astring : public x_string_members<x_astring, char> {
public:
    using x_string_members::x_string_members;
    x_astring() = default;
    x_astring(const x_astring &) = default;
    x_astring(x_astring &&) noexcept = default;

    const x_astring &operator=(const char *text) { return x_string_members::operator=(text); }
    const x_astring &operator=(const std_string &text) {
        assign(text);
        return *this;
    }
    const x_astring &operator=(std_string &&text) noexcept {
        if (this != &text) {
            assign(std::move(text));
        }
        return *this;
    }
    const x_astring &operator=(const x_astring &text) {
        assign(text);
        return *this;
    }
    const x_astring &operator=(x_astring &&text) noexcept {
        if (this != &text) {
            assign(std::move(text));
        }
        return *this;
    }
};

extern template class x_string_members<x_wstring, WCHAR>;
extern template class x_string_members<x_astring, char>;

// The orderings of the library's sets and maps of strings: true when `left` is the greater of the
// two, case ignored. A set runs from Z to A, and texts that differ only in case are one key.
struct OSTREL_API XWSTRICMP {
    bool operator()(const x_wstring &left, const x_wstring &right) const noexcept;
};
struct OSTREL_API XASTRICMP {
    bool operator()(const x_astring &left, const x_astring &right) const noexcept;
};

// Comparison on terminated text: between strings of one class, and with character pointers and
// standard strings on either side. A null pointer is equal to nothing, not to an empty string
// either; in the orders it stands for the empty text.

template <class C, class T, class A>
bool operator==(const x_basic_string<C, T, A> &left, const x_basic_string<C, T, A> &right) {
    return detail::equal(detail::pointer_to<C>(left), detail::pointer_to<C>(right));
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator==(const x_basic_string<C, T, A> &left, const Other &right) {
    return detail::equal(detail::pointer_to<C>(left), detail::pointer_to<C>(right));
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator==(const Other &left, const x_basic_string<C, T, A> &right) {
    return detail::equal(detail::pointer_to<C>(left), detail::pointer_to<C>(right));
}

template <class C, class T, class A>
bool operator!=(const x_basic_string<C, T, A> &left, const x_basic_string<C, T, A> &right) {
    return !(left == right);
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator!=(const x_basic_string<C, T, A> &left, const Other &right) {
    return !(left == right);
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator!=(const Other &left, const x_basic_string<C, T, A> &right) {
    return !(left == right);
}

template <class C, class T, class A>
bool operator<(const x_basic_string<C, T, A> &left, const x_basic_string<C, T, A> &right) {
    return detail::less(detail::pointer_to<C>(left), detail::pointer_to<C>(right));
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator<(const x_basic_string<C, T, A> &left, const Other &right) {
    return detail::less(detail::pointer_to<C>(left), detail::pointer_to<C>(right));
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator<(const Other &left, const x_basic_string<C, T, A> &right) {
    return detail::less(detail::pointer_to<C>(left), detail::pointer_to<C>(right));
}

template <class C, class T, class A>
bool operator>(const x_basic_string<C, T, A> &left, const x_basic_string<C, T, A> &right) {
    return right < left;
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator>(const x_basic_string<C, T, A> &left, const Other &right) {
    return right < left;
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator>(const Other &left, const x_basic_string<C, T, A> &right) {
    return right < left;
}

template <class C, class T, class A>
bool operator<=(const x_basic_string<C, T, A> &left, const x_basic_string<C, T, A> &right) {
    return !(right < left);
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator<=(const x_basic_string<C, T, A> &left, const Other &right) {
    return !(right < left);
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator<=(const Other &left, const x_basic_string<C, T, A> &right) {
    return !(right < left);
}

template <class C, class T, class A>
bool operator>=(const x_basic_string<C, T, A> &left, const x_basic_string<C, T, A> &right) {
    return !(left < right);
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator>=(const x_basic_string<C, T, A> &left, const Other &right) {
    return !(left < right);
}
template <class C, class T, class A, class Other,
          detail::IfText<Other, C, x_basic_string<C, T, A>, std::basic_string<C, T, A>> = 0>
bool operator>=(const Other &left, const x_basic_string<C, T, A> &right) {
    return !(left < right);
}

#ifdef __cpp_impl_three_way_comparison
// The order of pairs and tuples that hold a string.
template <class C, class T, class A>
std::weak_ordering operator<=>(const x_basic_string<C, T, A> &left,
                               const x_basic_string<C, T, A> &right) {
    return detail::compare(left.c_str(), right.c_str()) <=> 0;
}
#endif

// Terminated text to a stream of the same width. 16-bit text to a narrow stream does not compile:
// what would be printed is an address.
template <class C, class T, class A>
std::basic_ostream<C, T> &operator<<(std::basic_ostream<C, T> &out,
                                     const x_basic_string<C, T, A> &text) {
    return out << text.c_str();
}
template <class T>
std::ostream &operator<<(std::ostream &,
                         const x_basic_string<WCHAR, T, std::allocator<WCHAR>> &) = delete;

}  // namespace OS

// Equal strings have equal hashes: by terminated text.
template <>
struct std::hash<OS::x_wstring> {
    std::size_t operator()(const OS::x_wstring &text) const noexcept {
        return std::hash<std::basic_string_view<WCHAR>>()(text.c_str());
    }
};
template <>
struct std::hash<OS::x_astring> {
    std::size_t operator()(const OS::x_astring &text) const noexcept {
        return std::hash<std::string_view>()(text.c_str());
    }
};

#endif  // OSTREL_CORE_X_STRING_H
