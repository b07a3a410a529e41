#include "ostrel/platform/printf.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>
#include <exception>
#include <limits>
#include <string>
#include <string_view>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/text/charset.h"
#include "ostrel/platform/text/printf_number.h"

namespace ostrel_platform {
namespace {

// The differences between the narrow and the wide functions: the other width, and the conversion of
// text from it.
template <typename Char>
struct Twin;

template <>
struct Twin<char> {
    using Other = WCHAR;
    static constexpr auto kForEachPiece = for_each_narrow_piece;
};

template <>
struct Twin<WCHAR> {
    using Other = char;
    static constexpr auto kForEachPiece = for_each_wide_piece;
};

// Receives the text, stores what fits and counts everything.
template <typename Char>
class Sink {
public:
    Sink(Char *out, std::size_t capacity) : m_begin(out), m_next(out), m_capacity(capacity) {}

    // `Source` is Char, or char for text that is ASCII. A short text, as most are, is copied one by
    // one: a call takes longer, and a wide load would wait for the digits just stored.
    template <typename Source>
    void Put(const Source *text, std::size_t length) {
        const std::size_t stored = Take(length);
        Char *const out = m_next;  // a local copy, which the stores below cannot alias
        if (length <= kShortText || stored <= kShortText) {
            for (std::size_t i = 0; i < stored; ++i) {
                out[i] = static_cast<Char>(text[i]);
                __asm__("" : "+r"(i));  // keeps compilers from making vectors of the loop
            }
        } else if constexpr (sizeof(Source) == sizeof(Char)) {
            std::memcpy(out, text, stored * sizeof(Char));
        } else {
            for (std::size_t i = 0; i < stored; ++i) {
                out[i] = static_cast<Char>(text[i]);
            }
        }
        m_next = out + stored;
    }

    // The same for a text that the caller brought, which lies in the cache as a whole: two blocks,
    // which may overlap, take a short one.
    void PutString(const Char *text, std::size_t length) {
        constexpr std::size_t kBlock = 8;
        if (length < kBlock || length > 2 * kBlock || length > m_capacity) {
            Put(text, length);
            return;
        }
        Char first[kBlock], last[kBlock];
        std::memcpy(first, text, sizeof first);
        std::memcpy(last, text + length - kBlock, sizeof last);
        std::memcpy(m_next, first, sizeof first);
        std::memcpy(m_next + length - kBlock, last, sizeof last);
        m_next += Take(length);
    }

    void Fill(char character, std::uint64_t count) {
        m_next = std::fill_n(m_next, Take(count), static_cast<Char>(character));
    }

    // Writes the NUL behind the text if there is room.
    void Terminate() {
        if (m_capacity > 0) {
            *m_next = Char();
        }
    }

    std::uint64_t Total() const { return static_cast<std::uint64_t>(m_next - m_begin) + m_lost; }

private:
    static constexpr std::size_t kShortText = 16;

    // Uses up capacity for `length` characters. Returns how many fit; the others count as lost.
    std::size_t Take(std::uint64_t length) {
        const auto stored = static_cast<std::size_t>(std::min<std::uint64_t>(length, m_capacity));
        m_capacity -= stored;
        m_lost += length - stored;
        return stored;
    }

    Char *const m_begin;
    Char *m_next;
    std::size_t m_capacity;
    std::uint64_t m_lost = 0;
};

// The conversions before which F is the far modifier.
constexpr std::string_view kFarConversions = "sScCdiouxXpegGfn";

// Reads a number and steps over it. A number above INT_MAX gives INT_MAX + 1, which is more than
// the length of any text.
template <typename Char>
std::int64_t read_number(const Char *&at) {
    std::int64_t number = 0;
    for (; is_digit(*at); ++at) {
        number = std::min<std::int64_t>(number * 10 + (*at - '0'), std::int64_t{INT_MAX} + 1);
    }
    return number;
}

// Reads the modifiers and steps over them. Of modifiers that contradict each other the last counts.
template <typename Char>
const Char *read_modifiers(const Char *at, PrintSize &size) {
    for (;; ++at) {
        switch (*at) {
            case 'h':
                size = size == PrintSize::kShort ? PrintSize::kByte : PrintSize::kShort;
                break;
            case 'l':
                size = size == PrintSize::kLong ? PrintSize::kInt64 : PrintSize::kLong;
                break;
            case 'w':
                size = PrintSize::kLong;
                break;
            case 'I':
                size = PrintSize::kInt64;
                if (at[1] == '6' && at[2] == '4') {
                    at += 2;
                } else if (at[1] == '3' && at[2] == '2') {
                    size = PrintSize::kDefault;
                    at += 2;
                }
                break;
            case 'j':
            case 'z':
            case 't':
                size = PrintSize::kInt64;
                break;
            case 'L':
            case 'N':
                break;
            case 'F':
                if (at[1] == 0 || at[1] > 'z' ||
                    kFarConversions.find(static_cast<char>(at[1])) == std::string_view::npos) {
                    return at;
                }
                break;
            default:
                return at;
        }
    }
}

template <typename Char>
constexpr Char kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};

std::size_t length_within(const char *text, std::size_t limit) {
    return strnlen(text, limit);
}

std::size_t length_within(const WCHAR *text, std::size_t limit) {
    return wcsnlen(text, limit);
}

// Returns the length of a text that need not be terminated within the precision.
template <typename Char>
std::size_t bounded_length(const Char *text, const PrintOptions &options) {
    const std::int64_t limit =
        options.HasPrecision() ? options.precision : std::numeric_limits<std::int64_t>::max();
    return length_within(text, static_cast<std::size_t>(limit));
}

template <typename Char>
class Printer {
public:
    using Other = typename Twin<Char>::Other;

    Printer(Char *buffer, std::size_t count, std::va_list arguments) : m_sink(buffer, count) {
        va_copy(m_arguments, arguments);
    }
    ~Printer() { va_end(m_arguments); }
    Printer(const Printer &) = delete;
    Printer &operator=(const Printer &) = delete;

    // Returns the length of the text. On failure returns -1 and sets errno.
    int Print(const Char *format) {
        try {
            if (format == nullptr || !PrintParts(format)) {
                m_sink.Terminate();
                errno = EINVAL;
                return -1;
            }
        } catch (const std::exception &) {  // no memory for a text of the other width
            m_sink.Terminate();
            errno = ENOMEM;
            return -1;
        }
        if (m_sink.Total() > INT_MAX) {
            errno = EOVERFLOW;
            return -1;
        }
        m_sink.Terminate();
        return static_cast<int>(m_sink.Total());
    }

private:
    // Returns false when the format is not valid.
    bool PrintParts(const Char *format) {
        for (;;) {
            const Char *const run = format;
            while (*format != '%' && *format != 0) {
                ++format;
            }
            m_sink.Put(run, static_cast<std::size_t>(format - run));
            if (*format == 0) {
                return true;
            }
            if (*++format == '%') {
                m_sink.Put(format++, 1);
                continue;
            }
            PrintOptions options;
            format = ReadOptions(format, options);
            if (!Convert(Code(*format++), options)) {  // the NUL at the end is no conversion
                return false;
            }
        }
    }

    static unsigned Code(Char character) { return std::make_unsigned_t<Char>(character); }

    template <typename Value>
    Value Next() {
        return va_arg(m_arguments, Value);
    }

    const Char *ReadOptions(const Char *at, PrintOptions &options) {
        if (*at < 'A') {  // before the letters
            for (unsigned bit; (bit = Code(*at) - ' ') <= '0' - ' ' && (kFlags >> bit & 1); ++at) {
                options.flags |= 1U << bit;
            }
            ReadWidth(at, options);
            ReadPrecision(at, options);
        }
        return read_modifiers(at, options.size);
    }

    void ReadWidth(const Char *&at, PrintOptions &options) {
        if (*at != '*') {
            options.width = read_number(at);
            return;
        }
        ++at;
        options.width = Next<int>();
        if (options.width < 0) {
            options.width = -options.width;
            options.flags |= kLeft;
        }
    }

    void ReadPrecision(const Char *&at, PrintOptions &options) {
        if (*at != '.') {
            return;
        }
        if (*++at != '*') {
            options.precision = read_number(at);
            return;
        }
        ++at;
        options.precision = std::max(Next<int>(), -1);
    }

    bool Convert(unsigned conversion, PrintOptions &options) {
        constexpr bool kWide = sizeof(Char) == sizeof(WCHAR);
        switch (conversion) {
            case 's':
            case 'c':
                PrintText(conversion == 'c', kWide, options);
                return true;
            case 'S':
            case 'C':
                PrintText(conversion == 'C', !kWide, options);
                return true;
            case 'd':
            case 'i':
                PrintSigned(options);
                return true;
            case 'u':
                PrintUnsigned(NextUnsigned(options.size), 'd', options);
                return true;
            case 'o':
            case 'x':
            case 'X':
                PrintUnsigned(NextUnsigned(options.size), conversion, options);
                return true;
            case 'p':
                options.precision = 2 * sizeof(void *);
                options.flags &= ~kAlternate;
                PrintUnsigned(reinterpret_cast<std::uintptr_t>(Next<void *>()), 'X', options);
                return true;
            case 'e':
            case 'f':
            case 'g':
            case 'a':
                PrintDouble(conversion, false, options);
                return true;
            case 'E':
            case 'F':
            case 'G':
            case 'A':
                PrintDouble(conversion - 'A' + 'a', true, options);
                return true;
            case 'n':
                Next<void *>();
                return true;
            default:
                return false;
        }
    }

    std::int64_t NextSigned(PrintSize size) {
        switch (size) {
            case PrintSize::kInt64:
                return Next<std::int64_t>();
            case PrintSize::kShort:
                return static_cast<std::int16_t>(Next<int>());
            case PrintSize::kByte:
                return static_cast<std::int8_t>(Next<int>());
            default:
                return Next<int>();
        }
    }

    std::uint64_t NextUnsigned(PrintSize size) {
        switch (size) {
            case PrintSize::kInt64:
                return Next<std::uint64_t>();
            case PrintSize::kShort:
                return static_cast<std::uint16_t>(Next<unsigned>());
            case PrintSize::kByte:
                return static_cast<std::uint8_t>(Next<unsigned>());
            default:
                return Next<unsigned>();
        }
    }

    void PrintSigned(const PrintOptions &options) {
        const std::int64_t value = NextSigned(options.size);
        const auto bits = static_cast<std::uint64_t>(value);
        char text[kPrefix + kIntegerText];
        PrintedNumber number(text + kPrefix);
        WriteInteger(value < 0 ? 0 - bits : bits, 'd', options, number);
        number.AddSign(value < 0, options);
        PutNumber(number, options, !options.HasPrecision());
    }

    void PrintUnsigned(std::uint64_t value, unsigned conversion, const PrintOptions &options) {
        char text[kPrefix + kIntegerText];
        PrintedNumber number(text + kPrefix);
        WriteInteger(value, conversion, options, number);
        if (options.Has(kAlternate)) {
            if (conversion == 'o' && number.leading_zeros == 0 &&
                (number.digits == number.end || *number.digits != '0')) {
                number.leading_zeros = 1;
            } else if (value != 0 && (conversion | 0x20) == 'x') {
                number.AddPrefix(static_cast<char>(conversion));
                number.AddPrefix('0');
            }
        }
        PutNumber(number, options, !options.HasPrecision());
    }

    static void WriteInteger(std::uint64_t value, unsigned conversion, const PrintOptions &options,
                             PrintedNumber &number) {
        if (value != 0 || options.precision != 0) {
            write_integer(value, conversion, number.begin, number);
        }
        number.leading_zeros =
            std::max<std::int64_t>(options.precision - (number.end - number.digits), 0);
    }

    void PrintDouble(unsigned conversion, bool capital, PrintOptions &options) {
        const double value = Next<double>();
        const auto bits = std::bit_cast<std::uint64_t>(value);
        const bool negative = bits >> 63 != 0;
        const double magnitude = std::bit_cast<double>(bits << 1 >> 1);
        char buffer[kPrefix + kDoubleText];
        char *const text = buffer + kPrefix;
        PrintedNumber number(text);
        if (!is_finite(bits)) {
            const std::string_view name = special_name(bits, capital);
            number.SetDigits(text, std::copy(name.begin(), name.end(), text));
            number.AddSign(negative, options);
            PutNumber(number, options, false);
            return;
        }

        if (!options.HasPrecision()) {
            options.precision = conversion == 'a' ? 13 : 6;
        }
        if (conversion == 'f') {
            write_fixed(magnitude, options, text, number);
        } else if (conversion == 'e') {
            write_scientific(magnitude, capital, options, text, number);
        } else if (conversion == 'g') {
            write_general(magnitude, capital, options, text, number);
        } else {
            write_hexadecimal(magnitude, capital, options, text, number);
        }
        number.AddSign(negative, options);
        PutNumber(number, options, true);
    }

    void PutNumber(const PrintedNumber &number, const PrintOptions &options,
                   bool may_pad_with_zeros) {
        const std::int64_t zeros = number.leading_zeros + number.trailing_zeros;
        const std::int64_t padding = options.width - (number.end - number.begin) - zeros;
        if (padding <= 0 && zeros == 0) {
            Put(number.begin, number.end);
        } else {
            PutInParts(number, options, padding, may_pad_with_zeros);
        }
    }

    void PutInParts(const PrintedNumber &number, const PrintOptions &options, std::int64_t padding,
                    bool may_pad_with_zeros) {
        const bool left = options.Has(kLeft);
        const bool with_zeros = !left && may_pad_with_zeros && options.Has(kZero);
        Fill(' ', left || with_zeros ? 0 : padding);
        Put(number.begin, number.digits);
        Fill('0', number.leading_zeros);
        Fill('0', with_zeros ? padding : 0);
        Put(number.digits, number.exponent);
        Fill('0', number.trailing_zeros);
        Put(number.exponent, number.end);
        Fill(' ', left ? padding : 0);
    }

    void Put(const char *begin, const char *end) {
        m_sink.Put(begin, static_cast<std::size_t>(end - begin));
    }

    void Fill(char character, std::int64_t count) {
        if (count > 0) {
            m_sink.Fill(character, static_cast<std::uint64_t>(count));
        }
    }

    // Prints a string or one character. `wide` applies when no modifier says which width.
    void PrintText(bool single, bool wide, PrintOptions &options) {
        if (options.size == PrintSize::kLong) {
            wide = true;
        } else if (options.size == PrintSize::kShort || options.size == PrintSize::kByte) {
            wide = false;
        }
        if (wide == (sizeof(Char) == sizeof(WCHAR))) {
            PrintText<Char>(single, options);
        } else {
            PrintText<Other>(single, options);
        }
    }

    template <typename Argument>
    void PrintText(bool single, PrintOptions &options) {
        if (single) {
            const auto character = static_cast<Argument>(Next<int>());
            PutText(&character, 1, false, options);
            return;
        }
        const Argument *text = Next<const Argument *>();
        if (text == nullptr) {
            text = kNull<Argument>;
        }
        const std::size_t length = bounded_length(text, options);
        PutText(text, length, static_cast<std::int64_t>(length) == options.precision, options);
    }

    void PutText(const Char *text, std::size_t length, bool /*cut*/, const PrintOptions &options) {
        const std::int64_t padding = options.width - static_cast<std::int64_t>(length);
        PadBefore(padding, options);
        m_sink.PutString(text, length);
        PadBehind(padding, options);
    }

    // ASCII is the same in every system code page; other text goes through the converter. `cut`
    // says that a precision has cut the text. The converter then leaves an incomplete character at
    // the end out instead of replacing it.
    void PutText(const Other *text, std::size_t length, bool cut, const PrintOptions &options) {
        using Unsigned = std::make_unsigned_t<Other>;
        if (std::all_of(text, text + length, [](Other unit) { return Unsigned(unit) < 0x80; })) {
            const std::int64_t padding = options.width - static_cast<std::int64_t>(length);
            PadBefore(padding, options);
            m_sink.Put(text, length);
            PadBehind(padding, options);
            return;
        }
        const int saved_errno = errno;
        const std::basic_string_view<Other> whole(text, length);
        std::int64_t padding = options.width;
        if (padding > 0) {
            Twin<Char>::kForEachPiece(whole, !cut, [&padding](const auto &piece) {
                padding -= static_cast<std::int64_t>(piece.size());
            });
        }
        PadBefore(padding, options);
        Twin<Char>::kForEachPiece(
            whole, !cut, [this](const auto &piece) { m_sink.Put(piece.data(), piece.size()); });
        PadBehind(padding, options);
        errno = saved_errno;
    }

    void PadBefore(std::int64_t padding, const PrintOptions &options) {
        if (!options.Has(kLeft)) {
            Fill(options.Has(kZero) ? '0' : ' ', padding);
        }
    }

    void PadBehind(std::int64_t padding, const PrintOptions &options) {
        if (options.Has(kLeft)) {
            Fill(' ', padding);
        }
    }

    Sink<Char> m_sink;
    std::va_list m_arguments;
};

template <typename Char>
int print(Char *buffer, std::size_t count, const Char *format, std::va_list arguments) {
    if (buffer == nullptr && count != 0) {
        errno = EINVAL;
        return -1;
    }
    const int length = Printer<Char>(buffer, count, arguments).Print(format);
    return length >= 0 && static_cast<std::size_t>(length) <= count ? length : -1;
}

template <typename Char>
int measure(const Char *format, std::va_list arguments) {
    return Printer<Char>(nullptr, 0, arguments).Print(format);
}

}  // namespace
}  // namespace ostrel_platform

int _vsnwprintf(WCHAR *buffer, std::size_t count, const WCHAR *format, std::va_list args) {
    return ostrel_platform::print(buffer, count, format, args);
}

int _vsnprintf(char *buffer, std::size_t count, const char *format, std::va_list args) {
    return ostrel_platform::print(buffer, count, format, args);
}

int _vscwprintf(const WCHAR *format, std::va_list args) {
    return ostrel_platform::measure(format, args);
}

int _vscprintf(const char *format, std::va_list args) {
    return ostrel_platform::measure(format, args);
}
