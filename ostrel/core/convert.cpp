#include "ostrel/core/convert.h"

#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "ostrel/core/raw_text.h"
#include "ostrel/core/text_length.h"
#include "ostrel/platform/codepage.h"

namespace OS {
namespace {

// The platform's call on the first `length` characters of a text, or, with -1, on the text and its
// NUL, by the width of the target.
int convert(unsigned code_page, const char *text, int length, WCHAR *target, int capacity) {
    return MultiByteToWideChar(code_page, 0, text, length, target, capacity);
}
int convert(unsigned code_page, const WCHAR *text, int length, char *target, int capacity) {
    return WideCharToMultiByte(code_page, 0, text, length, target, capacity, nullptr, nullptr);
}

// Converts a terminated text in two calls: the first asks for the size. Each call asks for the
// system code page anew. Returns nothing when the platform refuses.
template <class To, class From>
std::basic_string<To> converted_in_system_page(const From *text) {
    std::basic_string<To> result;
    const int needed = convert(GetACP(), text, -1, static_cast<To *>(nullptr), 0);
    if (needed > 0) {
        result.resize(static_cast<std::size_t>(needed));
        const int stored = convert(GetACP(), text, -1, result.data(), needed);
        result.resize(stored > 0 ? detail::text_length(result.c_str()) : 0);
    }
    return result;
}

// A piece of a text that is converted in one call: small enough for the stack and the first cache.
constexpr std::size_t kPiece = 4096;

// Returns the length of the next piece of a text, which is kPiece at most and ends between two
// characters. 0 is the end of the text.
std::size_t piece_length(const char *text) {
    const std::size_t length = detail::text_length_within(text, kPiece);
    const auto continues = [text](std::size_t at) {
        return (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
    };
    if (length < kPiece) {
        return length;
    }
    for (std::size_t end = length; end > length - 4; --end) {
        if (!continues(end)) {
            return end;
        }
    }
    return length;  // four continuation bytes in a row: no character goes on behind the piece
}

std::size_t piece_length(const WCHAR *text) {
    const std::size_t length = detail::text_length_within(text, kPiece);
    const bool cuts_pair = length == kPiece && (text[length - 1] & 0xFC00) == 0xD800;
    return cuts_pair ? length - 1 : length;
}

// Converts a string, up to its first NUL, between UTF-8 and UTF-16 in one pass. Returns nothing
// when the platform refuses a piece. The first piece tells how long the result will be.
template <class To, class From>
std::basic_string<To> converted_in_utf8(const std::basic_string<From> &source) {
    To buffer[3 * kPiece];  // a unit becomes three bytes at most
    std::basic_string<To> result;
    const From *text = source.c_str();
    while (const std::size_t length = piece_length(text)) {
        const int count = convert(CP_UTF8, text, static_cast<int>(length), buffer,
                                  static_cast<int>(std::size(buffer)));
        if (count <= 0) {
            result.clear();
            break;
        }
        const auto stored = static_cast<std::size_t>(count);
        if (text == source.c_str() && length < source.size()) {
            const std::size_t whole = detail::text_length_within(text, source.size());
            result.reserve(whole / length * stored + stored);
        }
        result.append(buffer, stored);
        text += length;
    }
    return result;
}

template <class Char>
void copy_to_new(const Char *text, Char **target) {
    const std::size_t size = (detail::text_length(text) + 1) * sizeof(Char);
    *target = static_cast<Char *>(std::memcpy(::operator new(size), text, size));
}

template <class From, class To>
void convert_to_new(const From *text, To **target) {
    const int needed = convert(GetACP(), text, -1, static_cast<To *>(nullptr), 0);
    if (needed > 0) {
        const auto release = [](To *copy) { ::operator delete(copy); };
        std::unique_ptr<To, decltype(release)> copy(
            static_cast<To *>(::operator new(static_cast<std::size_t>(needed) * sizeof(To))),
            release);
        if (convert(GetACP(), text, -1, copy.get(), needed) > 0) {
            *target = copy.release();
        }
    }
}

}  // namespace

namespace detail {

void new_text(const WCHAR *text, WCHAR **target) {
    copy_to_new(text, target);
}
void new_text(const WCHAR *text, char **target) {
    convert_to_new(text, target);
}
void new_text(const char *text, WCHAR **target) {
    convert_to_new(text, target);
}
void new_text(const char *text, char **target) {
    copy_to_new(text, target);
}

}  // namespace detail

x_wstring CharToWChar(const x_astring &text, const char *) {
    return converted_in_system_page<WCHAR>(text.c_str());
}

x_astring WCharToChar(const x_wstring &text, const char *) {
    return converted_in_system_page<char>(text.c_str());
}

x_astring WCharToUTF8Char(const x_wstring &text, const char *) {
    return converted_in_utf8<char, WCHAR>(text);
}

x_wstring UTF8CharToWChar(const x_astring &text, const char *) {
    return converted_in_utf8<WCHAR, char>(text);
}

x_astring CharToUTF8Char(const x_astring &text, const char *unused) {
    return WCharToUTF8Char(CharToWChar(text, unused), unused);
}

}  // namespace OS
