#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "ostrel/platform/error.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/time/calendar.h"
#include "ostrel/platform/time/time_locale.h"

namespace {

using ostrel_platform::TimeForms;

constexpr int kFirstYear = 1601;
constexpr int kLastYear = 30827;

const char *locale_of_environment() {
    for (const char *variable : {"LC_ALL", "LC_TIME", "LANG"}) {
        const char *const value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return "";
}

// Returns the forms of the system's locale. Only the first call reads the environment: a later read
// could race with setenv.
const TimeForms &system_forms() {
    static const TimeForms &forms = []() -> const TimeForms & {
        for (const char *locale : {locale_of_environment(), "en_US"}) {
            if (const TimeForms *const found = ostrel_platform::time_forms_of(locale)) {
                return *found;
            }
        }
        return ostrel_platform::kTimeFormsC;
    }();
    return forms;
}

bool is_date(const SYSTEMTIME &time) {
    return time.wYear >= kFirstYear && time.wYear <= kLastYear && time.wMonth >= 1 &&
           time.wMonth <= 12 && time.wDay >= 1 &&
           time.wDay <= ostrel_platform::days_in_month(time.wYear, time.wMonth);
}

bool is_clock(const SYSTEMTIME &time) {
    return time.wHour < 24 && time.wMinute < 60 && time.wSecond < 60 && time.wMilliseconds < 1000;
}

// Checks the parameters of either call. Returns ERROR_SUCCESS or the code of the failure.
DWORD check(DWORD locale, DWORD flags, DWORD allowed, const SYSTEMTIME *time, const WCHAR *format,
            const WCHAR *text, int capacity) {
    if (locale != LOCALE_SYSTEM_DEFAULT || time == nullptr || format != nullptr || capacity < 0 ||
        (capacity > 0 && text == nullptr)) {
        return ERROR_INVALID_PARAMETER;
    }
    return (flags & ~allowed) != 0 ? ERROR_INVALID_FLAGS : ERROR_SUCCESS;
}

int fail(DWORD code) {
    SetLastError(code);
    return 0;
}

int write(std::u16string_view format, const SYSTEMTIME &time, WCHAR *text, int capacity) {
    std::tm fields{};
    fields.tm_year = time.wYear - 1900;
    fields.tm_mon = time.wMonth - 1;
    fields.tm_mday = time.wDay;
    fields.tm_hour = time.wHour;
    fields.tm_min = time.wMinute;
    fields.tm_sec = time.wSecond;
    WCHAR written[256];  // forms are far shorter
    int error = 0;
    const std::size_t length = ostrel_platform::write_time(
        &system_forms(), format, fields, kLastYear, written, std::size(written), &error);
    const int size = static_cast<int>(length) + 1;
    if (capacity == 0) {
        return size;
    }
    if (size > capacity) {
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::copy_n(written, size, text);
    return size;
}

}  // namespace

int GetDateFormatW(DWORD locale, DWORD flags, const SYSTEMTIME *time, const WCHAR *format,
                   WCHAR *text, int capacity) noexcept {
    const DWORD fault = check(locale, flags, DATE_SHORTDATE, time, format, text, capacity);
    if (fault != ERROR_SUCCESS) {
        return fail(fault);
    }
    return is_date(*time) ? write(system_forms().date, *time, text, capacity)
                          : fail(ERROR_INVALID_PARAMETER);
}

int GetTimeFormatW(DWORD locale, DWORD flags, const SYSTEMTIME *time, const WCHAR *format,
                   WCHAR *text, int capacity) noexcept {
    const DWORD fault = check(locale, flags, 0, time, format, text, capacity);
    if (fault != ERROR_SUCCESS) {
        return fail(fault);
    }
    return is_clock(*time) ? write(system_forms().time, *time, text, capacity)
                           : fail(ERROR_INVALID_PARAMETER);
}
