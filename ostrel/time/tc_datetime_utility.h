#ifndef OSTREL_TIME_TC_DATETIME_UTILITY_H
#define OSTREL_TIME_TC_DATETIME_UTILITY_H

// Calendar times and spans of seconds.
//
//   OS::CTime start(2026, 3, 29, 1, 30, 0);            // local time
//   OS::CTime end = start + OS::CTimeSpan(0, 2, 0, 0);
//   OS::CTime distance = end - start;                  // 0 days, 2 hours
//   OS::x_wstring text = end.ToGMTime().GetDBTimeString();
//
// The local zone is that of ostrel/platform/timezone.h. What needs milliseconds, or has to know
// whether daylight time applied, takes CTimeEx (time_ex.h).
//
// Threads: objects of their own on each thread. Reading is writing here: see CTime.

#include <cstdint>
#include <ctime>

#include "ostrel/core/api.h"
#include "ostrel/core/exception.h"
#include "ostrel/core/x_string.h"
#include "ostrel/platform/types.h"

namespace OS {

// A signed count of seconds. The accessors that are 32 bits wide give the low 32 bits of what does
// not fit. All divisions truncate toward zero: the parts of a negative span are 0 or negative.
class OSTREL_API CTimeSpan {
public:
    CTimeSpan() noexcept = default;
    CTimeSpan(std::int64_t seconds) noexcept : m_seconds(seconds) {}
    // Worked out in 32 bits: up to 2147483647 seconds.
    CTimeSpan(LONG days, int hours, int minutes, int seconds) noexcept;
    CTimeSpan(const CTimeSpan &) noexcept = default;
    const CTimeSpan &operator=(const CTimeSpan &span) noexcept {
        m_seconds = span.m_seconds;
        return *this;
    }

    LONG GetDays() const noexcept;
    LONG GetTotalHours() const noexcept;
    int GetHours() const noexcept;  // without the days
    LONG GetTotalMinutes() const noexcept;
    int GetMinutes() const noexcept;  // without the hours
    LONG GetTotalSeconds() const noexcept;
    int GetSeconds() const noexcept;  // without the minutes

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

// The fields of a calendar time, as they were given: nothing tests them against a range. What needs
// a scale reads them as local time and takes them through the runtime's _mktime64, whose range is
// 1970-01-01 00:00:00 to 3000-12-31 23:59:59 UTC: a time outside it counts as -1 then. A CTime is
// also the difference of two times: then its fields are amounts.
//
// Comparison, GetTime, and + and - with a span put the fields that they look at in normal form,
// those of a const object too (month 13 becomes January of the next year, the weekday becomes the
// true one): two threads may not even read one object at the same time.
//
// Two values mark what is no time: the empty one, CTime(), and CTime(1900, 1, 1, 0, 0, 0).
class OSTREL_API CTime {
public:
    // The forms of a text, by the order of its fields.
    enum DATETIME_SPEC : int {
        SPEC_MDY_HM = 0,   // 06/04/2019 08:11, also 6/4/2019 8:11
        SPEC_YMD_HM = 1,   // 2019-06-04 08:11
        SPEC_MDY_HMS = 2,  // 06/04/2019 08:11:57
        SPEC_YMD_HMS = 3,  // 2019-06-04 08:11:57
    };

    // The empty time: all fields 0, tm_isdst too.
    CTime() noexcept = default;

    // All nine fields as they stand.
    CTime(const std::tm &fields) noexcept : m_tm(fields) {}

    // In all that follows a year of 1900 or more is a year, one below counts from 1900; a month of
    // 1 or more is a month, one below is January or before it. tm_isdst becomes -1, and the
    // weekday, where it is not told, and the day of the year become 0.

    // The fields of a count in UTC, the weekday among them, without a change of zone. Raises
    // CSystemException for a count of 2^63 or more.
    CTime(FILETIME count);

    // Reads a text. What it does not reach stays 0: a text of another form gives a time that is 0
    // in part or altogether, another `spec` always. The three forms other than SPEC_MDY_HM take as
    // many characters for a field as it has digits, so that each needs all of them.
    CTime(const x_wstring &text, DATETIME_SPEC spec);

    CTime(int year, int month, int day, int hour, int minute, int second) noexcept;

    // A clock without a date, as an amount to be added: the other fields are 0 (the year too).
    CTime(int hour, int minute, int second) noexcept;

    // Local time. Raise CTimeException for a time out of range.
    CTime(std::int64_t time);
    CTime &operator=(std::int64_t time);

    CTime(const CTime &) noexcept = default;
    CTime &operator=(const CTime &) noexcept = default;

    // Now, in local time and in UTC. Raise CTimeException when the clock is out of range.
    static CTime GetCurTime();
    static CTime GetCurGMTime();
    static CTime GetTickCount();  // the same as GetCurTime

    int GetSecond() const noexcept { return m_tm.tm_sec; }
    int GetMinute() const noexcept { return m_tm.tm_min; }
    int GetHour() const noexcept { return m_tm.tm_hour; }
    int GetDay() const noexcept { return m_tm.tm_mday; }
    int GetMonth() const noexcept;  // 1 is January
    int GetYear() const noexcept;
    // The weekday, from 0 and from 1, Sunday; the true one in a time that came from the clock, from
    // a count, or is in normal form.
    int GetWeek() const noexcept { return m_tm.tm_wday; }
    int GetDayOfWeek() const noexcept;

    // The fields as they stand. GetLocalTm changes no zone and takes null; it gives the object's
    // own fields.
    void GetTimeStruct(std::tm &fields) const noexcept { fields = m_tm; }
    const std::tm *GetLocalTm(std::tm *fields) const noexcept;
    operator const std::tm &() const noexcept { return m_tm; }

    // As a count, without a change of zone. Raises CSystemException for fields that are no time of
    // the years 1601 to 30827, each cut to 16 bits.
    void GetTimeStruct(FILETIME &count) const;

    // Compare the times that the fields stand for. Both sides are put in normal form; the left one
    // of == is not.
    bool operator==(const CTime &other) const noexcept;
    bool operator!=(const CTime &other) const noexcept;
    bool operator<(const CTime &other) const noexcept;
    bool operator>(const CTime &other) const noexcept;
    bool operator<=(const CTime &other) const noexcept;
    bool operator>=(const CTime &other) const noexcept;

    // Whether minute, hour, day, month and year are the same, as they stand.
    bool compareToMinute(const CTime &other) const noexcept;

    // Seconds from 1970-01-01 00:00:00 UTC; -1 out of range.
    std::int64_t GetTime() const noexcept;

    // Seconds from `other` to this time. Neither changes. Without a meaning when one of them is out
    // of range.
    double DiffTime(const CTime &other) const noexcept;

    // This clock, read as standard time whatever the date, with the fields of `other` added. The
    // result is local time as it is then: in the period of daylight time an hour later than the sum
    // of the fields. Where the zone's daylight time is ahead by another amount than an hour the
    // result is off by the difference; in a zone without daylight time at present it is the plain
    // sum. Raises CTimeException when it is out of range.
    CTime operator+(const CTime &other) const;

    // The distance in days, hours, minutes and seconds, all negative when this time is the earlier
    // one. A time out of range counts as -1.
    CTime operator-(const CTime &other) const noexcept;

    // Raise CTimeException when the result is out of range. A time out of range counts as -1.
    CTime operator+(CTimeSpan span) const;
    CTime operator-(CTimeSpan span) const;

    // Turn local time into UTC, which raises CTimeException when it is out of range, and UTC into
    // local time, which gives a marker then: the empty time, or 1900-01-01 when the result is out
    // of range. ToLocalTime goes by operator+ and the standard offset of the present: for a time
    // when the zone had another, CTime(std::int64_t) is right.
    CTime &ToGMTime();
    CTime &ToLocalTime();

    // The same moment on the clock of another zone, as operator+ gives it. Biases are minutes from
    // the clock to UTC, positive west of Greenwich. Markers as above.
    CTime ConvertTimeZoneTime(LONG sourceBias, LONG targetBias) const;

    // The days of a month, from 1970 on to the end of 3000; CTimeException out of range, to which,
    // west of Greenwich and in UTC, December 3000 belongs: the day after it is looked at. Month 0
    // is January, one above 12 or below 0 has 28.
    static int GetLastDayOfMonth(int year, int month);
    bool IsLastDayOfMonth() const;

    // Text by a format of the runtime's wcsftime (ostrel/platform/time.h); null is "%c", in
    // GetLongTimeString "%#c". The fields are printed as they stand. Empty when they are out of
    // range, also when read as UTC, and when the text has more than 1023 characters.
    x_wstring GetTimeString(const WCHAR *format) const;
    x_wstring GetLongTimeString(const WCHAR *format) const;
    x_wstring Format(const WCHAR *format) const { return GetTimeString(format); }

    // "2019-06-04 08:11:57", without any test.
    x_wstring GetDBTimeString() const;

    // As the system's locale writes them: the short date, the time, both with a blank between.
    // What cannot be written is left out, the blank is not.
    x_wstring GetLocaleDateString() const;
    x_wstring GetLocaleTimeString() const;
    x_wstring GetLocaleDateTimeString() const;

private:
    void SetDate(int year, int month, int day) noexcept;
    void SetClock(int hour, int minute, int second) noexcept;
    void SetLocal(std::int64_t time);

    mutable std::tm m_tm = {};  // put in normal form where it is looked at
};

}  // namespace OS

#endif  // OSTREL_TIME_TC_DATETIME_UTILITY_H
