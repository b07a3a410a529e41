#include "ostrel/core/format_estimate.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

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

std::size_t length_of(const WCHAR *text) {
    return wcslen(text);
}
std::size_t length_of(const char *text) {
    return std::strlen(text);
}

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

// A decimal number, INT_MAX at most; steps over its digits.
template <class Char>
std::uint64_t read_number(const Char **at) {
    constexpr std::uint64_t kMost = std::numeric_limits<int>::max();
    std::uint64_t number = 0;
    for (; is_digit(**at); ++*at) {
        number = std::min(kMost, number * 10 + static_cast<std::uint64_t>(**at - '0'));
    }
    return number;
}

// Reads no further than the precision, as the printer does.
template <class Char>
std::uint64_t bounded_length(const Char *text, const Conversion &conversion) {
    const std::uint64_t limit = conversion.precision;
    if (limit == 0) {
        return conversion.reads_text ? length_of(text) : 0;
    }
    std::uint64_t length = 0;
    while (length < limit && text[length] != 0) {
        ++length;
    }
    return length;
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

std::uint64_t count_digits(std::uint64_t number) {
    std::uint64_t digits = 1;
    for (; number >= 10; number /= 10) {
        ++digits;
    }
    return digits;
}

// The number of characters that "%*.*f" makes of the value with that width and with six digits more
// than the precision. It is worked out where rounding can't carry into a further digit, and printed
// elsewhere, as for 9.9999999999.
std::uint64_t fixed_item(const Conversion &conversion, double value) {
    constexpr double kExactWhole = 1e15;
    const double magnitude = std::fabs(value);
    const std::uint64_t decimals = conversion.precision + 6;
    if (magnitude < kExactWhole) {
        const auto whole = static_cast<std::uint64_t>(magnitude);
        const std::uint64_t digits = count_digits(whole);
        if (digits == count_digits(whole + 1)) {
            const std::uint64_t sign = std::signbit(value) ? 1 : 0;
            return std::max(sign + digits + 1 + decimals, conversion.width);
        }
    }
    constexpr std::uint64_t kMost = std::numeric_limits<int>::max();
    const int length = count_fixed("%*.*f", static_cast<int>(conversion.width),
                                   static_cast<int>(std::min(decimals, kMost)), value);
    return length >= 0 ? static_cast<std::uint64_t>(length) : kMost;
}

template <class Char>
class Estimator {
public:
    Estimator(const Char *format, std::va_list args)
        : m_at(format), m_rest(length_of(format)), m_begin(format) {
        va_copy(m_args, args);
    }
    ~Estimator() { va_end(m_args); }
    Estimator(const Estimator &) = delete;
    Estimator &operator=(const Estimator &) = delete;

    FormatEstimate Run() {
        while (*m_at != 0 && m_estimate.complete) {
            if (*m_at == '%' && *++m_at != '%') {
                ReadConversion();
            } else {
                m_estimate.total += m_rest - static_cast<std::uint64_t>(m_at - m_begin);
                m_at = next_character(m_at);
            }
        }
        return m_estimate;
    }

private:
    void ReadConversion() {
        Conversion conversion;
        ReadFlags(&conversion);
        if (conversion.width == 0) {
            conversion.width = read_number(&m_at);
        }
        if (*m_at == '.') {
            ++m_at;
            if (*m_at == '*') {
                ++m_at;
                conversion.precision = TakeStar();
            } else {
                conversion.precision = read_number(&m_at);
            }
            conversion.reads_text = conversion.precision != 0;
        }
        ReadModifier(&conversion);
        if (*m_at != 0 && m_estimate.complete) {
            AddItem(conversion);
            m_at = next_character(m_at);
        }
    }

    void ReadFlags(Conversion *conversion) {
        for (;; ++m_at) {
            switch (*m_at) {
                case '#':
                    m_estimate.total += 2;
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
                    return;
            }
        }
    }

    std::uint64_t TakeStar() {
        const std::int32_t value = va_arg(m_args, std::int32_t);
        m_estimate.complete = m_estimate.complete && value >= 0;
        return static_cast<std::uint64_t>(std::max(value, 0));
    }

    void ReadModifier(Conversion *conversion) {
        switch (*m_at) {
            case 'h':
                conversion->modifier = Modifier::kNarrow;
                break;
            case 'l':
                conversion->modifier = Modifier::kWide;
                break;
            case 'F':
            case 'L':
            case 'N':
                break;
            default:
                return;
        }
        ++m_at;
    }

    void AddItem(const Conversion &conversion) {
        const std::uint64_t sum = conversion.width + conversion.precision;
        switch (*m_at) {
            case 'c':
            case 'C':
                m_estimate.total += CharacterItem(conversion);
                break;
            case 's':
            case 'S':
                m_estimate.total += StringItem(conversion);
                break;
            case 'd':
            case 'i':
            case 'o':
            case 'u':
            case 'x':
            case 'X':
                va_arg(m_args, std::int32_t);
                m_estimate.total += std::max<std::uint64_t>(sum, 32);
                break;
            case 'p':
                va_arg(m_args, void *);
                m_estimate.total += std::max<std::uint64_t>(sum, 32);
                break;
            case 'e':
            case 'g':
            case 'G':
                va_arg(m_args, double);
                m_estimate.total += std::max<std::uint64_t>(sum, 128);
                break;
            case 'f':
                m_estimate.total += fixed_item(conversion, va_arg(m_args, double));
                break;
            case 'n':
                va_arg(m_args, void *);
                break;
            default:
                m_estimate.complete = false;
        }
    }

    std::uint64_t CharacterItem(const Conversion &conversion) {
        const int value = va_arg(m_args, int);
        std::uint64_t item = 2;
        if (sizeof(Char) == 1 && takes_wide(*m_at, conversion.modifier)) {
            const auto character = static_cast<WCHAR>(value);
            item = std::max(item, narrowed_length(&character, 1));
        }
        if (conversion.precision != 0) {
            item = std::min(item, conversion.precision);
        }
        return std::max(item, conversion.width);
    }

    std::uint64_t StringItem(const Conversion &conversion) {
        constexpr std::uint64_t kNullText = 6;  // "(null)"
        if (takes_wide(*m_at, conversion.modifier)) {
            const auto *const text = va_arg(m_args, const WCHAR *);
            if (text == nullptr) {
                return string_item(conversion, kNullText);
            }
            const std::uint64_t units = bounded_length(text, conversion);
            const std::uint64_t item = string_item(conversion, units);
            return sizeof(Char) == 1 ? std::max(item, narrowed_length(text, units)) : item;
        }
        const auto *const text = va_arg(m_args, const char *);
        return string_item(conversion,
                           text == nullptr ? kNullText : bounded_length(text, conversion));
    }

    const Char *m_at;
    std::uint64_t m_rest;  // the length of the whole format
    const Char *m_begin;
    std::va_list m_args;
    FormatEstimate m_estimate;
};

}  // namespace

FormatEstimate estimate_format(const WCHAR *format, std::va_list args) {
    return Estimator<WCHAR>(format, args).Run();
}

FormatEstimate estimate_format(const char *format, std::va_list args) {
    return Estimator<char>(format, args).Run();
}

}  // namespace OS::detail
