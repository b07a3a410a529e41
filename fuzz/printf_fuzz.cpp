// Conversions of numbers by which the host prints what the platform does: both widths give its
// text, and a buffer of any size the start of it.

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/check.h"
#include "ostrel/platform/printf.h"

namespace {

int print(char *buffer, std::size_t count, const char *format, std::va_list arguments) {
    return _vsnprintf(buffer, count, format, arguments);
}

int print(WCHAR *buffer, std::size_t count, const WCHAR *format, std::va_list arguments) {
    return _vsnwprintf(buffer, count, format, arguments);
}

// Prints into a block of exactly that size.
template <class Char>
std::basic_string<Char> printed(std::size_t room, int *length, const Char *format, ...) {
    const std::unique_ptr<Char[]> block(new Char[room]);
    std::va_list arguments;
    va_start(arguments, format);
    *length = print(block.get(), room, format, arguments);
    va_end(arguments);
    const bool fits = *length >= 0;
    check(!fits || static_cast<std::size_t>(*length) <= room);
    return {block.get(), fits ? static_cast<std::size_t>(*length) : room};
}

template <class Value>
void check_value(const std::string &format, Value value, std::size_t room) {
    char expected[4000];
    std::snprintf(expected, sizeof expected, format.c_str(), value);
    const std::string whole = expected;
    room %= whole.size() + 2;
    const int length = whole.size() <= room ? static_cast<int>(whole.size()) : -1;
    const std::string start = whole.substr(0, room);
    int stored = 0;
    check(printed(room, &stored, format.c_str(), value) == start && stored == length);
    const std::u16string wide(format.begin(), format.end());
    check(printed(room, &stored, wide.c_str(), value) ==
              std::u16string(start.begin(), start.end()) &&
          stored == length);
}

}  // namespace

// Input: the value, the room, a byte of flags, one for the width, one for the precision and one for
// the conversion.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 14) {
        return 0;
    }
    std::uint64_t bits = 0;
    std::uint16_t room = 0;
    std::memcpy(&bits, data, 8);
    std::memcpy(&room, data + 8, 2);
    std::string options = "%";
    for (std::size_t i = 0; i < 5; ++i) {
        options.append(data[10] >> i & 1, "-+ #0"[i]);
    }
    if (data[11] % 4 != 0) {
        options += std::to_string(1 + data[11] / 4);
    }
    if (data[12] % 4 != 0) {
        options += '.' + std::to_string(data[12] / 4 * (data[12] % 4 == 1 ? 18 : 1));
    }
    static constexpr const char *kIntegers[] = {"d",  "i",   "u",   "o",   "x",  "X",  "hd",
                                                "hx", "hhi", "lld", "llu", "jo", "zx", "tX"};
    if (const unsigned kind = data[13] % 22; kind < 14) {
        const std::string format = '<' + options + kIntegers[kind] + '>';
        kind < 9 ? check_value(format, static_cast<int>(bits), room)
                 : check_value(format, static_cast<std::int64_t>(bits), room);
        return 0;
    } else {
        const char letter = "fegaFEGA"[kind - 14];
        // The host's %a has no fixed number of digits by default, and its %#g loses a zero where
        // rounding makes the number longer (99.5 with two digits). A NaN has a name of its own.
        double value = 0;
        std::memcpy(&value, &bits, 8);
        if (((letter | 0x20) == 'a' && options.find('.') == options.npos) ||
            ((letter | 0x20) == 'g' && options.find('#') != options.npos) || value != value) {
            return 0;
        }
        check_value('<' + options + letter + '>', value, room);
        // The same bits as a number of usual size.
        check_value('<' + options + letter + '>', static_cast<double>(bits) / 1024, room);
    }
    return 0;
}
