#ifndef OSTREL_TIME_TC_DATETIME_UTILITY_H
#define OSTREL_TIME_TC_DATETIME_UTILITY_H

// CTime holds the fields of a calendar time; CTimeSpan holds a number of seconds.
//
//   OS::CTime start(2026, 3, 29, 1, 30, 0);            // local time
//   OS::CTime end = start + OS::CTimeSpan(0, 2, 0, 0);
//   OS::CTime distance = end - start;                  // 0 days, 2 hours
//   OS::x_wstring text = end.ToGMTime().GetDBTimeString();
//
// The local zone is that of ostrel/platform/timezone.h. Use CTimeEx (time_ex.h) for milliseconds,
// and to learn whether daylight time applies.
//
// Threads: use an object on one thread at a time. A CTime is not safe even for concurrent reads:
// comparisons, GetTime, and + and - with a span normalise the fields.
// Errors: each call names its exceptions. Functions that return a string also throw std::bad_alloc
// when memory is short.

#include <cstdint>
#include <ctime>

#include "ostrel/core/api.h"
#include "ostrel/core/exception.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/types.h"

namespace OS {

// A signed number of seconds, kept in 64 bits. No member throws. All divisions truncate toward
// zero, so the parts of a negative span are 0 or negative. An accessor that returns 32 bits returns
// the low 32 bits of a number that does not fit. + and - wrap in 64 bits.
class OSTREL_API CTimeSpan {
public:
    CTimeSpan() noexcept = default;
    CTimeSpan(std::int64_t seconds) noexcept : m_seconds(seconds) {}
    // Adds up the parts in 32 bits. A sum outside -2147483648 to 2147483647 seconds wraps.
    CTimeSpan(LONG days, int hours, int minutes, int seconds) noexcept;
    CTimeSpan(const CTimeSpan &) noexcept = default;
    const CTimeSpan &operator=(const CTimeSpan &span) noexcept {
        m_seconds = span.m_seconds;
        return *this;
    }

    // Return the whole span in a unit (GetDays, GetTotal...), or the rest that the next larger unit
    // leaves.
    LONG GetDays() const noexcept;
    LONG GetTotalHours() const noexcept;
    int GetHours() const noexcept;  // without the days, -23 to 23
    LONG GetTotalMinutes() const noexcept;
    int GetMinutes() const noexcept;  // without the hours, -59 to 59
    LONG GetTotalSeconds() const noexcept;
    int GetSeconds() const noexcept;  // without the minutes, -59 to 59

    CTimeSpan operator+(CTimeSpan span) const noexcept;
    CTimeSpan operator-(CTimeSpan span) const noexcept;
    const CTimeSpan &operator+=(CTimeSpan span) noexcept;
    const CTimeSpan &operator-=(CTimeSpan span) noexcept;

    int operator==(CTimeSpan span) const noexcept { return m_seconds == span.m_seconds; }
    int operator!=(CTimeSpan span) const noexcept { return m_seconds != span.m_seconds; }
    int operator<(CTimeSpan span) const noexcept { return m_seconds < span.m_seconds; }
    int operator>(CTimeSpan span) const noexcept { return m_seconds > span.m_seconds; }
    int operator<=(CTimeSpan span) const noexcept { return m_seconds <= span.m_seconds; }
    int operator>=(CTimeSpan span) const noexcept { return m_seconds >= span.m_seconds; }

private:
    friend class CTime;

    std::int64_t m_seconds = 0;
};

// The fields of a calendar time. Nothing checks the fields against a range. The difference of two
// times is a CTime too; its fields are then amounts.
//
// Comparisons, sums and differences read the fields as local time and convert them with the
// runtime's _mktime64. The range of that call is 1970-01-01 00:00:00 to 3000-12-31 23:59:59 UTC. A
// time out of range counts as the number -1 unless the operation says otherwise.
//
// Comparisons, GetTime, and + and - with a span normalise the fields of a time in range, those of a
// const object too: month 13 becomes January of the next year, and the weekday, the day of the year
// and tm_isdst become the true ones.
//
// Two values mean "no time": the empty time CTime(), and CTime(1900, 1, 1, 0, 0, 0).
class OSTREL_API CTime {
public:
    // The forms of a text, named by the order of the fields.
    enum DATETIME_SPEC : int {
        SPEC_MDY_HM = 0,   // 06/04/2019 08:11, also 6/4/2019 8:11
        SPEC_YMD_HM = 1,   // 2019-06-04 08:11
        SPEC_MDY_HMS = 2,  // 06/04/2019 08:11:57
        SPEC_YMD_HMS = 3,  // 2019-06-04 08:11:57
    };

    // Makes the empty time: all nine fields are 0.
    CTime() noexcept = default;

    // Stores all nine fields unchanged.
    CTime(const std::tm &fields) noexcept : m_tm(fields) {}

    // The next four constructors set tm_isdst to -1 and the day of the year to 0, and all but the
    // first set the weekday to 0. A `year` of 1900 or more is the year itself; a smaller one counts
    // from 1900. A `month` of 1 to 12 is January to December; 0 is January too, and -1 is the
    // December before.

    // Converts a count of 100 ns from 1601-01-01 00:00:00, without a change of zone, and sets the
    // weekday. Discards the milliseconds. A year before 1900 counts from 1900 here too: 1601
    // becomes 3501. Throws CSystemException with ERROR_INVALID_PARAMETER for a count of 2^63 or
    // more.
    CTime(FILETIME count);

    // Reads a text of the form `spec`. SPEC_MDY_HM accepts fields with fewer digits. The other
    // forms need every digit: they take a fixed number of characters for a field, and a field that
    // begins with no number is 0.
    //
    // Does not fail for a text of another form: fields that the text does not provide are 0, as the
    // parameters of the next constructor (a year of 0 is 1900). With another `spec` all are 0.
    CTime(const x_wstring &text, DATETIME_SPEC spec);

    // Stores date and time of day. Does not check that they exist.
    CTime(int year, int month, int day, int hour, int minute, int second) noexcept;

    // Makes an amount of hours, minutes and seconds, for + with another CTime. The other fields,
    // tm_year included, are 0.
    CTime(int hour, int minute, int second) noexcept;

    // Convert seconds from 1970-01-01 00:00:00 UTC to local time. Throw CTimeException for a time
    // out of range; the assignment then leaves the object unchanged.
    CTime(std::int64_t time);
    CTime &operator=(std::int64_t time);

    CTime(const CTime &) noexcept = default;
    CTime &operator=(const CTime &) noexcept = default;

    // Return the current time: GetCurTime as local time, GetCurGMTime as UTC. Throw CTimeException
    // when the clock is out of range.
    static CTime GetCurTime();
    static CTime GetCurGMTime();
    static CTime GetTickCount();  // the same as GetCurTime

    // Return the fields as they are, without normalising.
    int GetSecond() const noexcept { return m_tm.tm_sec; }
    int GetMinute() const noexcept { return m_tm.tm_min; }
    int GetHour() const noexcept { return m_tm.tm_hour; }
    int GetDay() const noexcept { return m_tm.tm_mday; }
    int GetMonth() const noexcept;  // 1 is January
    int GetYear() const noexcept;   // the year itself, 1900 for a tm_year of 0
    // Return the weekday; Sunday is 0 for GetWeek and 1 for GetDayOfWeek. It is the true weekday
    // when the time came from the clock, from a 64-bit time or from a FILETIME, or when the fields
    // have been normalised.
    int GetWeek() const noexcept { return m_tm.tm_wday; }
    int GetDayOfWeek() const noexcept;

    // Return or store the fields as they are; GetLocalTm does not convert to local time either.
    // GetLocalTm stores the fields in `*fields`, unless `fields` is null, and returns a pointer to
    // the fields in this object, never null.
    void GetTimeStruct(std::tm &fields) const noexcept { fields = m_tm; }
    const std::tm *GetLocalTm(std::tm *fields) const noexcept;
    operator const std::tm &() const noexcept { return m_tm; }

    // Stores the fields as a count of 100 ns from 1601-01-01 00:00:00, without a change of zone.
    // Takes the low 16 bits of each field. Throws CSystemException with ERROR_INVALID_PARAMETER,
    // and leaves `count` as it was, when the fields are not a valid date and time of the years 1601
    // to 30827.
    void GetTimeStruct(FILETIME &count) const;

    // Compare both sides as local times. Times out of range count as -1, so they are equal to each
    // other and less than any time in range. The operators normalise both sides; == does not
    // normalise the left side.
    bool operator==(const CTime &other) const noexcept;
    bool operator!=(const CTime &other) const noexcept;
    bool operator<(const CTime &other) const noexcept;
    bool operator>(const CTime &other) const noexcept;
    bool operator<=(const CTime &other) const noexcept;
    bool operator>=(const CTime &other) const noexcept;

    // Returns true when the fields for minute, hour, day, month and year are equal. Normalises
    // nothing.
    bool compareToMinute(const CTime &other) const noexcept;

    // Reads the fields as local time and returns the seconds from 1970-01-01 00:00:00 UTC. On
    // failure, for a time out of range, returns -1 and sets errno to EINVAL.
    std::int64_t GetTime() const noexcept;

    // Returns the seconds from `other` to this time; normalises neither. On failure, when either is
    // out of range, returns 0 and sets errno to EINVAL.
    double DiffTime(const CTime &other) const noexcept;

    // Adds the fields of `other`, an amount, and returns local time. Reads this time as standard
    // time, whatever the date: when daylight time applies at the result, the result is an hour
    // later than the sum of the fields. In a zone whose rule of the current year has no daylight
    // time the result is the plain sum. In a zone whose daylight time is ahead by another amount
    // than an hour the result is off by the difference. Normalises neither operand. Only the result
    // must be in range: throws CTimeException when it is not.
    CTime operator+(const CTime &other) const;

    // Returns the distance from `other` to this time as an amount of days, hours, minutes and
    // seconds; tm_year and tm_mon are 0. No part is positive when this time is the earlier one. A
    // time out of range counts as -1. Normalises neither operand.
    CTime operator-(const CTime &other) const noexcept;

    // Add or subtract a span and return local time. A time out of range counts as -1. Throw
    // CTimeException when the result is out of range.
    CTime operator+(CTimeSpan span) const;
    CTime operator-(CTimeSpan span) const;

    // Converts this object from local time to UTC and returns it. Throws CTimeException when the
    // time is out of range; tm_isdst is then -1 and the other fields are unchanged.
    CTime &ToGMTime();

    // Converts this object from UTC to local time and returns it. The conversion is that of
    // ConvertTimeZoneTime from UTC to the standard offset of the zone's rule of the current year.
    // For a date at which the zone had another offset, use CTime(std::int64_t) instead. On failure
    // stores what ConvertTimeZoneTime returns on failure; throws no CTimeException.
    CTime &ToLocalTime();

    // Returns the same moment on the clock of another zone, as operator+ computes it: in daylight
    // time of the local zone an hour later. Each bias is the number of minutes from the zone's
    // clock to UTC, positive west of Greenwich. On failure returns the empty time when this time,
    // read as local time, is out of range, and CTime(1900, 1, 1, 0, 0, 0) when the result is out of
    // range; throws no CTimeException.
    CTime ConvertTimeZoneTime(LONG sourceBias, LONG targetBias) const;

    // Returns the number of days of a month, 28 to 31. `year` and `month` count as in the
    // constructors; month 0 is January, and a month above 12 or below 0 has 28 days. Throws
    // CTimeException for a month that is not within 1970 to 3000. In UTC and west of Greenwich
    // December 3000 throws too, because the call computes the day after it.
    static int GetLastDayOfMonth(int year, int month);

    // Returns true when the day is the last day of its month, by GetLastDayOfMonth, whose exception
    // passes through.
    bool IsLastDayOfMonth() const;

    // Return the fields, without normalising, in a format of the runtime's wcsftime
    // (ostrel/platform/time.h). A null `format` is "%c" for GetTimeString and Format, and "%#c" for
    // GetLongTimeString.
    //
    // On failure return the empty string: when the fields, read as UTC, are not within 1970 to
    // 3000, when wcsftime refuses the format or a field, and when the text has more than 1023
    // characters.
    x_wstring GetTimeString(const WCHAR *format) const;
    x_wstring GetLongTimeString(const WCHAR *format) const;
    x_wstring Format(const WCHAR *format) const { return GetTimeString(format); }

    // Returns the fields in the form "2019-06-04 08:11:57". Accepts any fields: negative and longer
    // numbers appear in full.
    x_wstring GetDBTimeString() const;

    // Return the short date, the time, and both with a blank between them, in the form of the
    // system's locale (GetDateFormatW and GetTimeFormatW, ostrel/platform/time.h). The string of a
    // date or time that is not valid, or of more than 30 characters, is empty; the blank stays.
    x_wstring GetLocaleDateString() const;
    x_wstring GetLocaleTimeString() const;
    x_wstring GetLocaleDateTimeString() const;

private:
    void SetDate(int year, int month, int day) noexcept;
    void SetClock(int hour, int minute, int second) noexcept;
    void SetLocal(std::int64_t time);

    mutable std::tm m_tm = {};  // const members normalise it
};

}  // namespace OS

#endif  // OSTREL_TIME_TC_DATETIME_UTILITY_H
