#ifndef OSTREL_PLATFORM_TEXT_PRINTF_NUMBER_H
#define OSTREL_PLATFORM_TEXT_PRINTF_NUMBER_H

// Internal. The numbers of the formatted output: their digits, as plain characters.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace ostrel_platform {

// A flag's bit is its distance from the blank: to recognise one takes a subtraction and a shift.
constexpr unsigned flag_bit(char flag) {
    return 1U << (flag - ' ');
}

inline constexpr unsigned kBlank = flag_bit(' ');
inline constexpr unsigned kAlternate = flag_bit('#');
inline constexpr unsigned kPlus = flag_bit('+');
inline constexpr unsigned kLeft = flag_bit('-');
inline constexpr unsigned kZero = flag_bit('0');
inline constexpr unsigned kFlags = kBlank | kAlternate | kPlus | kLeft | kZero;

enum class PrintSize { kDefault, kByte, kShort, kLong, kInt64 };

// What stands between the % and the letter of a conversion.
struct PrintOptions {
    unsigned flags = 0;
    PrintSize size = PrintSize::kDefault;
    std::int64_t width = 0;
    std::int64_t precision = -1;  // -1: none

    bool Has(unsigned flag) const { return (flags & flag) != 0; }
    bool HasPrecision() const { return precision >= 0; }
};

// A printed number. Its characters stand in one piece, [begin, end); what may have to be put
// between them is said by number: zeros before the digits, where padding with zeros goes too, and
// zeros before the exponent.
struct PrintedNumber {
    explicit PrintedNumber(char *text) : begin(text), digits(text), exponent(text), end(text) {}

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

    void AddSign(bool negative, const PrintOptions &options) {
        if (negative) {
            AddPrefix('-');
        } else if (options.Has(kPlus)) {
            AddPrefix('+');
        } else if (options.Has(kBlank)) {
            AddPrefix(' ');
        }
    }
};

// Room in front of the digits for a sign and 0x.
inline constexpr std::size_t kPrefix = 3;

// The digits of an unsigned 64-bit number, in octal at most.
inline constexpr std::size_t kIntegerText = 22;

// A double has at most 309 digits before the point, 1074 decimals that are not zero, and 767 digits
// between the first and the last one that is not zero. What a precision asks beyond is zeros.
inline constexpr std::int64_t kMaxDecimals = 1074;
inline constexpr std::int64_t kMaxDigits = 767;
inline constexpr std::size_t kDoubleText = 309 + 1 + kMaxDecimals + 1;

// The conversions write to `text`, which holds kIntegerText or kDoubleText characters behind room
// for kPrefix, and describe what they wrote in `number`. A value is never negative, and a double is
// finite; the precision has been given or set to its default.
void write_integer(std::uint64_t value, unsigned conversion, char *text, PrintedNumber &number);
void write_fixed(double value, const PrintOptions &options, char *text, PrintedNumber &number);
void write_scientific(double value, bool capital, const PrintOptions &options, char *text,
                      PrintedNumber &number);
void write_general(double value, bool capital, const PrintOptions &options, char *text,
                   PrintedNumber &number);
void write_hexadecimal(double value, bool capital, const PrintOptions &options, char *text,
                       PrintedNumber &number);

// Whether these are the bits of a finite double, and the name of one that is not.
bool is_finite(std::uint64_t bits);
std::string_view special_name(std::uint64_t bits, bool capital);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_PRINTF_NUMBER_H
