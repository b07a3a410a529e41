#include "ostrel/core/format.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>

#include "ostrel/core/format_estimate.h"
#include "ostrel/core/text_length.h"
#include "ostrel/platform/printf.h"

namespace OS::detail {
namespace {

// A text of no more characters is printed on the stack.
constexpr std::size_t kStackCharacters = 2048;

int print(WCHAR *buffer, std::size_t count, const WCHAR *format, std::va_list args) {
    return _vsnwprintf(buffer, count, format, args);
}

int print(char *buffer, std::size_t count, const char *format, std::va_list args) {
    return _vsnprintf(buffer, count, format, args);
}

int measure(const WCHAR *format, std::va_list args) {
    return _vscwprintf(format, args);
}

int measure(const char *format, std::va_list args) {
    return _vscprintf(format, args);
}

// Returns the length of the whole text; nothing for a format with a fault in it.
template <class Char>
std::optional<std::size_t> measured_length(const Char *format, std::va_list args) {
    std::va_list values;
    va_copy(values, args);
    const int saved_errno = errno;
    const int length = measure(format, values);
    errno = saved_errno;
    va_end(values);
    return length >= 0 ? std::optional(static_cast<std::size_t>(length)) : std::nullopt;
}

// Prints into `buffer`, which holds `capacity` characters, one at least, and a NUL. Returns the
// length of what was printed, up to the first fault of the format, or nothing when the text needs a
// larger buffer. `may_hold_nul` says whether the text has to be searched for its end.
template <class Char>
std::optional<std::size_t> try_print(Char *buffer, std::size_t capacity, bool may_hold_nul,
                                     const Char *format, std::va_list args) {
    std::va_list values;
    va_copy(values, args);
    const int saved_errno = errno;
    errno = 0;
    buffer[capacity - 1] = 0;
    const int length = print(buffer, capacity, format, values);
    const int fault = length < 0 ? errno : 0;
    errno = saved_errno;
    va_end(values);
    if (length >= 0 && !may_hold_nul) {
        return static_cast<std::size_t>(length);
    }
    if (fault == ENOMEM) {
        throw std::bad_alloc();
    }
    if (fault == EOVERFLOW) {
        throw std::length_error("Format");
    }
    buffer[capacity] = 0;
    const bool cut_before_the_fault = buffer[capacity - 1] != 0;
    const bool printed = length >= 0 || (fault != 0 && !cut_before_the_fault);
    return printed ? std::optional(text_length(buffer)) : std::nullopt;
}

template <class Char>
void format_any(std::basic_string<Char> *out, const Char *format, std::va_list *to_measure,
                std::va_list *to_print) {
    const FormatEstimate estimate = estimate_format(format, to_measure);
    const auto try_with = [&](Char *buffer, std::size_t capacity) {
        const std::optional<std::size_t> length =
            try_print(buffer, capacity, estimate.may_hold_nul, format, *to_print);
        if (length) {
            out->assign(buffer, *length);
        }
        return length.has_value();
    };
    std::size_t size = kStackCharacters;
    if (estimate.complete) {
        constexpr std::uint64_t kMax = std::numeric_limits<int>::max();  // the longest text
        size = static_cast<std::size_t>(std::clamp<std::uint64_t>(estimate.expected, 1, kMax));
    }
    if (size <= kStackCharacters) {
        Char buffer[kStackCharacters + 1];
        if (try_with(buffer, size)) {
            return;
        }
        size = measured_length(format, *to_print).value_or(2 * kStackCharacters);
    }
    constexpr std::size_t kTrusted = std::size_t{1} << 20;
    if (size > kTrusted) {  // a precision such as that of %.2000000000g says little
        size = measured_length(format, *to_print).value_or(2 * kStackCharacters);
    }
    // A format with a fault has no length to ask for: the buffer grows until the text in front of
    // the fault fits.
    for (;; size *= 2) {
        const std::unique_ptr<Char[]> buffer(new Char[size + 1]);
        if (try_with(buffer.get(), size)) {
            return;
        }
    }
}

}  // namespace

void format_text(std::basic_string<WCHAR> *out, const WCHAR *format, std::va_list *to_measure,
                 std::va_list *to_print) {
    format_any(out, format, to_measure, to_print);
}

void format_text(std::string *out, const char *format, std::va_list *to_measure,
                 std::va_list *to_print) {
    format_any(out, format, to_measure, to_print);
}

}  // namespace OS::detail
