#include "ostrel/time/tc_datetime_utility.h"

#include <algorithm>
#include <climits>
#include <iterator>

#include "ostrel/core/trace.h"
#include "ostrel/platform/crt_text.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/scanf.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/timezone.h"
#include "ostrel/time/system_fields.h"
#include "ostrel/time/wrapping.h"

namespace OS {
namespace {

using detail::system_fields;
using detail::wrapping_add;

#define OSTREL_RAISE_TIME() throw CTimeException(0, OSTREL_SOURCE_FILE, __LINE__)

constexpr int kYearZero = 1900;

constexpr int stored_year(int year) {
    return year >= kYearZero ? year - kYearZero : year;
}

constexpr int stored_month(int month) {
    return month >= 1 ? month - 1 : month;
}

// Returns the fields that a call of the runtime returned. Throws CTimeException for null.
const std::tm &checked(const std::tm *fields) {
    if (fields == nullptr) {
        OSTREL_RAISE_TIME();
    }
    return *fields;
}

std::int64_t time_of(std::tm fields) {
    return _mktime64(&fields);
}

// Carries a field that needs more than 32 bits into the next larger one. `size` units of the field
// make one unit of the larger field.
void carry(std::int64_t *field, std::int64_t size, std::int64_t *larger) {
    if (*field < INT_MIN || *field > INT_MAX) {
        *larger += *field / size;
        *field %= size;
    }
}

int nearest_int(std::int64_t value) {
    return static_cast<int>(std::clamp<std::int64_t>(value, INT_MIN, INT_MAX));
}

// Returns fields that _mktime64 reads as the sum, whatever the fields are. A sum of days or years
// that does not fit 32 bits is out of range for _mktime64 anyway.
std::tm sum(const std::tm &left, const std::tm &right, int more_hours) {
    std::int64_t second = std::int64_t{left.tm_sec} + right.tm_sec;
    std::int64_t minute = std::int64_t{left.tm_min} + right.tm_min;
    std::int64_t hour = std::int64_t{left.tm_hour} + right.tm_hour + more_hours;
    std::int64_t day = std::int64_t{left.tm_mday} + right.tm_mday;
    std::int64_t month = std::int64_t{left.tm_mon} + right.tm_mon;
    std::int64_t year = std::int64_t{left.tm_year} + right.tm_year;
    carry(&second, 60, &minute);
    carry(&minute, 60, &hour);
    carry(&hour, 24, &day);
    carry(&month, 12, &year);
    std::tm fields = left;
    fields.tm_sec = static_cast<int>(second);
    fields.tm_min = static_cast<int>(minute);
    fields.tm_hour = static_cast<int>(hour);
    fields.tm_mday = nearest_int(day);
    fields.tm_mon = static_cast<int>(month);
    fields.tm_year = day == fields.tm_mday ? nearest_int(year) : INT_MAX;  // out of range
    return fields;
}

// Returns the date or the time in the form of the system's locale; empty when `call` fails.
template <class Call>
x_wstring locale_text(Call call, DWORD flags, const std::tm &fields) {
    const SYSTEMTIME time = system_fields(fields);
    WCHAR text[32] = {};
    call(LOCALE_SYSTEM_DEFAULT, flags, &time, nullptr, text, 31);
    return text;
}

x_wstring locale_date(const std::tm &fields) {
    return locale_text(GetDateFormatW, DATE_SHORTDATE, fields);
}

x_wstring locale_time(const std::tm &fields) {
    return locale_text(GetTimeFormatW, 0, fields);
}

x_wstring time_string(const std::tm &fields, const WCHAR *format) {
    std::tm copy = fields;
    if (_mkgmtime64(&copy) == -1) {
        return {};
    }
    WCHAR text[1024] = {};
    wcsftime(text, std::size(text), format, &fields);
    return text;
}

void put_digits(WCHAR *text, int count, int value) {
    for (; count > 0; --count, value /= 10) {
        text[count - 1] = static_cast<WCHAR>(u'0' + value % 10);
    }
}

}  // namespace

CTime::CTime(FILETIME count) {
    SYSTEMTIME time = {};
    if (!FileTimeToSystemTime(&count, &time)) {
        OSTREL_RAISE_SYSTEM(static_cast<int>(GetLastError()));
    }
    SetDate(time.wYear, time.wMonth, time.wDay);
    SetClock(time.wHour, time.wMinute, time.wSecond);
    m_tm.tm_wday = time.wDayOfWeek;
}

CTime::CTime(const x_wstring &text, DATETIME_SPEC spec) {
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    // For the forms whose fields have a fixed number of characters.
    WCHAR y[5] = {};
    WCHAR mo[5] = {};
    WCHAR d[5] = {};
    WCHAR h[5] = {};
    WCHAR mi[5] = {};
    WCHAR s[5] = {};
    switch (spec) {
        case SPEC_MDY_HM:
            swscanf(text.c_str(), TEXT("%2d/%2d/%4d %2d:%2d"), &month, &day, &year, &hour, &minute);
            break;
        case SPEC_YMD_HM:
            swscanf(text.c_str(), TEXT("%4s-%2s-%2s %2s:%2s"), y, mo, d, h, mi);
            break;
        case SPEC_MDY_HMS:
            swscanf(text.c_str(), TEXT("%2s/%2s/%4s %2s:%2s:%2s"), mo, d, y, h, mi, s);
            break;
        case SPEC_YMD_HMS:
            swscanf(text.c_str(), TEXT("%4s-%2s-%2s %2s:%2s:%2s"), y, mo, d, h, mi, s);
            break;
    }
    if (spec != SPEC_MDY_HM) {
        year = _wtoi(y);
        month = _wtoi(mo);
        day = _wtoi(d);
        hour = _wtoi(h);
        minute = _wtoi(mi);
        second = _wtoi(s);
    }
    SetDate(year, month, day);
    SetClock(hour, minute, second);
}

CTime::CTime(int year, int month, int day, int hour, int minute, int second) noexcept {
    SetDate(year, month, day);
    SetClock(hour, minute, second);
}

CTime::CTime(int hour, int minute, int second) noexcept {
    SetClock(hour, minute, second);
}

CTime::CTime(std::int64_t time) {
    SetLocal(time);
}

CTime &CTime::operator=(std::int64_t time) {
    SetLocal(time);
    return *this;
}

void CTime::SetDate(int year, int month, int day) noexcept {
    m_tm.tm_year = stored_year(year);
    m_tm.tm_mon = stored_month(month);
    m_tm.tm_mday = day;
}

void CTime::SetClock(int hour, int minute, int second) noexcept {
    m_tm.tm_hour = hour;
    m_tm.tm_min = minute;
    m_tm.tm_sec = second;
    m_tm.tm_isdst = -1;
}

void CTime::SetLocal(std::int64_t time) {
    m_tm = checked(_localtime64(&time));
}

CTime CTime::GetCurTime() {
    return _time64(nullptr);
}

CTime CTime::GetCurGMTime() {
    const std::int64_t now = _time64(nullptr);
    return checked(_gmtime64(&now));
}

CTime CTime::GetTickCount() {
    return GetCurTime();
}

int CTime::GetMonth() const noexcept {
    return wrapping_add(m_tm.tm_mon, 1);
}

int CTime::GetYear() const noexcept {
    return wrapping_add(m_tm.tm_year, kYearZero);
}

int CTime::GetDayOfWeek() const noexcept {
    return wrapping_add(m_tm.tm_wday, 1);
}

const std::tm *CTime::GetLocalTm(std::tm *fields) const noexcept {
    if (fields != nullptr) {
        *fields = m_tm;
    }
    return &m_tm;
}

void CTime::GetTimeStruct(FILETIME &count) const {
    const SYSTEMTIME time = system_fields(m_tm);
    if (!SystemTimeToFileTime(&time, &count)) {
        OSTREL_RAISE_SYSTEM(static_cast<int>(GetLastError()));
    }
}

bool CTime::operator==(const CTime &other) const noexcept {
    const std::int64_t left = time_of(m_tm);
    return left == _mktime64(&other.m_tm);
}

bool CTime::operator!=(const CTime &other) const noexcept {
    const std::int64_t left = _mktime64(&m_tm);
    return left != _mktime64(&other.m_tm);
}

bool CTime::operator<(const CTime &other) const noexcept {
    const std::int64_t left = _mktime64(&m_tm);
    return left < _mktime64(&other.m_tm);
}

bool CTime::operator>(const CTime &other) const noexcept {
    const std::int64_t left = _mktime64(&m_tm);
    return left > _mktime64(&other.m_tm);
}

bool CTime::operator<=(const CTime &other) const noexcept {
    return !(*this > other);
}

bool CTime::operator>=(const CTime &other) const noexcept {
    return !(*this < other);
}

bool CTime::compareToMinute(const CTime &other) const noexcept {
    return m_tm.tm_min == other.m_tm.tm_min && m_tm.tm_hour == other.m_tm.tm_hour &&
           m_tm.tm_mday == other.m_tm.tm_mday && m_tm.tm_mon == other.m_tm.tm_mon &&
           m_tm.tm_year == other.m_tm.tm_year;
}

std::int64_t CTime::GetTime() const noexcept {
    return _mktime64(&m_tm);
}

double CTime::DiffTime(const CTime &other) const noexcept {
    const std::int64_t end = time_of(m_tm);
    return _difftime64(end, time_of(other.m_tm));
}

// The sum adds an hour in a zone with daylight time, and tm_isdst 1 makes _mktime64 subtract the
// daylight bias. Where that bias is an hour, both cancel out, and the fields count as standard
// time.
CTime CTime::operator+(const CTime &other) const {
    std::tm fields = sum(m_tm, other.m_tm, _daylight);
    fields.tm_isdst = 1;
    return _mktime64(&fields);
}

CTime CTime::operator-(const CTime &other) const noexcept {
    const std::int64_t end = time_of(m_tm);
    const std::int64_t seconds = end - time_of(other.m_tm);
    // The divisions truncate, so each part has the sign of the whole or is 0.
    return CTime(0, 0, static_cast<int>(seconds / 86400), static_cast<int>(seconds / 3600 % 24),
                 static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
}

CTime CTime::operator+(CTimeSpan span) const {
    return wrapping_add(_mktime64(&m_tm), span.m_seconds);
}

CTime CTime::operator-(CTimeSpan span) const {
    return detail::wrapping_subtract(_mktime64(&m_tm), span.m_seconds);
}

CTime &CTime::ToGMTime() {
    m_tm.tm_isdst = -1;
    const std::int64_t time = _mktime64(&m_tm);
    if (time == -1) {
        OSTREL_RAISE_TIME();
    }
    m_tm = checked(_gmtime64(&time));
    return *this;
}

CTime &CTime::ToLocalTime() {
    m_tm.tm_isdst = 0;
    return *this = ConvertTimeZoneTime(0, _timezone / 60);
}

CTime CTime::ConvertTimeZoneTime(LONG sourceBias, LONG targetBias) const {
    // Both values that mean "no time" are out of range, so this test covers them.
    if (time_of(m_tm) == -1) {
        return {};
    }
    const std::int64_t minutes = std::int64_t{sourceBias} - targetBias;
    try {
        return *this + CTime(static_cast<int>(minutes / 60), static_cast<int>(minutes % 60), 0);
    } catch (const CTimeException &) {
        return CTime(1900, 1, 1, 0, 0, 0);
    }
}

int CTime::GetLastDayOfMonth(int year, int month) {
    const CTime one_day(0, 0, 1, 0, 0, 0);
    for (int day = 28;; ++day) {
        const CTime date(year, month, day, 0, 0, 0);
        // Ends at day 31, also in a zone in which a day of standard time has more than 25 hours.
        if ((date + one_day).m_tm.tm_mon != date.m_tm.tm_mon || day == 31) {
            return day;
        }
    }
}

bool CTime::IsLastDayOfMonth() const {
    return GetLastDayOfMonth(GetYear(), GetMonth()) == m_tm.tm_mday;
}

x_wstring CTime::GetTimeString(const WCHAR *format) const {
    return time_string(m_tm, format != nullptr ? format : TEXT("%c"));
}

x_wstring CTime::GetLongTimeString(const WCHAR *format) const {
    return time_string(m_tm, format != nullptr ? format : TEXT("%#c"));
}

x_wstring CTime::GetDBTimeString() const {
    struct Field {
        int value;
        int digits;
        int limit;
    };
    const Field fields[] = {{GetYear(), 4, 10000},  {GetMonth(), 2, 100},  {m_tm.tm_mday, 2, 100},
                            {m_tm.tm_hour, 2, 100}, {m_tm.tm_min, 2, 100}, {m_tm.tm_sec, 2, 100}};
    // Writes the digits directly. Only a field that does not fit its width needs Format.
    WCHAR text[] = TEXT("0000-00-00 00:00:00");
    WCHAR *at = text;
    for (const Field &field : fields) {
        if (field.value < 0 || field.value >= field.limit) {
            x_wstring any;
            any.Format(TEXT("%04i-%02i-%02i %02i:%02i:%02i"), GetYear(), GetMonth(), m_tm.tm_mday,
                       m_tm.tm_hour, m_tm.tm_min, m_tm.tm_sec);
            return any;
        }
        put_digits(at, field.digits, field.value);
        at += field.digits + 1;
    }
    return text;
}

x_wstring CTime::GetLocaleDateString() const {
    return locale_date(m_tm);
}

x_wstring CTime::GetLocaleTimeString() const {
    return locale_time(m_tm);
}

x_wstring CTime::GetLocaleDateTimeString() const {
    return locale_date(m_tm) + TEXT(' ') + locale_time(m_tm);
}

}  // namespace OS
