#ifndef OSTREL_PLATFORM_TEXT_PRINTF_NUMBER_H
#define OSTREL_PLATFORM_TEXT_PRINTF_NUMBER_H

// Internal. Writes the digits of the numbers that the formatted output prints, as ASCII.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace ostrel_platform {

// The bit of a flag is its distance from the blank, so that the reader of a format recognises a
// flag by a subtraction and a shift.
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

// The options between the % and the letter of a conversion.
struct PrintOptions {
    unsigned flags = 0;
    PrintSize size = PrintSize::kDefault;
    std::int64_t width = 0;
    std::int64_t precision = -1;  // -1: none

    bool Has(unsigned flag) const { return (flags & flag) != 0; }
    bool HasPrecision() const { return precision >= 0; }
};

// A printed number: its characters [begin, end), and the counts of zeros to insert between them.
// leading_zeros go before `digits`, where padding with zeros goes too. trailing_zeros go before
// `exponent`.
struct PrintedNumber {
    explicit PrintedNumber(char *text) : begin(text), digits(text), exponent(text), end(text) {}

    char *begin;
    char *digits;
    char *exponent;
    char *end;
    std::int64_t leading_zeros = 0;
    std::int64_t trailing_zeros = 0;

    // kPrefix characters in front of `from` are free.
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

// The characters free in front of the digits, for a sign and 0x.
inline constexpr std::size_t kPrefix = 3;

// The digits of an unsigned 64-bit number in octal, the longest form.
inline constexpr std::size_t kIntegerText = 22;

// A double has at most 309 digits before the point, its last decimal that is not 0 is at most the
// 1074th, and at most 767 digits lie from the first to the last that is not 0. All digits of a
// precision beyond these limits are 0.
inline constexpr std::int64_t kMaxDecimals = 1074;
inline constexpr std::int64_t kMaxDigits = 767;
inline constexpr std::size_t kDoubleText = 309 + 1 + kMaxDecimals + 1;

// Write a number to `text` and describe it in `number`. `text` holds kIntegerText or kDoubleText
// characters, and the kPrefix characters in front of it are free. A value is not negative, a double
// is finite, and the precision of a double is 0 or more.
void write_integer(std::uint64_t value, unsigned conversion, char *text, PrintedNumber &number);
void write_fixed(double value, const PrintOptions &options, char *text, PrintedNumber &number);
void write_scientific(double value, bool capital, const PrintOptions &options, char *text,
                      PrintedNumber &number);
void write_general(double value, bool capital, const PrintOptions &options, char *text,
                   PrintedNumber &number);
void write_hexadecimal(double value, bool capital, const PrintOptions &options, char *text,
                       PrintedNumber &number);

// is_finite says whether these are the bits of a finite double. special_name returns the name of a
// double that is not finite, without its sign.
bool is_finite(std::uint64_t bits);
std::string_view special_name(std::uint64_t bits, bool capital);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TEXT_PRINTF_NUMBER_H
