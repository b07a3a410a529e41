#include "ostrel/platform/text/printf_number.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdlib>

namespace ostrel_platform {
namespace {

constexpr char kLowerDigits[] = "0123456789abcdef";
constexpr char kUpperDigits[] = "0123456789ABCDEF";

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

// Whether write_short_fixed can write this value. Most printed values qualify.
bool is_short(double value, int decimals) {
    return decimals <= kShortDecimals && value < 0x1p52 && (value >= 0x1p-12 || value == 0);
}

// Writes such a value in integer arithmetic, which is exact. The value is mantissa / 2^shift with a
// shift of 1 to 64 (any shift for 0), so that the fraction is a whole number of 2^-64. The fraction
// times a power of ten below 2^64 has 128 bits: the upper half is the decimals, and the lower half
// decides the rounding.
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
    // A 1 written before the fraction preserves its leading zeros. The point then replaces the 1.
    char *const end = std::to_chars(point, text_end(text), scale + fraction).ptr;
    *point = '.';
    return end;
}

// The exponent of a number as %e prints it: e, a sign, two or three digits.
struct Exponent {
    char text[8];
    std::size_t length;

    int Value() const {
        int value = 0;
        std::from_chars(text + 2, text + length, value);
        return text[1] == '-' ? -value : value;
    }
};

// Writes one digit, a point and `decimals` digits. Returns the end.
char *write_mantissa(double value, int decimals, bool capital, char *text, Exponent &exponent) {
    char *const most = text + 1 + 1 + kMaxDigits + sizeof exponent.text;
    char *const end = std::to_chars(text, most, value, std::chars_format::scientific, decimals).ptr;
    const char *const letter = end[-4] == 'e' ? end - 4 : end - 5;
    exponent.length = static_cast<std::size_t>(end - letter);
    std::memcpy(exponent.text, letter, exponent.length);
    exponent.text[0] = capital ? 'E' : 'e';
    text[1] = '.';  // to_chars writes no point without decimals
    return text + 2 + decimals;
}

}  // namespace

void write_integer(std::uint64_t value, unsigned conversion, char *text, PrintedNumber &number) {
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

void write_fixed(double value, const PrintOptions &options, char *text, PrintedNumber &number) {
    const auto decimals = static_cast<int>(std::min(options.precision, kMaxDecimals));
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

void write_scientific(double value, bool capital, const PrintOptions &options, char *text,
                      PrintedNumber &number) {
    const auto decimals = static_cast<int>(std::min(options.precision, kMaxDigits - 1));
    Exponent exponent;
    char *const end = write_mantissa(value, decimals, capital, text, exponent);
    number.SetDigits(text, decimals == 0 && !options.Has(kAlternate) ? end - 1 : end);
    number.SetExponent(exponent.text, exponent.length);
    number.trailing_zeros = options.precision - decimals;
}

void write_general(double value, bool capital, const PrintOptions &options, char *text,
                   PrintedNumber &number) {
    constexpr int kLeastFixed = -4;  // the least exponent that is printed without an exponent
    const std::int64_t precision = std::max<std::int64_t>(options.precision, 1);
    const auto digits = static_cast<int>(std::min(precision, kMaxDigits));
    Exponent exponent;
    char *first = text - kLeastFixed;  // leaves space for leading zeros
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

void write_hexadecimal(double value, bool capital, const PrintOptions &options, char *text,
                       PrintedNumber &number) {
    constexpr int kMaxHexDigits = kMantissaBits / 4;
    Binary binary(value);
    const auto decimals =
        static_cast<int>(std::min<std::int64_t>(options.precision, kMaxHexDigits));
    const int dropped = (kMaxHexDigits - decimals) * 4;
    if (dropped > 0) {
        const std::uint64_t half = std::uint64_t{1} << (dropped - 1);
        const std::uint64_t odd = binary.mantissa >> dropped & 1;
        binary.mantissa += half - 1 + odd;  // a carry increments the first digit
    }

    const char *const digits = capital ? kUpperDigits : kLowerDigits;
    char *end = text;
    *end++ = digits[binary.mantissa >> kMantissaBits];
    if (decimals > 0 || options.Has(kAlternate)) {
        *end++ = '.';
    }
    for (int i = 1; i <= decimals; ++i) {
        *end++ = digits[binary.mantissa >> (kMaxHexDigits - i) * 4 & 0xF];
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

bool is_finite(std::uint64_t bits) {
    return (static_cast<int>(bits >> kMantissaBits) & kExponentMask) != kExponentMask;
}

// A NaN is signalling when the first bit of its mantissa is clear. An invalid operation gives the
// negative NaN with that bit alone.
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

}  // namespace ostrel_platform
