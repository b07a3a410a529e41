#ifndef OSTREL_PLATFORM_TIMEZONE_H
#define OSTREL_PLATFORM_TIMEZONE_H

// The local time zone, its rule, and conversion from UTC to local time.
//
//   const SYSTEMTIME utc = {2026, 7, 0, 1, 12, 0, 0, 0};  // 2026-07-01 12:00:00
//   SYSTEMTIME local;
//   if (SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) {
//       // local is 14:00:00 in Europe/Berlin
//   }
//
// Implemented with the host's zone data (TZif files, RFC 8536, below /usr/share/zoneinfo/). The
// environment variable TZ is one of these, with or without a colon in front:
//   - the name of a file of the zone database, such as Europe/Berlin
//   - the absolute path of such a file; not in a program that has rights which its caller lacks,
//   such
//     as a set-user-ID program (AT_SECURE)
//   - a rule in the form of POSIX, such as EST5EDT,M3.2.0,M11.1.0, when no zone file has that name
// Without TZ the zone is that of /etc/localtime. Any other TZ gives UTC: an empty one, an unknown
// name, and a name with a part "..". A file that is missing, is damaged, is no regular file or has
// more than 1 MiB gives UTC too. Leap seconds in a file are ignored. A call that runs out of memory
// uses UTC, and the next call tries again.
//
// A change of TZ by _putenv_s takes effect with the next call. A change by the host's setenv and a
// change of /etc/localtime take effect some hundredths of a second later at most. setenv is not
// safe while other threads use the zone; _putenv_s is safe. Two changes have no effect: one of the
// text itself behind a pointer that the program passed to putenv, and one of a file that TZ names,
// which the process reads once.
//
// In a zone with two offsets in a year the smaller one is standard time, also where the database
// has it the other way round (Europe/Dublin, Africa/Casablanca). A standard time of the database
// that lasts longer than a year stays standard time.

#include "ostrel/platform/types.h"

#ifdef _WIN32
#include <ctime>
#else

// Return the zone's rule of the current year, whatever held in earlier years: platform_timezone the
// seconds from local standard time to UTC, positive west of Greenwich; platform_daylight 1 when the
// zone has daylight time and 0 otherwise.
OSTREL_PLATFORM_API LONG platform_timezone() noexcept;
OSTREL_PLATFORM_API int platform_daylight() noexcept;

// The runtime's variables of these names. Each conversion to a number calls the function above.
inline constexpr struct PlatformTimezone {
    operator LONG() const noexcept { return platform_timezone(); }
} _timezone;
inline constexpr struct PlatformDaylight {
    operator int() const noexcept { return platform_daylight(); }
} _daylight;

inline constexpr DWORD TIME_ZONE_ID_UNKNOWN = 0;   // no daylight time this year
inline constexpr DWORD TIME_ZONE_ID_STANDARD = 1;  // daylight time this year, but not at present
inline constexpr DWORD TIME_ZONE_ID_DAYLIGHT = 2;  // daylight time at present
inline constexpr DWORD TIME_ZONE_ID_INVALID = 0xFFFFFFFF;

// The rule of a zone: UTC = local time + Bias + StandardBias or DaylightBias, in minutes.
//
// StandardDate is the moment at which StandardBias begins, on the clock of daylight time.
// DaylightDate is the moment at which DaylightBias begins, on the clock of standard time. With a
// wYear of 0 a date is the wDay-th (1 to 4, 5 is the last) weekday wDayOfWeek of the month wMonth,
// at wHour:wMinute:wSecond. With another wYear a date is day wDay of the month in that year.
// wMonth is 0 in both dates of a zone without daylight time. wMilliseconds is ignored.
struct TIME_ZONE_INFORMATION {
    LONG Bias;
    WCHAR StandardName[32];  // the zone's abbreviation, terminated
    SYSTEMTIME StandardDate;
    LONG StandardBias;
    WCHAR DaylightName[32];  // empty without daylight time
    SYSTEMTIME DaylightDate;
    LONG DaylightBias;
};

// Stores the local zone's rule of the current year, also in a zone that had other rules before or
// has abolished daylight time.
//
// A change that is not on a fixed weekday of a month is stored as the date of this year, with a
// wYear. In a year with one change the other date is the first or the last second of the year.
// StandardBias is 0. An offset that is no whole number of minutes loses its seconds.
//
// Returns TIME_ZONE_ID_STANDARD, TIME_ZONE_ID_DAYLIGHT or TIME_ZONE_ID_UNKNOWN. On failure, when
// `zone` is null, returns TIME_ZONE_ID_INVALID and sets the last error to ERROR_INVALID_PARAMETER.
OSTREL_PLATFORM_API DWORD GetTimeZoneInformation(TIME_ZONE_INFORMATION *zone) noexcept;

// Converts a time in UTC to the clock of a zone.
//
// `zone` null is the local zone, with the rule that held at that time. Any other zone applies its
// rule to every year; a date with a wYear stands for that day of every year. The call ignores
// wDayOfWeek of `utc` and fills in that of `local`. `utc` and `local` may be the same object.
//
// Returns TRUE. On failure returns FALSE, leaves `*local` unchanged and sets the last error:
//   ERROR_INVALID_PARAMETER  `utc` or `local` is null
//   ERROR_INVALID_PARAMETER  `*utc` or the local clock is not a valid date and time of the years
//                            1601 to 30827
//   ERROR_INVALID_PARAMETER  a date of `*zone` is not valid, or only one of them has a wMonth
OSTREL_PLATFORM_API BOOL SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION *zone,
                                                         const SYSTEMTIME *utc,
                                                         SYSTEMTIME *local) noexcept;

// Converts a count of 100 ns in UTC to the local clock, with the offset in force at present,
// whatever the date.
//
// Returns TRUE. On failure returns FALSE, leaves `*local` unchanged and sets the last error:
//   ERROR_INVALID_PARAMETER  a pointer is null, both pointers are equal, or one of the two counts
//                            is 2^63 or more or below 0
OSTREL_PLATFORM_API BOOL FileTimeToLocalFileTime(const FILETIME *utc, FILETIME *local) noexcept;

#endif

#endif  // OSTREL_PLATFORM_TIMEZONE_H
