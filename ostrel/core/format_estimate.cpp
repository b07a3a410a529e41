#include "ostrel/core/format_estimate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "ostrel/core/text_length.h"
#include "ostrel/platform/codepage.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/printf.h"

namespace OS::detail {
namespace {

enum class Modifier { kNone, kNarrow, kWide };

struct Conversion {
    std::uint64_t width = 0;
    std::uint64_t precision = 0;  // 0 also when none is given
    bool reads_text = true;       // not behind a precision that is given as 0
    Modifier modifier = Modifier::kNone;
};

const WCHAR *next_character(const WCHAR *at) {
    return at + 1;
}
const char *next_character(const char *at) {
    if (static_cast<unsigned char>(*at) < 0x80) {
        return at + 1;  // in every code page
    }
    return reinterpret_cast<const char *>(_mbsinc(reinterpret_cast<const unsigned char *>(at)));
}

template <class Char>
bool is_digit(Char c) {
    return c >= '0' && c <= '9';
}

// Reads a decimal number, of which the most is INT_MAX, and steps over its digits.
template <class Char>
std::uint64_t read_number(const Char **at) {
    constexpr std::uint64_t kMax = std::numeric_limits<int>::max();
    std::uint64_t number = 0;
    for (; is_digit(**at); ++*at) {
        number = std::min(kMax, number * 10 + static_cast<std::uint64_t>(**at - '0'));
    }
    return number;
}

// Returns the length of a string, which need not be terminated within the precision.
template <class Char>
std::uint64_t bounded_length(const Char *text, const Conversion &conversion) {
    if (conversion.precision != 0) {
        return text_length_within(text, conversion.precision);
    }
    return conversion.reads_text ? text_length(text) : 0;
}

std::uint64_t string_item(const Conversion &conversion, std::uint64_t length) {
    std::uint64_t item = std::max<std::uint64_t>(length, 1);
    if (conversion.precision != 0) {
        item = std::min(item, conversion.precision);
    }
    return std::max(item, conversion.width);
}

// Bytes that a wide character can become in the system code page: UTF-8 needs three for a unit,
// GB18030 four, any other page that a narrow format meets two.
std::uint64_t bytes_of_unit() {
    static const std::uint64_t bytes = GetACP() == 65001 ? 3 : GetACP() == 54936 ? 4 : 2;
    return bytes;
}

// Bytes for the first `units` units. Only text beyond ASCII takes more than its length.
std::uint64_t narrowed_length(const WCHAR *text, std::uint64_t units) {
    const bool ascii = std::all_of(text, text + units, [](WCHAR c) { return c < 0x80; });
    return ascii ? units : units * bytes_of_unit();
}

// Strings and characters: whether the conversion takes wide text.
template <class Char>
bool takes_wide(Char letter, Modifier modifier) {
    if (modifier != Modifier::kNone) {
        return modifier == Modifier::kWide;
    }
    const bool own_width = letter == 's' || letter == 'c';
    return own_width == (sizeof(Char) == sizeof(WCHAR));
}

int count_fixed(const char *format, ...) {
    std::va_list args;
    va_start(args, format);
    const int count = _vscprintf(format, args);
    va_end(args);
    return count;
}

// Entry n is 10^n; each and the whole numbers around it are exact in a double.
constexpr auto kPowersOf10 = [] {
    std::array<double, 16> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i) {
        powers[i] = 10 * powers[i - 1];
    }
    return powers;
}();

// Returns the number of characters that "%*.*f" makes of the value with that width and with six
// digits more than the precision. The number is worked out where rounding cannot carry into a
// further digit; elsewhere, as for 9.9999999999, the value is printed.
std::uint64_t fixed_item(const Conversion &conversion, double value) {
    const double magnitude = std::fabs(value);
    const std::uint64_t decimals = conversion.precision + 6;
    if (magnitude < kPowersOf10.back()) {
        std::size_t digits = 1;
        while (magnitude >= kPowersOf10[digits]) {
            ++digits;
        }
        if (magnitude < kPowersOf10[digits] - 1) {
            const std::uint64_t sign = std::signbit(value) ? 1 : 0;
            return std::max(sign + digits + 1 + decimals, conversion.width);
        }
    }
    constexpr std::uint64_t kMax = std::numeric_limits<int>::max();
    const int length = count_fixed("%*.*f", static_cast<int>(conversion.width),
                                   static_cast<int>(std::min(decimals, kMax)), value);
    return length >= 0 ? static_cast<std::uint64_t>(length) : kMax;
}

// Whether a character may stand between the precision and the letter of a conversion.
template <class Char>
constexpr bool is_modifier(Char c) {
    const auto bit = [](char letter) { return std::uint64_t{1} << (letter - 'F'); };
    const auto place = static_cast<unsigned>(c) - 'F';
    return place <= 'l' - 'F' &&
           ((bit('h') | bit('l') | bit('F') | bit('L') | bit('N')) >> place & 1) != 0;
}

template <class Char>
class Estimator {
public:
    explicit Estimator(std::va_list *args) : m_args(args) {}

    FormatEstimate Run(const Char *format) {
        std::uint64_t items = 0;      // characters of conversions
        std::uint64_t steps = 0;      // characters of plain text
        std::uint64_t positions = 0;  // the sum of their places in the format
        std::uint64_t plain = 0;      // their length
        const Char *at = format;
        while (*at != 0) {
            if (*at == '%' && *++at != '%') {
                items += ReadConversion(&at);
                if (!m_complete) {
                    break;
                }
                continue;
            }
            const Char *const next = next_character(at);
            ++steps;
            positions += static_cast<std::uint64_t>(at - format);
            plain += static_cast<std::uint64_t>(next - at);
            at = next;
        }
        // Each step counts with the whole rest of the format.
        const std::uint64_t length = static_cast<std::uint64_t>(at - format) + text_length(at);
        return {items + steps * length - positions, items + plain, m_complete,
                m_mayHoldNul || !m_complete};
    }

private:
    // Reads the conversion behind a '%' and steps over it. Returns the characters that it counts.
    std::uint64_t ReadConversion(const Char **place) {
        const Char *at = *place;
        Conversion conversion;
        std::uint64_t prefixes = 0;
        if (*at <= '0') {  // every flag sorts below the letters and the other digits
            at = ReadFlags(at, &conversion, &prefixes);
        }
        if (is_digit(*at) && conversion.width == 0) {
            conversion.width = read_number(&at);
        }
        if (*at == '.') {
            if (*++at == '*') {
                ++at;
                conversion.precision = TakeStar();
            } else {
                conversion.precision = read_number(&at);
            }
            conversion.reads_text = conversion.precision != 0;
        }
        if (is_modifier(*at)) {
            conversion.modifier = *at == 'h'   ? Modifier::kNarrow
                                  : *at == 'l' ? Modifier::kWide
                                               : Modifier::kNone;
            ++at;
        }
        *place = *at == 0 ? at : next_character(at);
        return prefixes + (*at != 0 && m_complete ? Item(*at, conversion) : 0);
    }

    const Char *ReadFlags(const Char *at, Conversion *conversion, std::uint64_t *prefixes) {
        for (;; ++at) {
            switch (*at) {
                case '#':
                    *prefixes += 2;
                    break;
                case '*':
                    conversion->width = TakeStar();
                    break;
                case '-':
                case '+':
                case '0':
                case ' ':
                    break;
                default:
                    return at;
            }
        }
    }

    std::uint64_t TakeStar() {
        const std::int32_t value = va_arg(*m_args, std::int32_t);
        m_complete = m_complete && value >= 0;
        return static_cast<std::uint64_t>(std::max(value, 0));
    }

    template <class Value>
    void Skip() {
        static_cast<void>(va_arg(*m_args, Value));
    }

    std::uint64_t Item(Char letter, const Conversion &conversion) {
        const std::uint64_t sum = conversion.width + conversion.precision;
        switch (letter) {
            case 'c':
            case 'C':
                return CharacterItem(letter, conversion);
            case 's':
            case 'S':
                return StringItem(letter, conversion);
            case 'd':
            case 'i':
            case 'o':
            case 'u':
            case 'x':
            case 'X':
                Skip<std::int32_t>();
                return std::max<std::uint64_t>(sum, 32);
            case 'p':
                Skip<void *>();
                return std::max<std::uint64_t>(sum, 32);
            case 'e':
            case 'g':
            case 'G':
                Skip<double>();
                return std::max<std::uint64_t>(sum, 128);
            case 'f':
                return fixed_item(conversion, va_arg(*m_args, double));
            case 'n':
                Skip<void *>();
                return 0;
            default:
                m_complete = false;
                return 0;
        }
    }

    std::uint64_t CharacterItem(Char letter, const Conversion &conversion) {
        const int value = va_arg(*m_args, int);
        m_mayHoldNul = m_mayHoldNul || static_cast<char>(value) == 0;
        std::uint64_t item = 2;
        if (sizeof(Char) == 1 && takes_wide(letter, conversion.modifier)) {
            const auto character = static_cast<WCHAR>(value);
            item = std::max(item, narrowed_length(&character, 1));
        }
        if (conversion.precision != 0) {
            item = std::min(item, conversion.precision);
        }
        return std::max(item, conversion.width);
    }

    std::uint64_t StringItem(Char letter, const Conversion &conversion) {
        constexpr std::uint64_t kNullText = 6;  // "(null)"
        if (takes_wide(letter, conversion.modifier)) {
            const auto *const text = va_arg(*m_args, const WCHAR *);
            if (text == nullptr) {
                return string_item(conversion, kNullText);
            }
            const std::uint64_t units = bounded_length(text, conversion);
            const std::uint64_t item = string_item(conversion, units);
            return sizeof(Char) == 1 ? std::max(item, narrowed_length(text, units)) : item;
        }
        const auto *const text = va_arg(*m_args, const char *);
        return string_item(conversion,
                           text == nullptr ? kNullText : bounded_length(text, conversion));
    }

    std::va_list *m_args;
    bool m_complete = true;
    bool m_mayHoldNul = false;
};

}  // namespace

FormatEstimate estimate_format(const WCHAR *format, std::va_list *args) {
    return Estimator<WCHAR>(args).Run(format);
}

FormatEstimate estimate_format(const char *format, std::va_list *args) {
    return Estimator<char>(args).Run(format);
}

}  // namespace OS::detail
