#ifndef OSTREL_PLATFORM_TIME_H
#define OSTREL_PLATFORM_TIME_H

// Calendar time: the runtime's 64-bit time calls, times of 100 ns, and their text forms. The zone
// that "local" means is told in timezone.h.
//
// The Gregorian calendar without leap seconds. A time of 64 bits counts seconds from 1970-01-01
// 00:00:00 UTC; the runtime's calls take 0 to 32535215999, the end of the year 3000 in UTC, and no
// others.

#include "ostrel/platform/types.h"

#ifdef _WIN32
#include <ctime>
#include <cwchar>
#else

#include <cstddef>
#include <cstdint>
#include <ctime>

// The present time. It is stored in `*time` too, unless `time` is null.
OSTREL_PLATFORM_API std::int64_t _time64(std::int64_t *time) noexcept;

// The calendar fields of a time, local or UTC (tm_isdst 0). Result: storage of the thread, which
// the next of the two calls overwrites; null, with errno EINVAL, for a null pointer and for a time
// out of range.
OSTREL_PLATFORM_API std::tm *_localtime64(const std::int64_t *time) noexcept;
OSTREL_PLATFORM_API std::tm *_gmtime64(const std::int64_t *time) noexcept;

// The time that fields stand for, which may be out of their ranges in any way; tm_wday and tm_yday
// are not looked at. On success all nine fields are put in normal form.
//
// _mktime64 takes them as local time: with tm_isdst 0 as standard time, with a positive tm_isdst as
// daylight time, with a negative one as what the zone has then. Of a clock that comes twice that is
// the first, daylight time; one that is skipped is read by the offset in front of the gap, standard
// time as a rule, so that it comes out later. _mkgmtime64 takes them as UTC.
//
// Where the zone has no daylight time at that date, a daylight clock is ahead of standard time by
// what it is ahead in the present year: by nothing in a zone whose _daylight is 0.
//
// Result: -1, with errno EINVAL and the fields as they were, when the time is out of range or
// `time` is null.
OSTREL_PLATFORM_API std::int64_t _mktime64(std::tm *time) noexcept;
OSTREL_PLATFORM_API std::int64_t _mkgmtime64(std::tm *time) noexcept;

// The seconds from `start` to `end`; 0, with errno EINVAL, when one of them is negative.
OSTREL_PLATFORM_API double _difftime64(std::int64_t end, std::int64_t start) noexcept;

// The present time in UTC, to the millisecond.
OSTREL_PLATFORM_API void GetSystemTime(SYSTEMTIME *time) noexcept;

// Milliseconds since the system started; 0 follows 2^32 - 1, after 49.7 days. Take the difference
// of two as an unsigned number.
OSTREL_PLATFORM_API DWORD GetTickCount() noexcept;

// Which of two counts of 100 ns is the smaller, as unsigned numbers: -1 for the left one, 0 when
// they are equal, 1 for the right one. Neither may be null.
OSTREL_PLATFORM_API LONG CompareFileTime(const FILETIME *left, const FILETIME *right) noexcept;

// Between fields and a count of 100 ns from 1601-01-01 00:00:00. The day of the week is not looked
// at in fields, and filled in.
//
// Result: not 0; 0, with ERROR_INVALID_PARAMETER, for fields that are no time of the years 1601 to
// 30827, for a count of 2^63 or more, and for a null pointer.
OSTREL_PLATFORM_API BOOL SystemTimeToFileTime(const SYSTEMTIME *time, FILETIME *count) noexcept;
OSTREL_PLATFORM_API BOOL FileTimeToSystemTime(const FILETIME *count, SYSTEMTIME *time) noexcept;

// The text of fields by a format: `%` and a directive, with `#` between them for the alternative
// form; everything else stands for itself. `text` holds `room` characters.
//
//   a A    name of the weekday, short and long        j      day of the year, 001 to 366
//   b h B  name of the month, short and long          m      month, 01 to 12
//   c      date and time; # in the long form          M      minute
//   C      century                                    n t    line feed, tab
//   d e    day, with 0 or a blank in front            p      AM or PM
//   D      %m/%d/%y                                   r      time with AM or PM
//   F      %Y-%m-%d                                   R T    %H:%M, %H:%M:%S
//   g G    year of the ISO week, of two or four       S      second
//          digits                                     u w    weekday, 1 (Monday) to 7, 0 (Sunday)
//   H I    hour, 00 to 23 and 01 to 12                       to 6
//   y Y    year, of two digits and in full            U W V  week, from Sunday, from Monday, of ISO
//   x      date; # in the long form                   z Z    offset as +hhmm, name of the zone
//   X      time                                       %      %
//
// # takes zeros and blanks off the front of a number, those of D, F, r, R and T too, and has no
// effect on g and G and elsewhere. E and O in front of a directive, behind #, are ignored. z and Z
// tell daylight time when tm_isdst is positive and the zone has it, else standard time.
//
// Names and the forms of c, x, X and r are those of the C locale of the platform ("Thu Mar  2
// 09:05:07 1995", "Thursday, March 02, 1995"), or, when the process has set another for LC_TIME
// that ICU knows, those of ICU: x is its short date with the year in full, # its date with the
// weekday, X its time with seconds, c the two with a blank between. The calendar is always the
// Gregorian one, digits are ASCII.
//
// Result: the characters stored, without the NUL. 0, with an empty text in `text`, when it does not
// fit (errno ERANGE), and, with EINVAL, for a null pointer, a room of 0 (nothing is stored), an
// unknown directive, a lone % at the end, and a field out of its range (those that the directive
// reads: year 0 to 9999, also of the ISO week, second 0 to 60, the others as calendars have them,
// each by itself).
OSTREL_PLATFORM_API std::size_t wcsftime(WCHAR *text, std::size_t capacity, const WCHAR *format,
                                         const std::tm *time) noexcept;

// The date and the time of fields as the system's locale writes them (of LC_ALL, LC_TIME and LANG
// the first that is not empty, read as text; "C", "POSIX" and none are US English).
inline constexpr DWORD LOCALE_SYSTEM_DEFAULT = 0x0800;
inline constexpr DWORD DATE_SHORTDATE = 1;

// The environment is read at the first of these calls and then no more. A locale that ICU does not
// know is US English too.
//
// `locale` is LOCALE_SYSTEM_DEFAULT, `format` null. `flags` is DATE_SHORTDATE or 0 for a date, 0
// for a time. A date is one of the years 1601 to 30827; the day of the week is not looked at.
// `text` holds `room` characters and is left as it was on failure.
//
// Result: the characters stored, the NUL included; with room 0 how many there would be. 0 on
// failure, with the last error ERROR_INSUFFICIENT_BUFFER, ERROR_INVALID_FLAGS or
// ERROR_INVALID_PARAMETER (fields that are no date or no time, null pointers, another locale or a
// format).
OSTREL_PLATFORM_API int GetDateFormatW(DWORD locale, DWORD flags, const SYSTEMTIME *time,
                                       const WCHAR *format, WCHAR *text, int capacity) noexcept;
OSTREL_PLATFORM_API int GetTimeFormatW(DWORD locale, DWORD flags, const SYSTEMTIME *time,
                                       const WCHAR *format, WCHAR *text, int capacity) noexcept;

#endif

#endif  // OSTREL_PLATFORM_TIME_H
