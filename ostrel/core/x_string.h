#ifndef OSTREL_CORE_X_STRING_H
#define OSTREL_CORE_X_STRING_H

// x_wstring and x_astring are standard strings for callers of plain character pointers.
//
//   - A null pointer is a legal text: the empty text, unless a comment says otherwise.
//   - A string converts implicitly to a pointer to its terminated text.
//   - Comparison, +=, the right operand of +, output to a stream, hashing and the conversion to a
//     string view use terminated text: the first NUL ends the text there.
//   - Members find and replace, trim, turn to upper case, compare without case, escape, convert and
//     format as printf does.
//
// x_wstring holds UTF-16 code units (WCHAR, 16 bits). Lengths and positions count units, and no
// operation treats surrogate pairs specially. x_astring holds bytes, in the system code page or in
// UTF-8; the caller decides which. The members of the standard string are available too, except
// for some constructors and assignments. These members use the full length, NULs included.
//
//   OS::x_wstring line;
//   line.Format(TEXT("%s, %d items"), name.c_str(), count);
//   line.FindAndReplaceAll(TEXT(", "), TEXT("; "));
//   if (line == TEXT("disk; 4 items")) ...
//
// Ownership: a string copies its arguments. A pointer into a string is valid until the string
// changes. An argument may lie inside the string that the call changes.
// Threads: as the standard string. One thread at a time may change a string; const members may run
// in parallel.
// Errors: a call that grows or builds a string throws std::bad_alloc when memory is short and
// std::length_error when the text would exceed max_size(). Members that throw std::out_of_range
// say so. When a member declared here throws, the string is unchanged.

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

// The common base of x_wstring and x_astring. Adds no field and no virtual function to the standard
// string.
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

    // Returns the terminated text, never null.
    operator const Char *() const noexcept { return this->c_str(); }
    operator std::basic_string_view<Char, Traits>() const { return this->c_str(); }

    // Returns the character at `index`, unchecked. The overloads take any integer type, which would
    // otherwise be ambiguous with the conversion to a pointer.
    using std_string::operator[];
    template <class Index, std::enable_if_t<std::is_integral_v<Index>, int> = 0>
    reference operator[](Index index) {
        return std_string::operator[](static_cast<size_type>(index));
    }
    template <class Index, std::enable_if_t<std::is_integral_v<Index>, int> = 0>
    const_reference operator[](Index index) const {
        return std_string::operator[](static_cast<size_type>(index));
    }

    // Return whether the string begins with, ends with or contains `text`, by the full length of
    // both. The standard's own overloads (a character, pointer or view) would be ambiguous for a
    // string of this class. Present where the standard string has the members.
#ifdef __cpp_lib_starts_ends_with
    using std_string::ends_with;
    using std_string::starts_with;
    bool starts_with(const std_string &text) const noexcept {
        return this->size() >= text.size() &&
               Traits::compare(this->data(), text.data(), text.size()) == 0;
    }
    bool ends_with(const std_string &text) const noexcept {
        return this->size() >= text.size() &&
               Traits::compare(this->data() + (this->size() - text.size()), text.data(),
                               text.size()) == 0;
    }
#endif
#ifdef __cpp_lib_string_contains
    using std_string::contains;
    bool contains(const std_string &text) const noexcept {
        return this->find(text) != std_string::npos;
    }
#endif
};

namespace detail {

// True for a standard string or a base type of Self, false for Self.
template <class Other, class Self, class StdString>
inline constexpr bool is_base_text =
    std::is_base_of_v<StdString, std::decay_t<Other>> && !std::is_same_v<Self, std::decay_t<Other>>;

// True for a wide character type that is not Char.
template <class Other, class Char>
inline constexpr bool is_foreign_character =
    !std::is_same_v<Other, Char> &&
    (std::is_same_v<Other, wchar_t> || std::is_same_v<Other, char16_t> ||
     std::is_same_v<Other, char32_t>);

// True for an integer that + takes for an offset.
template <class Other, class Char>
inline constexpr bool is_offset =
    std::is_integral_v<Other> && !std::is_same_v<Other, Char> && !is_foreign_character<Other, Char>;

// Enables a comparison of an x_basic_string with a character pointer, which may be null, or with a
// standard string.
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

// Compares terminated texts by unsigned character values. Returns -1, 0 or 1. Neither text may be
// null.
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

// The members that x_wstring and x_astring share. Self is one of the two.
template <class Self, class Char>
class OSTREL_API x_string_members
    : public x_basic_string<Char, std::char_traits<Char>, std::allocator<Char>> {
public:
    using x_string = x_basic_string<Char, std::char_traits<Char>, std::allocator<Char>>;
    using typename x_string::std_string;

    // "Not found" as a result, "to the end" as a count: all bits set.
    static constexpr std::uint64_t npos = ~std::uint64_t{0};

    x_string_members() = default;
    x_string_members(const Char *text) : x_string(text) {}
    // Takes over the full content of a standard or base-type string, such as the result of a
    // standard operation.
    x_string_members(std_string text) noexcept : x_string(std::move(text)) {}

    // Replaces the content by a copy of `text`. Null makes the string empty. `text` may lie inside
    // the string.
    const Self &operator=(const Char *text);

    // Returns the full length in characters, NULs inside the string included.
    std::uint64_t GetLength() const noexcept { return this->size(); }
    bool IsEmpty() const noexcept { return this->empty(); }

    // Compares terminated texts with A-Z taken as a-z (the runtime's _wcsicmp, _stricmp). Returns a
    // negative value, 0 or a positive value. Returns -1 when `text` is null.
    int CompareNoCase(const Char *text) const noexcept;

    // Append terminated text, or one character, which may be NUL. Null appends nothing. Return the
    // string.
    Self &operator+=(const Self &text) { return *this += text.c_str(); }
    Self &operator+=(const std_string &text) { return *this += text.c_str(); }
    Self &operator+=(const Char *text);
    Self &operator+=(Char character);
    using std_string::append;
    Self &append(const Self &text) { return *this += text.c_str(); }

    // Replaces `count` characters from `position` on by the whole of `text`, NULs included. A count
    // that reaches past the end stops at the end. Returns the string. Throws std::out_of_range when
    // `position` is greater than the length.
    using std_string::replace;
    Self &replace(std::uint64_t position, std::uint64_t count, const Self &text);

    // Returns a copy of `count` characters from `position` on. A count that reaches past the end
    // stops at the end. Throws std::out_of_range when `position` is greater than the length.
    Self substr(std::uint64_t position = 0, std::uint64_t count = npos) const;

    // Replaces the first occurrence of `search` that begins at or after `start`. Returns the
    // position after the inserted text, from which the next search can continue. Returns npos and
    // changes nothing when there is no occurrence or when `start` is greater than the length. An
    // empty `search` occurs at `start`.
    std::uint64_t FindAndReplace(const x_string &search, const x_string &replacement,
                                 std::uint64_t start = 0);

    // Replaces the occurrences of `search` from left to right and does not search inserted text.
    // The time is linear in the length of the text and of the result.
    //
    // x_wstring: replaces all occurrences and returns true. An empty `search` replaces nothing.
    // x_astring: replaces at most 4999 occurrences. Returns true when it replaced fewer than 4999,
    // none included. Returns false when it replaced 4999, even if no more occur. An empty `search`
    // inserts `replacement` 4999 times in front of the text and returns false.
    bool FindAndReplaceAll(const x_string &search, const x_string &replacement);

    // Turns a-z into A-Z in place, up to the first NUL, and changes nothing else. The program's
    // locale has no effect, as in CompareNoCase: two texts that are equal without case stay so.
    void ToUpper() noexcept;

    // Remove white space at one end: 0x09 to 0x0D and the blank, in x_wstring also U+0085 and
    // Unicode's separators (general category Z). In x_astring a byte of 0x80 or above is not white
    // space. Neither call throws.
    //
    // A string with a NUL inside: TrimLeft cuts it at the first NUL if it removed white space.
    // TrimRight removes white space at the end of the full length, then cuts at the first NUL, so
    // white space in front of that NUL stays.
    void TrimLeft();
    void TrimRight();

    // Escapes the text for mark-up: & becomes &amp; " &quot; < &lt; > &gt; CR &#x0D; LF &#x0A; and
    // in x_wstring ' becomes &#039; as well. An escape that the text already holds is escaped
    // again. x_astring replaces the first 4999 of each character; the others stay. Returns the
    // string.
    Self &EscapeSpecialCharacters();

    // Escapes the text for a string literal: puts a backslash in front of each backslash, double
    // quote and apostrophe. x_astring does so for the first 4999 of each character. Returns the
    // string.
    Self &EscapeSpecialCharactersForCString();

    // Point `target` at a new copy of the terminated text, its NUL included. Text for a target of
    // the other width is converted from or to the system code page (see ostrel/core/convert.h). The
    // caller releases the copy with operator delete; the old value of `target` is not released.
    //
    // When the platform refuses the conversion, the call leaves `target` as it was and sets the
    // last error: set `target` to null before the call. The call leaves `target` as it was when it
    // throws std::bad_alloc too. The last argument is ignored and may be null.
    void TransTo(WCHAR *&target, const char *unused) const;
    void TransTo(char *&target, const char *unused) const;

    // Replaces the content by formatted text, with the conversions of the platform's printf (see
    // ostrel/platform/printf.h). In x_wstring %s and %c take wide text and %S and %C narrow text;
    // in x_astring %s and %c take narrow text and %S and %C wide text. %hs is always narrow, %ls
    // always wide. Text of the other width is converted in the system code page. A null string
    // prints as "(null)".
    //
    // `format` must not be null. `format` and the values may point into the string. Pass a string
    // by its c_str(): an object of class type among the values does not compile.
    //
    // The guaranteed conversions are s S c C d i o u x X p e g G f n, with the flags - + 0 # and
    // blank, a width, a precision, * (not negative), and one of h l L F N in front. Other
    // conversions and modifiers that the platform knows (%lld, %I64d, %E, %a) print as they do
    // there.
    //
    // Reports no error for a bad format: a conversion that the platform refuses ends the text in
    // front of that conversion. A NUL that %c prints ends the text too. Throws std::bad_alloc when
    // memory is short and std::length_error for a text of more than 2147483647 characters; the
    // content is unchanged then. Leaves errno as it was. A text of up to 2048 characters usually
    // needs no heap memory except that of the string.
    void Format(const Char *format, ...);
    template <class... Values, std::enable_if_t<(std::is_class_v<Values> || ...), int> = 0>
    void Format(const Char *format, const Values &...values) = delete;

    // Return a copy of the left operand, at its full length, followed by the right operand: one
    // character of the string's own type, or the terminated text of a string or pointer. A null
    // pointer counts as empty text.
    friend Self operator+(const Self &left, const Char *right) { return join(left, right); }
    friend Self operator+(Self &&left, const Char *right) { return std::move(left += right); }
    friend Self operator+(const Self &left, const Self &right) { return left + right.c_str(); }
    friend Self operator+(Self &&left, const Self &right) { return std::move(left += right); }
    friend Self operator+(const Char *left, const Self &right) { return Self(left) + right; }
    template <class Other, std::enable_if_t<std::is_same_v<Other, Char>, int> = 0>
    friend Self operator+(const Self &left, Other right) {
        const Char text[] = {right, Char()};
        return join(left, text);
    }
    template <class Other, std::enable_if_t<std::is_same_v<Other, Char>, int> = 0>
    friend Self operator+(Self &&left, Other right) {
        return std::move(left += right);
    }
    template <class Other, std::enable_if_t<std::is_same_v<Other, Char>, int> = 0>
    friend Self operator+(Other left, const Self &right) {
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

    // Return a pointer to the character at `offset`, unchecked: an integer beside a string is
    // pointer arithmetic, as beside a plain character pointer. The pointer is valid until the
    // string changes. The constants 0 and NULL are the offset 0, and a string made from that
    // pointer is a copy; nullptr is a null pointer. A character of another wide type, such as
    // L'x', does not compile.
    template <class Offset, std::enable_if_t<detail::is_offset<Offset, Char>, int> = 0>
    friend const Char *operator+(const Self &text, Offset offset) noexcept {
        return text.c_str() + offset;
    }
    template <class Offset, std::enable_if_t<detail::is_offset<Offset, Char>, int> = 0>
    friend const Char *operator+(Offset offset, const Self &text) noexcept {
        return text.c_str() + offset;
    }
    template <class Other>
    friend std::enable_if_t<detail::is_foreign_character<Other, Char>> operator+(const Self &,
                                                                                 Other) = delete;
    template <class Other>
    friend std::enable_if_t<detail::is_foreign_character<Other, Char>> operator+(
        Other, const Self &) = delete;

private:
    static Self join(const std_string &left, const Char *right);
    Self &self() noexcept { return static_cast<Self &>(*this); }
};

// A string of UTF-16 code units.
class OSTREL_API x_wstring : public x_string_members<x_wstring, WCHAR> {
public:
    using x_string_members::x_string_members;
    x_wstring() = default;
    x_wstring(const x_wstring &) = default;
    x_wstring(x_wstring &&) noexcept = default;

    // Replaces each blank and each tab by &nbsp; and returns the string. Call
    // EscapeSpecialCharacters before, not after: it would escape the ampersands of &nbsp; again.
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

// A string of bytes.
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

// The orderings of the library's sets of strings. Return true when the terminated text of `left` is
// greater than that of `right`, with A-Z taken as a-z. A set therefore runs from Z to A, and texts
// that differ only in case are one key.
struct OSTREL_API XWSTRICMP {
    bool operator()(const x_wstring &left, const x_wstring &right) const noexcept;
};
struct OSTREL_API XASTRICMP {
    bool operator()(const x_astring &left, const x_astring &right) const noexcept;
};

// Compare terminated texts by unsigned character values: two strings of one class, or a string and
// a character pointer or standard string on either side. == is false and != is true for a null
// pointer, beside an empty string too. <, >, <= and >= take a null pointer as the empty text.

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
// Orders terminated texts; pairs and tuples that hold a string need this operator in C++20.
template <class C, class T, class A>
std::weak_ordering operator<=>(const x_basic_string<C, T, A> &left,
                               const x_basic_string<C, T, A> &right) {
    return detail::compare(left.c_str(), right.c_str()) <=> 0;
}
#endif

// Writes the terminated text to a stream of the same width. Writing 16-bit text to a narrow stream
// does not compile, because the stream would print an address.
template <class C, class T, class A>
std::basic_ostream<C, T> &operator<<(std::basic_ostream<C, T> &out,
                                     const x_basic_string<C, T, A> &text) {
    return out << text.c_str();
}
template <class T>
std::ostream &operator<<(std::ostream &,
                         const x_basic_string<WCHAR, T, std::allocator<WCHAR>> &) = delete;

}  // namespace OS

// Hash the terminated text, so that equal strings have equal hashes.
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
