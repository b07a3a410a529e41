#ifndef OSTREL_PLATFORM_TIME_TIME_LOCALE_H
#define OSTREL_PLATFORM_TIME_TIME_LOCALE_H

// Internal. What a locale has for times: names, and forms written as formats of wcsftime.

#include <cstddef>
#include <ctime>
#include <string_view>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

struct TimeForms {
    std::u16string_view weekdays[7];  // from Sunday on
    std::u16string_view short_weekdays[7];
    std::u16string_view months[12];
    std::u16string_view short_months[12];
    std::u16string_view halves[2];  // of the day: AM, PM
    std::u16string_view date;
    std::u16string_view long_date;
    std::u16string_view time;
    std::u16string_view half_day_time;
    std::u16string_view date_time;
    std::u16string_view long_date_time;
};

// Those of the C locale.
extern const TimeForms kTimeFormsC;

// Those that ICU has for a locale of the host, such as "de_DE.UTF-8" or "sr_RS@latin". They stay
// until the process ends. Null for "C" and "POSIX", with or without a charset, for a locale that
// ICU does not know, and when there is no memory for them. Any thread may call it.
const TimeForms *time_forms_of(std::string_view locale) noexcept;

// Writes fields by a format of wcsftime and a NUL, `room` characters in all. `forms` null stands
// for the forms of the process's locale, which is then read when the format needs it. Result: the
// characters stored; 0 with an empty text and `*error` EINVAL or ERANGE. On success, which an empty
// text may be, `*error` is left alone.
std::size_t write_time(const TimeForms *forms, std::u16string_view format, const std::tm &time,
                       int last_year, WCHAR *text, std::size_t capacity, int *error) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_TIME_LOCALE_H
