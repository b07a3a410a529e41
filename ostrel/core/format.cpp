#include "ostrel/core/format.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <stdexcept>

#include "ostrel/core/format_estimate.h"
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

// Prints into `buffer`, which holds `room` characters, one at least, and a NUL. True when the text
// is there, as far as the format goes without a fault; false when it needs a larger buffer.
template <class Char>
bool try_print(Char *buffer, std::size_t capacity, const Char *format, std::va_list args) {
    std::va_list values;
    va_copy(values, args);
    const int saved_errno = errno;
    errno = 0;
    buffer[capacity - 1] = 0;
    const int length = print(buffer, capacity, format, values);
    const int fault = length < 0 ? errno : 0;
    errno = saved_errno;
    va_end(values);
    buffer[capacity] = 0;
    if (fault == ENOMEM) {
        throw std::bad_alloc();
    }
    if (fault == EOVERFLOW) {
        throw std::length_error("Format");
    }
    const bool cut_before_the_fault = buffer[capacity - 1] != 0;
    return length >= 0 || (fault != 0 && !cut_before_the_fault);
}

template <class Char>
void format_any(std::basic_string<Char> *out, const Char *format, std::va_list args) {
    Char scratch[kStackCharacters + 1];
    const FormatEstimate estimate = estimate_format(format, args);
    const std::uint64_t most = estimate.complete ? estimate.total : kStackCharacters;
    const auto capacity = std::clamp<std::uint64_t>(most, 1, kStackCharacters);
    if (try_print(scratch, static_cast<std::size_t>(capacity), format, args)) {
        out->assign(scratch);
        return;
    }
    // A long text, for which the estimate is far too large: its own length decides.
    for (std::size_t size = 4 * kStackCharacters;; size *= 2) {
        const std::unique_ptr<Char[]> buffer(new Char[size + 1]);
        if (try_print(buffer.get(), size, format, args)) {
            out->assign(buffer.get());
            return;
        }
    }
}

}  // namespace

void format_text(std::basic_string<WCHAR> *out, const WCHAR *format, std::va_list args) {
    format_any(out, format, args);
}

void format_text(std::string *out, const char *format, std::va_list args) {
    format_any(out, format, args);
}

}  // namespace OS::detail
