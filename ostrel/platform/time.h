#ifndef OSTREL_PLATFORM_TIME_H
#define OSTREL_PLATFORM_TIME_H

// Calendar time: the runtime's 64-bit time calls, times in units of 100 ns, and times as text.
// timezone.h describes which zone "local" means.
//
//   const std::int64_t now = _time64(nullptr);
//   const std::tm *const fields = _localtime64(&now);
//   WCHAR text[32];
//   if (fields != nullptr && wcsftime(text, 32, TEXT("%Y-%m-%d %H:%M:%S"), fields) != 0) {
//       // text is "1995-03-02 09:05:07"
//   }
//
// All calls use the Gregorian calendar without leap seconds. A 64-bit time counts seconds from
// 1970-01-01 00:00:00 UTC. _localtime64, _gmtime64, _mktime64 and _mkgmtime64 accept and return
// times from 0 to 32535215999, the end of the year 3000 in UTC, and no others.
//
// Implemented with time and clock_gettime, the host's zone data, and ICU's locale data for names
// and forms of other locales.

#include "ostrel/platform/types.h"

#ifdef _WIN32
#include <ctime>
#include <cwchar>
#else

#include <cstddef>
#include <cstdint>
#include <ctime>

// Returns the current time. Also stores it in `*time`, unless `time` is null.
OSTREL_PLATFORM_API std::int64_t _time64(std::int64_t *time) noexcept;

// Convert a time to calendar fields: _localtime64 to local time, _gmtime64 to UTC (tm_isdst 0).
//
// Return a pointer to storage of the calling thread. The thread's next call of either function
// overwrites the storage. On failure, when `time` is null or `*time` is out of range, return null
// and set errno to EINVAL.
OSTREL_PLATFORM_API std::tm *_localtime64(const std::int64_t *time) noexcept;
OSTREL_PLATFORM_API std::tm *_gmtime64(const std::int64_t *time) noexcept;

// Convert calendar fields to a time: _mktime64 from local time, _mkgmtime64 from UTC.
//
// Every field may be out of its range by any amount. The calls ignore tm_wday and tm_yday. On
// success they bring all nine fields into their normal ranges.
//
// _mktime64 reads tm_isdst: 0 is standard time, a positive value is daylight time, and a negative
// value leaves the choice to the zone. With a negative value, a clock reading that occurs twice
// stands for its first occurrence, which is daylight time. A reading that the zone skips is
// converted with the offset in force before the gap, as a rule standard time, so that the result is
// a later reading. With a positive value where the zone has no daylight time at that date, daylight
// time is ahead of standard time by the difference of the current year; the difference is 0 in a
// zone whose _daylight is 0.
//
// Return the time. On failure, when `time` is null or the result is out of range, return -1, set
// errno to EINVAL and leave the fields unchanged.
OSTREL_PLATFORM_API std::int64_t _mktime64(std::tm *time) noexcept;
OSTREL_PLATFORM_API std::int64_t _mkgmtime64(std::tm *time) noexcept;

// Returns the seconds from `start` to `end`. Any times from 0 on are allowed. On failure, when
// either time is negative, returns 0 and sets errno to EINVAL.
OSTREL_PLATFORM_API double _difftime64(std::int64_t end, std::int64_t start) noexcept;

// Stores the current time in UTC, with milliseconds. `time` must not be null.
OSTREL_PLATFORM_API void GetSystemTime(SYSTEMTIME *time) noexcept;

// Returns the milliseconds since the system started, time asleep included. The count returns to 0
// every 2^32 milliseconds (49.7 days); compute the difference of two counts as an unsigned number.
OSTREL_PLATFORM_API DWORD GetTickCount() noexcept;

// Compares two counts of 100 ns as unsigned 64-bit numbers. Neither pointer may be null. Returns -1
// when `left` is smaller, 0 when both are equal, 1 when `left` is greater.
OSTREL_PLATFORM_API LONG CompareFileTime(const FILETIME *left, const FILETIME *right) noexcept;

// Convert between calendar fields and a count of 100 ns from 1601-01-01 00:00:00.
// SystemTimeToFileTime ignores wDayOfWeek. FileTimeToSystemTime fills in wDayOfWeek and discards
// what is smaller than a millisecond.
//
// Return TRUE. On failure return FALSE, leave the target unchanged and set the last error:
//   ERROR_INVALID_PARAMETER  a pointer is null, the fields are not a valid date and time of the
//                            years 1601 to 30827, or the count is 2^63 or more
// The largest count that is accepted lies in the year 30828.
OSTREL_PLATFORM_API BOOL SystemTimeToFileTime(const SYSTEMTIME *time, FILETIME *count) noexcept;
OSTREL_PLATFORM_API BOOL FileTimeToSystemTime(const FILETIME *count, SYSTEMTIME *time) noexcept;

// Writes calendar fields as text. `capacity` is the size of `text` in characters, the NUL included.
// In `format`, `%` and a directive letter are replaced, and every other character is copied. `#`
// between `%` and the letter selects the alternative form.
//
//   a A    name of the weekday, short and long        j      day of the year, 001 to 366
//   b h B  name of the month, short (b, h) and long   m      month, 01 to 12
//   c      date and time; with # the long form        M      minute
//   C      century                                    n t    line feed, tab
//   d e    day, with 0 or a blank in front            p      AM or PM
//   D      %m/%d/%y                                   r      time with AM or PM
//   F      %Y-%m-%d                                   R T    %H:%M, %H:%M:%S
//   g G    year of the ISO week, of two or four       S      second
//          digits                                     u w    weekday: 1 (Monday) to 7, 0 (Sunday)
//   H I    hour, 00 to 23 and 01 to 12                       to 6
//   y Y    year, of two digits and in full            U W V  week: from Sunday, from Monday, ISO
//   x      date; with # the long form                 z Z    offset as +hhmm, name of the zone
//   X      time                                       %      %
//
// `#` also removes leading zeros and blanks from a number, in D, F, r, R and T from each number.
// Apart from c and x, `#` has no effect on the other directives, g and G among them. One E or O
// directly before the letter is ignored, with or without `#`.
//
// z and Z use the zone that GetTimeZoneInformation returns: the local zone's rule of the current
// year, whatever the date in the fields. They write daylight time when tm_isdst is positive and
// that rule has daylight time, and standard time otherwise.
//
// Names and the forms of c, x, X and r are those of the platform's C locale ("Thu Mar  2 09:05:07
// 1995", "Thursday, March 02, 1995"). When the process has set LC_TIME to another locale that ICU
// knows, they are ICU's: x is ICU's short date with the year in full, #x the date with the weekday,
// X the time with seconds, and c is date and time with a blank between them. The calendar is always
// Gregorian, and digits are ASCII. Without memory for ICU's forms, the call uses the C locale's.
//
// Returns the number of characters stored, without the NUL, and leaves errno unchanged; an empty
// text is a success with the result 0. On failure returns 0 and sets errno:
//   ERANGE  the text and its NUL do not fit into `capacity` characters
//   EINVAL  `text`, `format` or `time` is null, or `capacity` is 0
//   EINVAL  a directive is unknown, or the format ends within a directive
//   EINVAL  a field that a directive reads is out of range: year 0 to 9999 (the year of the ISO
//           week too), second 0 to 60, the others as in the calendar; each field is checked by
//           itself (day 1 to 31 in every month)
// The first failure in the format decides. A failed call stores an empty text, or nothing when
// `text` is null or `capacity` is 0.
OSTREL_PLATFORM_API std::size_t wcsftime(WCHAR *text, std::size_t capacity, const WCHAR *format,
                                         const std::tm *time) noexcept;

// For GetDateFormatW and GetTimeFormatW: the only locale, and a flag that GetDateFormatW accepts.
inline constexpr DWORD LOCALE_SYSTEM_DEFAULT = 0x0800;
inline constexpr DWORD DATE_SHORTDATE = 1;

// Write a date, or a time of day, in the form of the system's locale: ICU's short date with the
// year in full, or ICU's time with seconds.
//
// The first of the environment variables LC_ALL, LC_TIME and LANG that is not empty names the
// locale. "C", "POSIX", a locale that ICU does not know and no variable at all mean US English. The
// first of these calls reads the environment; later changes have no effect. If that call has no
// memory for the forms, the process keeps those of US English or, without memory for these too, the
// C locale's.
//
// `locale` is LOCALE_SYSTEM_DEFAULT and `format` is null. `flags` is 0, or DATE_SHORTDATE for a
// date, which changes nothing. GetDateFormatW reads year, month and day; GetTimeFormatW reads hour,
// minute, second and milliseconds. `capacity` is the size of `text` in characters; when it is 0,
// the calls only measure and ignore `text`.
//
// Return the number of characters stored, the NUL included, or with a `capacity` of 0 the number
// that the text needs. On failure return 0, leave `text` unchanged and set the last error:
//   ERROR_INVALID_PARAMETER    `time` is null, `text` is null with a `capacity` above 0, `capacity`
//                              is negative, `locale` is another one, or `format` is not null
//   ERROR_INVALID_PARAMETER    the date is not valid or not of the years 1601 to 30827, or the time
//                              of day is not valid
//   ERROR_INVALID_FLAGS        `flags` has another bit
//   ERROR_INSUFFICIENT_BUFFER  the text and its NUL do not fit
OSTREL_PLATFORM_API int GetDateFormatW(DWORD locale, DWORD flags, const SYSTEMTIME *time,
                                       const WCHAR *format, WCHAR *text, int capacity) noexcept;
OSTREL_PLATFORM_API int GetTimeFormatW(DWORD locale, DWORD flags, const SYSTEMTIME *time,
                                       const WCHAR *format, WCHAR *text, int capacity) noexcept;

#endif

#endif  // OSTREL_PLATFORM_TIME_H
