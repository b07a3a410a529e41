#include "ostrel/platform/scanf.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>

#include "ostrel/platform/base/ascii.h"
#include "ostrel/platform/crt_text.h"

namespace {

using ostrel_platform::is_digit;

const WCHAR *skip_space(const WCHAR *at) {
    while (iswspace(*at)) {
        ++at;
    }
    return at;
}

// The result of reading one part of the format.
enum class Outcome { kMatched, kFailed, kTextEnded };

class Scanner {
public:
    explicit Scanner(const WCHAR *text) : m_at(text) {}

    Outcome Literal(WCHAR character) {
        if (*m_at == 0) {
            return Outcome::kTextEnded;
        }
        if (*m_at != character) {
            return Outcome::kFailed;
        }
        ++m_at;
        return Outcome::kMatched;
    }

    void Space() { m_at = skip_space(m_at); }

    Outcome Number(std::int64_t width, int *value) {
        Space();
        if (*m_at == 0) {
            return Outcome::kTextEnded;
        }
        const bool negative = *m_at == u'-';
        if (negative || *m_at == u'+') {
            ++m_at;
            --width;
        }
        if (width == 0 || !is_digit(*m_at)) {
            return Outcome::kFailed;
        }
        std::int64_t number = 0;
        for (; width > 0 && is_digit(*m_at); --width, ++m_at) {
            // The limit lies outside the range of an int, so that the clamp below applies.
            number = std::min<std::int64_t>(number * 10 + (*m_at - u'0'), std::int64_t{1} << 32);
        }
        number = negative ? -number : number;
        *value = static_cast<int>(std::clamp<std::int64_t>(number, INT_MIN, INT_MAX));
        return Outcome::kMatched;
    }

    Outcome Word(std::int64_t width, WCHAR *word) {
        Space();
        if (*m_at == 0) {
            return Outcome::kTextEnded;
        }
        for (; width > 0 && *m_at != 0 && !iswspace(*m_at); --width) {
            *word++ = *m_at++;
        }
        *word = 0;
        return Outcome::kMatched;
    }

private:
    const WCHAR *m_at;
};

// Reads the width of a conversion and steps over it. Returns INT64_MAX without a width, 2^32 for a
// greater one, and 0 for 0, which the caller refuses.
std::int64_t read_width(const WCHAR *&at) {
    if (!is_digit(*at)) {
        return INT64_MAX;
    }
    std::int64_t width = 0;
    for (; is_digit(*at); ++at) {
        width = std::min<std::int64_t>(width * 10 + (*at - u'0'), std::int64_t{1} << 32);
    }
    return width;
}

int scan(const WCHAR *text, const WCHAR *format, std::va_list arguments) {
    Scanner scanner(text);
    int stored = 0;
    while (*format != 0) {
        Outcome outcome = Outcome::kFailed;
        if (iswspace(*format)) {
            format = skip_space(format);
            scanner.Space();
            continue;
        }
        if (*format != u'%') {
            outcome = scanner.Literal(*format++);
        } else if (*++format == u'%') {
            ++format;
            scanner.Space();
            outcome = scanner.Literal(u'%');
        } else {
            const std::int64_t width = read_width(format);
            const WCHAR conversion = width > 0 ? *format++ : u'\0';
            if (conversion == u'd') {
                outcome = scanner.Number(width, va_arg(arguments, int *));
            } else if (conversion == u's') {
                outcome = scanner.Word(width, va_arg(arguments, WCHAR *));
            }
            stored += outcome == Outcome::kMatched;
        }
        if (outcome != Outcome::kMatched) {
            return outcome == Outcome::kTextEnded && stored == 0 ? -1 : stored;
        }
    }
    return stored;
}

}  // namespace

int swscanf(const WCHAR *text, const WCHAR *format, ...) noexcept {
    if (text == nullptr || format == nullptr) {
        errno = EINVAL;
        return -1;
    }
    std::va_list arguments;
    va_start(arguments, format);
    const int stored = scan(text, format, arguments);
    va_end(arguments);
    return stored;
}
