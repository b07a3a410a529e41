#ifndef OSTREL_PLATFORM_TIMEZONE_H
#define OSTREL_PLATFORM_TIMEZONE_H

// The local time zone.
//
// Zone data is the host's (TZif files, RFC 8536): the environment variable TZ names a file of the
// zone database, such as Europe/Berlin, or a file by its absolute path, or holds a rule in the form
// of POSIX, such as EST5EDT,M3.2.0,M11.1.0; a colon in front is ignored. Without TZ the zone is
// that of /etc/localtime. An empty TZ, a name that is not known or has a part "..", a file that is
// broken and a missing database give UTC. Leap seconds that a file may list are passed over.
//
// A TZ that the program changes by _putenv_s takes effect with the next call, one that it changes
// by the host's setenv at the latest, as a change of /etc/localtime, some hundredths of a second
// later. setenv is not safe beside other threads that use the zone; _putenv_s is. A text that
// putenv was given and that is changed in place is not noticed, and a file that TZ names is read
// once in the life of the process.
//
// Where a zone has two offsets in a year, the smaller one is its standard time, also where the
// database says it the other way round (Europe/Dublin, Africa/Casablanca); a standard time of the
// database that lasts longer than a year remains one.

#include "ostrel/platform/types.h"

#ifdef _WIN32
#include <ctime>
#else

// Seconds from local standard time to UTC, positive west of Greenwich, and 1 when the zone has
// daylight time, 0 when not. Both are what the zone has at present, whatever it had before.
OSTREL_PLATFORM_API LONG platform_timezone() noexcept;
OSTREL_PLATFORM_API int platform_daylight() noexcept;

// They read as numbers.
inline constexpr struct PlatformTimezone {
    operator LONG() const noexcept { return platform_timezone(); }
} _timezone;
inline constexpr struct PlatformDaylight {
    operator int() const noexcept { return platform_daylight(); }
} _daylight;

inline constexpr DWORD TIME_ZONE_ID_UNKNOWN = 0;   // the zone has no daylight time
inline constexpr DWORD TIME_ZONE_ID_STANDARD = 1;  // it has, but not now
inline constexpr DWORD TIME_ZONE_ID_DAYLIGHT = 2;
inline constexpr DWORD TIME_ZONE_ID_INVALID = 0xFFFFFFFF;

// UTC = local time + Bias + StandardBias or DaylightBias, in minutes.
//
// A date is when the other bias begins, on the clock of the bias that ends: in month wMonth on the
// wDay-th weekday wDayOfWeek (5 is the last), at wHour:wMinute:wSecond; or, with a wYear that is
// not 0, on day wDay of the month in that year. wMonth 0 in both dates: no daylight time. What is
// smaller than a second is not looked at.
struct TIME_ZONE_INFORMATION {
    LONG Bias;
    WCHAR StandardName[32];  // the zone's abbreviation, terminated
    SYSTEMTIME StandardDate;
    LONG StandardBias;
    WCHAR DaylightName[32];  // empty without daylight time
    SYSTEMTIME DaylightDate;
    LONG DaylightBias;
};

// The rule of the local zone that is in force at present: that of this year. A zone that had other
// rules before, or abolished daylight time, is told as it is now. A rule that is no nth weekday of
// a month is given with the dates of this year; in a year with one change the other date is the
// first or the last second of the year. An offset that is no whole number of minutes is cut to one.
//
// Result: TIME_ZONE_ID_STANDARD, _DAYLIGHT or _UNKNOWN; TIME_ZONE_ID_INVALID, with
// ERROR_INVALID_PARAMETER, for null.
OSTREL_PLATFORM_API DWORD GetTimeZoneInformation(TIME_ZONE_INFORMATION *zone) noexcept;

// The clock of a zone for a time in UTC. `zone` null is the local zone, with the rules that were in
// force at that time; a given one applies its own rule to every year, a date with a wYear as that
// day of every year. The day of the week of `utc` is not looked at, that of `local` is filled in.
// The two may be the same.
//
// Result: not 0; 0, with ERROR_INVALID_PARAMETER, for fields that are no time of the years 1601 to
// 30827, for a zone whose dates are none, also one of the two alone, and for null.
OSTREL_PLATFORM_API BOOL SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION *zone,
                                                         const SYSTEMTIME *utc,
                                                         SYSTEMTIME *local) noexcept;

// The local clock for a count of 100 ns in UTC, by the bias of now, whatever the date. Result: not
// 0; 0, with ERROR_INVALID_PARAMETER, when a pointer is null, the two are the same, or the clock is
// out of the range of a count below 2^63.
OSTREL_PLATFORM_API BOOL FileTimeToLocalFileTime(const FILETIME *utc, FILETIME *local) noexcept;

#endif

#endif  // OSTREL_PLATFORM_TIMEZONE_H
