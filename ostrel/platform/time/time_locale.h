#ifndef OSTREL_PLATFORM_TIME_TIME_LOCALE_H
#define OSTREL_PLATFORM_TIME_TIME_LOCALE_H

// Internal. Provides the names and forms that a locale uses for times, and writes times with them.

#include <cstddef>
#include <ctime>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

// The names and forms of one locale. Each form is a format of wcsftime.
struct TimeForms {
    std::u16string_view weekdays[7];  // from Sunday
    std::u16string_view short_weekdays[7];
    std::u16string_view months[12];
    std::u16string_view short_months[12];
    std::u16string_view halves[2];       // of the day: AM, PM
    std::u16string_view date;            // %x
    std::u16string_view long_date;       // %#x
    std::u16string_view time;            // %X
    std::u16string_view half_day_time;   // %r
    std::u16string_view date_time;       // %c
    std::u16string_view long_date_time;  // %#c
};

// The names and forms of the C locale.
extern const TimeForms kTimeFormsC;

// Returns the names and forms that ICU has for a locale of the host, such as "de_DE.UTF-8" or
// "sr_RS@latin". The object lives until the process ends. Returns null for "C" and "POSIX", with or
// without a charset, for a locale that ICU does not know, and when memory is missing or ICU fails.
//
// Threads: every thread may call it.
const TimeForms *time_forms_of(std::string_view locale) noexcept;

// Writes `time` by `format`, a format of wcsftime, and a NUL. `last_year` is the greatest year that
// is accepted. `text` has `capacity` characters, at least 1. With null for `forms` the call uses
// the process's LC_TIME locale, which it looks up only if the format needs forms.
//
// Returns the characters stored, without the NUL, and leaves `*error` unchanged; an empty text is a
// success with the result 0. On failure returns 0, stores an empty text and sets `*error` to EINVAL
// or ERANGE, as wcsftime describes them.
std::size_t write_time(const TimeForms *forms, std::u16string_view format, const std::tm &time,
                       int last_year, WCHAR *text, std::size_t capacity, int *error) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_TIME_LOCALE_H
