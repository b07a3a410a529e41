#include "ostrel/platform/printf.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include "ostrel/platform/charset.h"

namespace platform {
namespace {

// What differs between the narrow and the wide functions: the other width, and how its text is
// converted. `cut` says that the text may go on behind its end, where a precision cut it: half a
// character there is left out, not replaced.
template <typename Char>
struct Twin;

template <>
struct Twin<char> {
    using Other = WCHAR;

    static std::string Convert(std::u16string_view text, bool cut) {
        if (cut && !text.empty() && (text.back() & 0xFC00) == 0xD800) {
            text.remove_suffix(1);
        }
        return to_narrow(text);
    }
};

template <>
struct Twin<WCHAR> {
    using Other = char;

    static std::u16string Convert(std::string_view text, bool cut) {
        std::u16string units(StreamDecoder::Capacity(text.size()), u'\0');
        StreamDecoder decoder(system_code_page());
        units.resize(decoder.Decode(text.data(), text.size(), !cut, units.data()));
        return units;
    }
};

// Takes the text: stores what fits and counts everything.
template <typename Char>
class Sink {
public:
    Sink(Char *out, std::size_t capacity) : m_begin(out), m_next(out), m_room(capacity) {}

    // `Source` is Char, or char for text that is ASCII. A short text, as most are, is copied by the
    // loop: a call would take longer.
    template <typename Source>
    void Put(const Source *text, std::size_t length) {
        const std::size_t stored = Take(length);
        Char *const out = m_next;  // a copy, which the stores below cannot change
        if (sizeof(Source) == sizeof(Char) && stored > kShortText) {
            std::memcpy(out, text, stored * sizeof(Char));
        } else {
            for (std::size_t i = 0; i < stored; ++i) {
                out[i] = static_cast<Char>(text[i]);
            }
        }
        m_next = out + stored;
    }

    void Fill(char character, std::uint64_t count) {
        m_next = std::fill_n(m_next, Take(count), static_cast<Char>(character));
    }

    // Writes the NUL behind the text if there is room.
    void Terminate() {
        if (m_room > 0) {
            *m_next = Char();
        }
    }

    std::uint64_t Total() const { return static_cast<std::uint64_t>(m_next - m_begin) + m_lost; }

private:
    static constexpr std::size_t kShortText = 16;

    // Takes room for `length` characters. Result: how many fit; the others count as lost.
    std::size_t Take(std::uint64_t length) {
        const auto stored = static_cast<std::size_t>(std::min<std::uint64_t>(length, m_room));
        m_room -= stored;
        m_lost += length - stored;
        return stored;
    }

    Char *const m_begin;
    Char *m_next;
    std::size_t m_room;
    std::uint64_t m_lost = 0;
};

// A flag's bit is its distance from the blank: to recognise one takes a subtraction and a shift.
constexpr unsigned flag_bit(char flag) {
    return 1U << (flag - ' ');
}

constexpr unsigned kBlank = flag_bit(' ');
constexpr unsigned kAlternate = flag_bit('#');
constexpr unsigned kPlus = flag_bit('+');
constexpr unsigned kLeft = flag_bit('-');
constexpr unsigned kZero = flag_bit('0');
constexpr unsigned kFlags = kBlank | kAlternate | kPlus | kLeft | kZero;

enum class Size { kDefault, kByte, kShort, kLong, kInt64 };

// What stands between the % and the letter of a conversion.
struct Options {
    unsigned flags = 0;
    Size size = Size::kDefault;
    std::int64_t width = 0;
    std::int64_t precision = -1;  // -1: none

    bool Has(unsigned flag) const { return (flags & flag) != 0; }
    bool HasPrecision() const { return precision >= 0; }
};

// The conversions before which F is the far modifier.
constexpr std::string_view kFarConversions = "sScCdiouxXpegGfn";

template <typename Char>
constexpr bool is_digit(Char character) {
    return character >= '0' && character <= '9';
}

// Steps over a number. What is larger than any text may be long stays just that large.
template <typename Char>
std::int64_t read_number(const Char *&at) {
    std::int64_t number = 0;
    for (; is_digit(*at); ++at) {
        number = std::min<std::int64_t>(number * 10 + (*at - '0'), std::int64_t{INT_MAX} + 1);
    }
    return number;
}

// Steps over the modifiers; of several that contradict each other the last counts.
template <typename Char>
const Char *read_modifiers(const Char *at, Size &size) {
    for (;; ++at) {
        switch (*at) {
            case 'h':
                size = size == Size::kShort ? Size::kByte : Size::kShort;
                break;
            case 'l':
                size = size == Size::kLong ? Size::kInt64 : Size::kLong;
                break;
            case 'w':
                size = Size::kLong;
                break;
            case 'I':
                size = Size::kInt64;
                if (at[1] == '6' && at[2] == '4') {
                    at += 2;
                } else if (at[1] == '3' && at[2] == '2') {
                    size = Size::kDefault;
                    at += 2;
                }
                break;
            case 'j':
            case 'z':
            case 't':
                size = Size::kInt64;
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

// A printed number. Its characters stand in one piece, [begin, end); what may have to be put
// between them is said by number: zeros before the digits, where padding with zeros goes too, and
// zeros before the exponent.
struct Number {
    explicit Number(char *text) : begin(text), digits(text), exponent(text), end(text) {}

    char *begin;
    char *digits;
    char *exponent;
    char *end;
    std::int64_t leading_zeros = 0;
    std::int64_t trailing_zeros = 0;

    // `from` is where there is room for a prefix.
    void SetDigits(char *from, char *to) {
        begin = digits = from;
        exponent = end = to;
    }

    void SetExponent(const char *text, std::size_t length) {
        std::memmove(exponent, text, length);
        end = exponent + length;
    }

    void AddPrefix(char character) { *--begin = character; }

    void AddSign(bool negative, const Options &options) {
        if (negative) {
            AddPrefix('-');
        } else if (options.Has(kPlus)) {
            AddPrefix('+');
        } else if (options.Has(kBlank)) {
            AddPrefix(' ');
        }
    }
};

constexpr std::size_t kPrefix = 3;  // a sign, 0x
constexpr char kLowerDigits[] = "0123456789abcdef";
constexpr char kUpperDigits[] = "0123456789ABCDEF";

// The digits of an unsigned 64-bit number, in octal at most.
constexpr std::size_t kIntegerText = 22;

void write_integer(std::uint64_t value, unsigned conversion, char *text, Number &number) {
    if (conversion == 'd') {
        number.SetDigits(text, std::to_chars(text, text + kIntegerText, value).ptr);
        return;
    }
    const int bits = conversion == 'o' ? 3 : 4;
    const char *const digits = conversion == 'X' ? kUpperDigits : kLowerDigits;
    char *first = text + kIntegerText;
    do {
        *--first = digits[value & ((1U << bits) - 1)];
        value >>= bits;
    } while (value != 0);
    number.SetDigits(first, text + kIntegerText);
}

// A double has at most 309 digits before the point, 1074 decimals that are not zero, and 767 digits
// between the first and the last one that is not zero. What a precision asks beyond is zeros.
constexpr std::int64_t kMostDecimals = 1074;
constexpr std::int64_t kMostDigits = 767;
constexpr std::size_t kDoubleText = 309 + 1 + kMostDecimals + 1;

char *text_end(char *text) {
    return text + kDoubleText;
}

constexpr unsigned kMantissaBits = 52;
constexpr std::uint64_t kMantissaMask = (std::uint64_t{1} << kMantissaBits) - 1;
constexpr int kExponentMask = 0x7FF;

// A finite double that is not negative: mantissa * 2^exponent.
struct Binary {
    explicit Binary(double value) {
        const auto bits = std::bit_cast<std::uint64_t>(value);
        const int biased = static_cast<int>(bits >> kMantissaBits) & kExponentMask;
        mantissa = (bits & kMantissaMask) | (std::uint64_t{biased != 0} << kMantissaBits);
        exponent = std::max(biased, 1) - 1075;
    }

    std::uint64_t mantissa;
    int exponent;
};

__extension__ using Uint128 = unsigned __int128;

constexpr int kShortDecimals = 17;
constexpr auto kPowersOf10 = [] {
    std::array<std::uint64_t, kShortDecimals + 1> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) {
        powers[i] = powers[i - 1] * 10;
    }
    return powers;
}();

// Whether write_short_fixed is for this value; most are of this size.
bool is_short(double value, int decimals) {
    return decimals <= kShortDecimals && value < 0x1p52 && (value >= 0x1p-12 || value == 0);
}

// Writes such a value in integer arithmetic, which is exact: it is mantissa / 2^shift with a shift
// of 1 to 64 (of any for 0), so that what is behind the point is a whole number of 2^-64. Times a
// power of ten below 2^64 this has 128 bits: the decimals above, and below the rest that decides
// the rounding.
char *write_short_fixed(double value, int decimals, char *text) {
    const Binary binary(value);
    const int shift = std::min(-binary.exponent, 64);
    const std::uint64_t scale = kPowersOf10[static_cast<std::size_t>(decimals)];
    std::uint64_t whole = binary.mantissa >> 1 >> (shift - 1);
    const Uint128 product = Uint128{binary.mantissa << (64 - shift)} * scale;
    auto fraction = static_cast<std::uint64_t>(product >> 64);

    constexpr std::uint64_t kHalf = std::uint64_t{1} << 63;
    const auto rest = static_cast<std::uint64_t>(product);
    const std::uint64_t odd = (decimals == 0 ? whole : fraction) & 1;
    if (rest > kHalf - odd) {
        ++fraction;
    }
    if (fraction == scale) {
        fraction = 0;
        ++whole;
    }
    char *const point = std::to_chars(text, text_end(text), whole).ptr;
    if (decimals == 0) {
        return point;
    }
    // Written with a 1 before it, the fraction keeps its leading zeros; the point replaces the 1.
    char *const end = std::to_chars(point, text_end(text), scale + fraction).ptr;
    *point = '.';
    return end;
}

void write_fixed(double value, const Options &options, char *text, Number &number) {
    const auto decimals = static_cast<int>(std::min(options.precision, kMostDecimals));
    char *end =
        is_short(value, decimals)
            ? write_short_fixed(value, decimals, text)
            : std::to_chars(text, text_end(text), value, std::chars_format::fixed, decimals).ptr;
    if (decimals == 0 && options.Has(kAlternate)) {
        *end++ = '.';
    }
    number.SetDigits(text, end);
    number.trailing_zeros = options.precision - decimals;
}

// The exponent of a number in the form that %e prints: e, a sign, two digits or three.
struct Exponent {
    char text[8];
    std::size_t length;

    int Value() const {
        int value = 0;
        std::from_chars(text + 2, text + length, value);
        return text[1] == '-' ? -value : value;
    }
};

// Writes one digit, a point and `decimals` digits. Result: the end.
char *write_mantissa(double value, int decimals, bool capital, char *text, Exponent &exponent) {
    char *const most = text + 1 + 1 + kMostDigits + sizeof exponent.text;
    char *const end = std::to_chars(text, most, value, std::chars_format::scientific, decimals).ptr;
    const char *const letter = end[-4] == 'e' ? end - 4 : end - 5;
    exponent.length = static_cast<std::size_t>(end - letter);
    std::memcpy(exponent.text, letter, exponent.length);
    exponent.text[0] = capital ? 'E' : 'e';
    text[1] = '.';  // none without decimals
    return text + 2 + decimals;
}

void write_scientific(double value, bool capital, const Options &options, char *text,
                      Number &number) {
    const auto decimals = static_cast<int>(std::min(options.precision, kMostDigits - 1));
    Exponent exponent;
    char *const end = write_mantissa(value, decimals, capital, text, exponent);
    number.SetDigits(text, decimals == 0 && !options.Has(kAlternate) ? end - 1 : end);
    number.SetExponent(exponent.text, exponent.length);
    number.trailing_zeros = options.precision - decimals;
}

void write_general(double value, bool capital, const Options &options, char *text, Number &number) {
    constexpr int kLeastFixed = -4;  // the least exponent that is not written
    const std::int64_t precision = std::max<std::int64_t>(options.precision, 1);
    const auto digits = static_cast<int>(std::min(precision, kMostDigits));
    Exponent exponent;
    char *first = text - kLeastFixed;  // room for zeros before it
    char *end = write_mantissa(value, digits - 1, capital, first, exponent);

    const int places = exponent.Value();
    const bool fixed = places >= kLeastFixed && places < precision;
    if (fixed && places > 0) {
        std::memmove(first + 1, first + 2, static_cast<std::size_t>(places));
        first[1 + places] = '.';
    } else if (fixed && places < 0) {
        first[1] = first[0];
        first += places;
        std::memset(first, '0', static_cast<std::size_t>(1 - places));
        first[1] = '.';
    }
    if (options.Has(kAlternate)) {
        number.trailing_zeros = precision - digits;
    } else {
        while (end[-1] == '0') {
            --end;
        }
        end -= end[-1] == '.' ? 1 : 0;
    }
    number.SetDigits(first, end);
    if (!fixed) {
        number.SetExponent(exponent.text, exponent.length);
    }
}

void write_hexadecimal(double value, bool capital, const Options &options, char *text,
                       Number &number) {
    constexpr int kMostHexDigits = kMantissaBits / 4;
    Binary binary(value);
    const auto decimals =
        static_cast<int>(std::min<std::int64_t>(options.precision, kMostHexDigits));
    const int dropped = (kMostHexDigits - decimals) * 4;
    if (dropped > 0) {
        const std::uint64_t half = std::uint64_t{1} << (dropped - 1);
        const std::uint64_t odd = binary.mantissa >> dropped & 1;
        binary.mantissa += half - 1 + odd;  // a carry goes into the first digit
    }

    const char *const digits = capital ? kUpperDigits : kLowerDigits;
    char *end = text;
    *end++ = digits[binary.mantissa >> kMantissaBits];
    if (decimals > 0 || options.Has(kAlternate)) {
        *end++ = '.';
    }
    for (int i = 1; i <= decimals; ++i) {
        *end++ = digits[binary.mantissa >> (kMostHexDigits - i) * 4 & 0xF];
    }
    number.SetDigits(text, end);
    number.trailing_zeros = options.precision - decimals;
    number.AddPrefix(capital ? 'X' : 'x');
    number.AddPrefix('0');

    const int exponent = value == 0 ? 0 : binary.exponent + static_cast<int>(kMantissaBits);
    *end++ = capital ? 'P' : 'p';
    *end++ = exponent < 0 ? '-' : '+';
    number.end = std::to_chars(end, text_end(text), std::abs(exponent)).ptr;
}

// The name of what is no finite number. A NaN is signalling while the first bit of its mantissa is
// clear; the negative NaN with that bit alone is what an invalid operation gives.
std::string_view special_name(std::uint64_t bits, bool capital) {
    constexpr std::uint64_t kQuiet = std::uint64_t{1} << (kMantissaBits - 1);
    const std::uint64_t mantissa = bits & kMantissaMask;
    if (mantissa == 0) {
        return capital ? "INF" : "inf";
    }
    if ((mantissa & kQuiet) == 0) {
        return capital ? "NAN(SNAN)" : "nan(snan)";
    }
    if (mantissa == kQuiet && bits >> 63 != 0) {
        return capital ? "NAN(IND)" : "nan(ind)";
    }
    return capital ? "NAN" : "nan";
}

template <typename Char>
constexpr Char kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};

// The length of a text that need not be terminated within its first `limit` characters.
template <typename Char>
std::size_t bounded_length(const Char *text, const Options &options) {
    if (!options.HasPrecision()) {
        return std::char_traits<Char>::length(text);
    }
    const auto limit = static_cast<std::size_t>(options.precision);
    std::size_t length = 0;
    while (length < limit && text[length] != 0) {
        ++length;
    }
    return length;
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

    // The length of the text, or -1 with errno set.
    int Print(const Char *format) {
        try {
            if (format == nullptr || !PrintParts(format)) {
                errno = EINVAL;
                return -1;
            }
        } catch (const std::exception &) {  // no memory for a text of the other width
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
    // False: the format is bad.
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
            Options options;
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

    const Char *ReadOptions(const Char *at, Options &options) {
        if (*at < 'A') {  // before the letters
            for (unsigned bit; (bit = Code(*at) - ' ') <= '0' - ' ' && (kFlags >> bit & 1); ++at) {
                options.flags |= 1U << bit;
            }
            ReadWidth(at, options);
            ReadPrecision(at, options);
        }
        return read_modifiers(at, options.size);
    }

    void ReadWidth(const Char *&at, Options &options) {
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

    void ReadPrecision(const Char *&at, Options &options) {
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

    bool Convert(unsigned conversion, Options &options) {
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

    std::int64_t NextSigned(Size size) {
        switch (size) {
            case Size::kInt64:
                return Next<std::int64_t>();
            case Size::kShort:
                return static_cast<std::int16_t>(Next<int>());
            case Size::kByte:
                return static_cast<std::int8_t>(Next<int>());
            default:
                return Next<int>();
        }
    }

    std::uint64_t NextUnsigned(Size size) {
        switch (size) {
            case Size::kInt64:
                return Next<std::uint64_t>();
            case Size::kShort:
                return static_cast<std::uint16_t>(Next<unsigned>());
            case Size::kByte:
                return static_cast<std::uint8_t>(Next<unsigned>());
            default:
                return Next<unsigned>();
        }
    }

    void PrintSigned(const Options &options) {
        const std::int64_t value = NextSigned(options.size);
        const auto bits = static_cast<std::uint64_t>(value);
        char text[kPrefix + kIntegerText];
        Number number(text + kPrefix);
        WriteInteger(value < 0 ? 0 - bits : bits, 'd', options, number);
        number.AddSign(value < 0, options);
        PutNumber(number, options, !options.HasPrecision());
    }

    void PrintUnsigned(std::uint64_t value, unsigned conversion, const Options &options) {
        char text[kPrefix + kIntegerText];
        Number number(text + kPrefix);
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

    static void WriteInteger(std::uint64_t value, unsigned conversion, const Options &options,
                             Number &number) {
        if (value != 0 || options.precision != 0) {
            write_integer(value, conversion, number.begin, number);
        }
        number.leading_zeros =
            std::max<std::int64_t>(options.precision - (number.end - number.digits), 0);
    }

    void PrintDouble(unsigned conversion, bool capital, Options &options) {
        const double value = Next<double>();
        const auto bits = std::bit_cast<std::uint64_t>(value);
        const bool negative = bits >> 63 != 0;
        const double magnitude = std::bit_cast<double>(bits << 1 >> 1);
        char buffer[kPrefix + kDoubleText];
        char *const text = buffer + kPrefix;
        Number number(text);
        if ((static_cast<int>(bits >> kMantissaBits) & kExponentMask) == kExponentMask) {
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

    void PutNumber(const Number &number, const Options &options, bool may_pad_with_zeros) {
        const std::int64_t zeros = number.leading_zeros + number.trailing_zeros;
        const std::int64_t padding = options.width - (number.end - number.begin) - zeros;
        if (padding <= 0 && zeros == 0) {
            Put(number.begin, number.end);
            return;
        }
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

    // A string or one character, wide or narrow unless a modifier says which.
    void PrintText(bool single, bool wide, Options &options) {
        if (options.size == Size::kLong || options.size == Size::kInt64) {
            wide = true;
        } else if (options.size == Size::kShort || options.size == Size::kByte) {
            wide = false;
        }
        if (wide == (sizeof(Char) == sizeof(WCHAR))) {
            PrintText<Char>(single, options);
        } else {
            PrintText<Other>(single, options);
        }
    }

    template <typename Argument>
    void PrintText(bool single, Options &options) {
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

    void PutText(const Char *text, std::size_t length, bool /*cut*/, const Options &options) {
        PutPadded(length, options, [&] { m_sink.Put(text, length); });
    }

    // ASCII is the same in every system code page; anything else goes through the converter.
    void PutText(const Other *text, std::size_t length, bool cut, const Options &options) {
        using Unsigned = std::make_unsigned_t<Other>;
        if (std::all_of(text, text + length, [](Other unit) { return Unsigned(unit) < 0x80; })) {
            PutPadded(length, options, [&] { m_sink.Put(text, length); });
            return;
        }
        const int saved_errno = errno;
        const auto converted = Twin<Char>::Convert({text, length}, cut);
        errno = saved_errno;
        PutText(converted.data(), converted.size(), cut, options);
    }

    template <typename PutFunction>
    void PutPadded(std::size_t length, const Options &options, PutFunction put) {
        const std::int64_t padding = options.width - static_cast<std::int64_t>(length);
        if (!options.Has(kLeft)) {
            Fill(options.Has(kZero) ? '0' : ' ', padding);
        }
        put();
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
}  // namespace platform

int _vsnwprintf(WCHAR *buffer, std::size_t count, const WCHAR *format, std::va_list args) {
    return platform::print(buffer, count, format, args);
}

int _vsnprintf(char *buffer, std::size_t count, const char *format, std::va_list args) {
    return platform::print(buffer, count, format, args);
}

int _vscwprintf(const WCHAR *format, std::va_list args) {
    return platform::measure(format, args);
}

int _vscprintf(const char *format, std::va_list args) {
    return platform::measure(format, args);
}
