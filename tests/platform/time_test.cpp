// The runtime's calendar calls and those on SYSTEMTIME, with the host's as a measure.

#include "ostrel/platform/time.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ostrel/platform/error.h"
#include "ostrel/platform/timezone.h"
#include "support/temp_dir.h"
#include "support/zone_bytes.h"
#include "support/zone_scope.h"

namespace {

constexpr std::int64_t kLast = 32535215999;

std::tm fields(int year, int month, int day, int hour = 0, int minute = 0, int isdst = -1) {
    std::tm of{};
    of.tm_year = year - 1900;
    of.tm_mon = month - 1;
    of.tm_mday = day;
    of.tm_hour = hour;
    of.tm_min = minute;
    of.tm_isdst = isdst;
    return of;
}

std::int64_t utc(int year, int month, int day, int hour = 0, int minute = 0) {
    std::tm of = fields(year, month, day, hour, minute);
    return timegm(&of);
}

// All nine fields.
std::string text(const std::tm &of) {
    char buffer[200];
    std::snprintf(buffer, sizeof buffer, "%lld-%lld-%d %d:%02d:%02d wday %d yday %d isdst %d",
                  of.tm_year + 1900LL, of.tm_mon + 1LL, of.tm_mday, of.tm_hour, of.tm_min,
                  of.tm_sec, of.tm_wday, of.tm_yday, of.tm_isdst);
    return buffer;
}

std::string clock_of(std::int64_t time) {
    const std::tm *const of = _localtime64(&time);
    return of == nullptr ? "none" : text(*of).substr(0, text(*of).find(" wday"));
}

// Both sides of changes: the last second of the old clock and the first one of the new.
TEST(TimeZones, ChangeWhereTheyDo) {
    const struct {
        const char *zone;
        std::int64_t change;
        const char *before, *behind;
        int daylight;  // behind it
    } cases[] = {
        {"America/New_York", utc(2007, 3, 11, 7), "2007-3-11 1:59:59", "2007-3-11 3:00:00", 1},
        {"America/New_York", utc(3000, 11, 2, 6), "3000-11-2 1:59:59", "3000-11-2 1:00:00", 0},
        {"Europe/Berlin", utc(3000, 10, 26, 1), "3000-10-26 2:59:59", "3000-10-26 2:00:00", 0},
        {"Australia/Lord_Howe", utc(2024, 4, 6, 15), "2024-4-7 1:59:59", "2024-4-7 1:30:00", 0},
        {"Australia/Lord_Howe", utc(2024, 10, 5, 15, 30), "2024-10-6 1:59:59", "2024-10-6 2:30:00",
         1},
        {"America/Sao_Paulo", utc(2019, 2, 17, 2), "2019-2-16 23:59:59", "2019-2-16 23:00:00", 0},
        {"Pacific/Apia", utc(2011, 12, 30, 10), "2011-12-29 23:59:59", "2011-12-31 0:00:00", 1},
        {"Africa/Casablanca", utc(2024, 3, 10, 2), "2024-3-10 2:59:59", "2024-3-10 2:00:00", 0},
        {"Europe/Dublin", utc(2024, 3, 31, 1), "2024-3-31 0:59:59", "2024-3-31 2:00:00", 1},
        {"Europe/Dublin", utc(1968, 10, 27, 0) + 86400 * 365 * 2, "1970-10-27 0:59:59",
         "1970-10-27 1:00:00", 0},
        {"Africa/Windhoek", utc(2010, 4, 4), "2010-4-4 1:59:59", "2010-4-4 1:00:00", 0},
        {"Asia/Tokyo", kLast, "3001-1-1 8:59:58", "3001-1-1 8:59:59", 0},
        {":Europe/Paris", utc(2024, 3, 31, 1), "2024-3-31 1:59:59", "2024-3-31 3:00:00", 1},
        {"/usr/share/zoneinfo/Asia/Tokyo", 1, "1970-1-1 9:00:00", "1970-1-1 9:00:01", 0},
        {"NZST-12NZDT,M9.5.0,M4.1.0/3", utc(2999, 9, 28, 14), "2999-9-29 1:59:59",
         "2999-9-29 3:00:00", 1},
        {"", kLast, "3000-12-31 23:59:58", "3000-12-31 23:59:59", 0},
    };
    for (const auto &c : cases) {
        const ZoneScope zone(c.zone);
        EXPECT_EQ(clock_of(c.change - 1), c.before) << c.zone;
        EXPECT_EQ(clock_of(c.change), c.behind) << c.zone;
        EXPECT_EQ(_localtime64(&c.change)->tm_isdst, c.daylight) << c.zone;
    }
}

TEST(TimeZones, AreUtcWhenTheyAreNone) {
    std::istringstream names(
        "Europe/Nowhere ../zoneinfo/Asia/Tokyo Europe/../Asia/Tokyo Europe / /dev/zero /dev/stdin "
        "/etc/passwd /usr/share/zoneinfo/Nowhere : zone.tab EST5EDT,M3.2.0 " +
        std::string(10'000, 'x') + " /" + std::string(10'000, '/') + "x");
    for (std::string name; names >> name;) {
        const ZoneScope zone(name);
        EXPECT_EQ(clock_of(utc(2024, 7, 1, 12)), "2024-7-1 12:00:00") << name.substr(0, 40);
        EXPECT_EQ(_timezone, 0) << name.substr(0, 40);
    }
}

TEST(Time, EndsWhereItsRangeEnds) {
    const ZoneScope zone("Asia/Kolkata");
    EXPECT_EQ(clock_of(0) + ", " + clock_of(kLast), "1970-1-1 5:30:00, 3001-1-1 5:29:59");
    for (const std::int64_t time : {std::int64_t{-1}, kLast + 1, INT64_MIN, INT64_MAX}) {
        errno = 0;
        EXPECT_EQ(_localtime64(&time), nullptr);
        EXPECT_EQ(errno, EINVAL);
        errno = 0;
        EXPECT_EQ(_gmtime64(&time), nullptr);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(_gmtime64(nullptr), nullptr);
    EXPECT_EQ(_localtime64(nullptr), nullptr);
    const std::int64_t zero = 0;
    EXPECT_EQ(_gmtime64(&zero), _localtime64(&zero));
    EXPECT_EQ(text(*_gmtime64(&kLast)), "3000-12-31 23:59:59 wday 3 yday 364 isdst 0");

    const struct {
        std::tm local;
        std::int64_t time;
    } cases[] = {{fields(1970, 1, 1, 5, 30), 0},   {fields(1970, 1, 1, 5, 29), -1},
                 {fields(1970, 1, 1), -1},         {fields(3001, 1, 1, 5, 29), kLast - 59},
                 {fields(3001, 1, 1, 5, 30), -1},  {fields(1900, 1, 0), -1},
                 {fields(1969, 12, 32, 5, 30), 0}, {fields(3003, -23, 1, 5, 29), kLast - 59}};
    for (const auto &c : cases) {
        std::tm local = c.local;
        errno = 0;
        EXPECT_EQ(_mktime64(&local), c.time) << text(c.local);
        EXPECT_EQ(errno, c.time < 0 ? EINVAL : 0);
        EXPECT_EQ(c.time < 0, text(local) == text(c.local)) << text(local);
    }
    EXPECT_EQ(_mktime64(nullptr), -1);
    EXPECT_EQ(_mkgmtime64(nullptr), -1);
    EXPECT_EQ(_difftime64(kLast, 1), static_cast<double>(kLast - 1));
    EXPECT_EQ(_difftime64(1, 3), -2);
    EXPECT_EQ(_difftime64(-1, 3) + _difftime64(3, -1), 0);
    std::int64_t now = 0;
    EXPECT_EQ(_time64(&now), now);
    EXPECT_LE(std::abs(now - std::time(nullptr)), 1);
    EXPECT_LE(std::abs(_time64(nullptr) - now), 1);
}

TEST(Time, ReadsFieldsAsTheyAreFlagged) {
    const struct {
        const char *zone;
        std::tm local;
        std::int64_t time;
        const char *normal;
    } cases[] = {
        // A clock that comes twice, and one that never does.
        {"Europe/Berlin", fields(2024, 10, 27, 2, 30, -1), utc(2024, 10, 27, 0, 30),
         "2024-10-27 2:30:00 wday 0 yday 300 isdst 1"},
        {"Europe/Berlin", fields(2024, 10, 27, 2, 30, 0), utc(2024, 10, 27, 1, 30),
         "2024-10-27 2:30:00 wday 0 yday 300 isdst 0"},
        {"Europe/Berlin", fields(2024, 10, 27, 2, 30, 7), utc(2024, 10, 27, 0, 30),
         "2024-10-27 2:30:00 wday 0 yday 300 isdst 1"},
        {"Europe/Berlin", fields(2024, 3, 31, 2, 30, -1), utc(2024, 3, 31, 1, 30),
         "2024-3-31 3:30:00 wday 0 yday 90 isdst 1"},
        // The flag of the other half of the year.
        {"Europe/Berlin", fields(2024, 7, 1, 12, 0, 0), utc(2024, 7, 1, 11),
         "2024-7-1 13:00:00 wday 1 yday 182 isdst 1"},
        {"Europe/Berlin", fields(2024, 1, 1, 0, 30, 1), utc(2023, 12, 31, 22, 30),
         "2023-12-31 23:30:00 wday 0 yday 364 isdst 0"},
        // Half an hour of daylight time, none any more, and a day that never was.
        {"Australia/Lord_Howe", fields(2024, 1, 1, 12, 0, 1), utc(2024, 1, 1, 1),
         "2024-1-1 12:00:00 wday 1 yday 0 isdst 1"},
        {"America/Sao_Paulo", fields(2018, 1, 1, 12, 0, 1), utc(2018, 1, 1, 15),
         "2018-1-1 13:00:00 wday 1 yday 0 isdst 1"},
        {"Pacific/Apia", fields(2011, 12, 30, 12, 0, -1), utc(2011, 12, 30, 22),
         "2011-12-31 12:00:00 wday 6 yday 364 isdst 1"},
        {"Europe/Dublin", fields(2024, 7, 1, 12, 0, 1), utc(2024, 7, 1, 11),
         "2024-7-1 12:00:00 wday 1 yday 182 isdst 1"},
    };
    for (const auto &c : cases) {
        const ZoneScope zone(c.zone);
        std::tm local = c.local;
        EXPECT_EQ(_mktime64(&local), c.time) << c.zone << ' ' << text(c.local);
        EXPECT_EQ(text(local), c.normal) << c.zone;
    }
}

// Fields may hold anything. The host's timegm is exact over all of it.
TEST(Time, TakesFieldsOfAnySize) {
    const ZoneScope zone("America/New_York");
    const int values[] = {INT_MIN, -1, 1, INT_MAX};
    for (int i = 0; i < 4096; ++i) {
        std::tm given{};
        int *const places[] = {&given.tm_sec,  &given.tm_min, &given.tm_hour,
                               &given.tm_mday, &given.tm_mon, &given.tm_year};
        for (int k = 0, rest = i; k < 6; ++k, rest /= 4) {
            *places[k] = values[rest % 4];
        }
        for (const int year : {given.tm_year, 70}) {
            given.tm_year = year;
            std::tm host = given;
            std::int64_t expected = timegm(&host);
            expected = expected < 0 || expected > kLast ? -1 : expected;
            std::tm ours = given;
            ASSERT_EQ(_mkgmtime64(&ours), expected) << text(given);
            ASSERT_EQ(text(ours), text(expected < 0 ? given : host));
            for (const int isdst : {INT_MIN, 0, INT_MAX}) {
                given.tm_isdst = isdst;
                ours = given;
                const std::int64_t local = _mktime64(&ours);
                ASSERT_TRUE(local < 0 ? expected < 86400 || expected > kLast - 86400
                                      : std::abs(local - expected) <= 86400 || expected < 0)
                    << text(given);
            }
            given.tm_isdst = 0;
        }
    }
}

const char kZones[] =
    "UTC America/New_York Europe/Berlin Asia/Kolkata Asia/Tokyo Australia/Lord_Howe "
    "Africa/Casablanca America/Sao_Paulo Pacific/Apia Europe/Dublin Europe/London Europe/Moscow "
    "Asia/Jerusalem Asia/Tehran Asia/Kathmandu America/St_Johns America/Nuuk America/Caracas "
    "Africa/Cairo Africa/Windhoek Antarctica/Troll Pacific/Kiritimati Pacific/Chatham "
    "America/Argentina/San_Luis Australia/Melbourne EST5EDT,M3.2.0,M11.1.0";

// Moments of all the range, and the neighbourhoods of changes.
std::vector<std::int64_t> moments(std::mt19937_64 *random) {
    std::vector<std::int64_t> times = {0, 1, kLast - 1, kLast};
    const auto offset_at = [](std::int64_t time) {
        std::tm of{};
        return localtime_r(&time, &of)->tm_gmtoff;
    };
    constexpr std::int64_t kDay = 86400;
    for (int i = 0; i < 500; ++i) {
        const std::int64_t some = std::uniform_int_distribution<std::int64_t>(0, kLast)(*random);
        times.push_back(some);
        // Half of them from the years of the tables, each with the next change behind it.
        const std::int64_t start = i % 2 == 0 ? some : some % (80 * 365 * kDay);
        std::int64_t before = start;
        std::int64_t behind = start;
        while (offset_at(behind) == offset_at(start) && behind < start + 300 * kDay) {
            before = behind;
            behind += 20 * kDay;
        }
        while (behind - before > 1) {
            const std::int64_t middle = before + (behind - before) / 2;
            (offset_at(middle) == offset_at(start) ? before : behind) = middle;
        }
        for (const std::int64_t around : {-90'000, -3600, -1800, -1, 0, 1, 1800, 3600, 90'000}) {
            times.push_back(std::min(kLast, std::max<std::int64_t>(0, behind + around)));
        }
    }
    return times;
}

// The host has isdst as the database says it, which for some zones is the other way round.
bool is_turned_round(const std::string &zone) {
    return zone == "Europe/Dublin" || zone == "Africa/Casablanca" || zone == "Africa/Windhoek";
}

TEST(TimeZones, AgreeWithTheHost) {
    std::mt19937_64 random(5);
    std::istringstream names(kZones);
    for (std::string name; names >> name;) {
        const ZoneScope zone(name);
        for (const std::int64_t time : moments(&random)) {
            std::tm host{};
            localtime_r(&time, &host);
            std::tm ours = *_localtime64(&time);
            const int isdst = is_turned_round(name) ? ours.tm_isdst : host.tm_isdst;
            host.tm_isdst = ours.tm_isdst;
            ASSERT_EQ(isdst, ours.tm_isdst) << name << ' ' << time;
            ASSERT_EQ(text(ours), text(host)) << name << ' ' << time;
            ASSERT_EQ(ours.tm_gmtoff, host.tm_gmtoff) << name << ' ' << time;
            ASSERT_STREQ(ours.tm_zone, host.tm_zone) << name << ' ' << time;

            // Back, from this clock and from one an hour and a half ahead, which may be skipped.
            for (const int ahead : {0, 90}) {
                std::tm asked = host;
                asked.tm_min += ahead;
                asked.tm_isdst = -1;
                ours = host = asked;
                const std::int64_t back = _mktime64(&ours);
                std::int64_t host_back = std::mktime(&host);
                host_back = host_back > kLast ? -1 : host_back;
                std::tm clock = asked;
                const std::int64_t wanted = timegm(&clock);
                if (back == host_back || back < 0) {
                    ASSERT_EQ(back, host_back) << name << ' ' << text(asked);
                } else if (timegm(&ours) == wanted) {  // twice: the host has the second
                    ASSERT_LT(back, host_back) << name << ' ' << text(asked);
                } else {  // skipped: here it is later
                    ASSERT_GT(timegm(&ours), wanted) << name << ' ' << text(asked);
                    ASSERT_NE(timegm(&host), wanted) << name << ' ' << text(asked);
                }
            }
        }
    }
}

FILETIME count(std::uint64_t ticks) {
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}
std::uint64_t ticks(const FILETIME &of) {
    return std::uint64_t{of.dwHighDateTime} << 32 | of.dwLowDateTime;
}
std::string text(const SYSTEMTIME &of) {
    char buffer[80];
    std::snprintf(buffer, sizeof buffer, "%u-%u-%u (%u) %u:%02u:%02u.%03u", of.wYear, of.wMonth,
                  of.wDay, of.wDayOfWeek, of.wHour, of.wMinute, of.wSecond, of.wMilliseconds);
    return buffer;
}

TEST(SystemTime, IsCountedFrom1601) {
    const struct {
        SYSTEMTIME fields;  // with a wrong day of the week
        std::uint64_t ticks;
        const char *text;
    } cases[] = {
        {{1601, 1, 9, 1, 0, 0, 0, 0}, 0, "1601-1-1 (1) 0:00:00.000"},
        {{1970, 1, 9, 1, 0, 0, 0, 0}, 116444736000000000, "1970-1-1 (4) 0:00:00.000"},
        {{2000, 2, 9, 29, 23, 59, 59, 999}, 125963423999990000, "2000-2-29 (2) 23:59:59.999"},
        {{30827, 12, 9, 31, 23, 59, 59, 999}, 9223149887999990000, "30827-12-31 (5) 23:59:59.999"},
    };
    for (const auto &c : cases) {
        FILETIME to{};
        ASSERT_TRUE(SystemTimeToFileTime(&c.fields, &to));
        EXPECT_EQ(ticks(to), c.ticks);
        SYSTEMTIME back{};
        const FILETIME inexact = count(c.ticks + 9999);  // what is below a millisecond is cut
        ASSERT_TRUE(FileTimeToSystemTime(&inexact, &back));
        EXPECT_EQ(text(back), c.text);
    }
    const FILETIME last = count(INT64_MAX);
    SYSTEMTIME back{};
    ASSERT_TRUE(FileTimeToSystemTime(&last, &back));
    EXPECT_EQ(text(back), "30828-9-14 (4) 2:48:05.477");

    const SYSTEMTIME wrong[] = {
        {1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0},  {2023, 2, 0, 29, 0, 0, 0, 0},
        {2023, 0, 0, 1, 0, 0, 0, 0},   {2023, 13, 0, 1, 0, 0, 0, 0},  {2023, 1, 0, 0, 0, 0, 0, 0},
        {2023, 4, 0, 31, 0, 0, 0, 0},  {2023, 1, 0, 1, 24, 0, 0, 0},  {2023, 1, 0, 1, 0, 60, 0, 0},
        {2023, 1, 0, 1, 0, 0, 60, 0},  {2023, 1, 0, 1, 0, 0, 0, 1000}};
    FILETIME to{};
    for (const SYSTEMTIME &fields : wrong) {
        SetLastError(0);
        EXPECT_FALSE(SystemTimeToFileTime(&fields, &to)) << text(fields);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
        EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, &fields, &back)) << text(fields);
    }
    const FILETIME negative = count(std::uint64_t{1} << 63);
    EXPECT_FALSE(FileTimeToSystemTime(&negative, &back));
    EXPECT_FALSE(FileTimeToSystemTime(nullptr, &back) || FileTimeToSystemTime(&to, nullptr));
    EXPECT_FALSE(SystemTimeToFileTime(nullptr, &to));
    EXPECT_FALSE(SystemTimeToFileTime(&cases[0].fields, nullptr));
    SYSTEMTIME now{};
    GetSystemTime(&now);
    ASSERT_TRUE(SystemTimeToFileTime(&now, &to));
    EXPECT_LE(std::abs(static_cast<std::int64_t>(ticks(to) / 10'000'000) - 11'644'473'600 -
                       std::time(nullptr)),
              1);
}

std::string rule_of(const std::string &name) {
    const ZoneScope scope(name);
    TIME_ZONE_INFORMATION zone;
    const DWORD kind = GetTimeZoneInformation(&zone);
    EXPECT_EQ(kind == TIME_ZONE_ID_UNKNOWN, _daylight == 0);
    EXPECT_EQ(zone.Bias, _timezone / 60);
    const auto narrow = [](const WCHAR *wide) {
        return std::string(wide, wide + std::u16string_view(wide).size());
    };
    return std::to_string(zone.Bias) + ' ' + narrow(zone.StandardName) + ' ' +
           std::to_string(zone.StandardBias) + ' ' + text(zone.StandardDate) + ", " +
           narrow(zone.DaylightName) + ' ' + std::to_string(zone.DaylightBias) + ' ' +
           text(zone.DaylightDate);
}

int this_year() {
    const std::int64_t now = _time64(nullptr);
    return _gmtime64(&now)->tm_year + 1900;
}

TEST(TimeZoneInformation, TellsTheRuleOfToday) {
    const std::string year = std::to_string(this_year());
    EXPECT_EQ(rule_of("CET-1CEST,M3.5.0,M10.5.0/3"),
              "-60 CET 0 0-10-5 (0) 3:00:00.000, CEST -60 0-3-5 (0) 2:00:00.000");
    EXPECT_EQ(rule_of("<+1030>-10:30<+11>-11,M10.1.0,M4.1.0/1:59:30"),
              "-630 +1030 0 0-4-1 (0) 1:59:30.000, +11 -30 0-10-1 (0) 2:00:00.000");
    EXPECT_EQ(rule_of("IST-1GMT0,M10.5.0,M3.5.0/1"),
              "0 GMT 0 0-10-5 (0) 2:00:00.000, IST -60 0-3-5 (0) 1:00:00.000");
    const std::string none = ",  0 0-0-0 (0) 0:00:00.000";
    EXPECT_EQ(rule_of("<+0545>-5:45:59"), "-345 +0545 0 0-0-0 (0) 0:00:00.000" + none);
    EXPECT_EQ(rule_of("ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKLMN8"),
              "480 ABCDEFGHIJKLMNOPQRSTUVWXYZABCDE 0 0-0-0 (0) 0:00:00.000" + none);
    // A day of the year is a date, and an hour before the day is none of that day.
    EXPECT_EQ(rule_of("AAA3BBB,J100/1,J300/25").substr(0, 20), "180 AAA 0 " + year + "-10-28");
    EXPECT_EQ(rule_of("AAA3BBB,M4.2.0/-1,M10.2.3").find("-4-2 (0)"), std::string::npos);
    EXPECT_EQ(rule_of("AAA3BBB,M4.2.0/25,M10.2.3").find("-4-2 (0)"), std::string::npos);
    EXPECT_EQ(GetTimeZoneInformation(nullptr), TIME_ZONE_ID_INVALID);
}

// The n-th weekday of a month, 5 is the last, at an hour in UTC.
std::int64_t nth(int year, int month, int n, int weekday, int hour) {
    std::int64_t time =
        utc(year, n == 5 ? month + 1 : month, 1 + (n == 5 ? -7 : 7 * (n - 1)), hour);
    while (_gmtime64(&time)->tm_wday != weekday) {
        time += 86400;
    }
    return time;
}

// Zones without a rule for all time are told by this year's changes: as weekdays when the next year
// has the same ones, and with another date when there is but one change.
TEST(TimeZoneInformation, FindsTheRuleInTheChanges) {
    const TempDir dir;
    const int year = this_year();
    const auto text_of = [](std::int64_t local) {
        const FILETIME time =
            count(static_cast<std::uint64_t>(local + 11'644'473'600) * 10'000'000);
        SYSTEMTIME fields;
        FileTimeToSystemTime(&time, &fields);
        return text(fields);
    };
    const std::int64_t march = nth(year, 3, 5, 0, 2);
    const std::int64_t october = nth(year, 10, 2, 3, 22);
    const std::int64_t next_march = nth(year + 1, 3, 5, 0, 2);
    const struct {
        std::vector<std::pair<std::int64_t, unsigned>> changes;
        std::string standard, daylight;
    } cases[] = {
        {{{march, 1}, {october, 0}, {next_march, 1}, {nth(year + 1, 10, 2, 3, 22), 0}},
         "0-10-2 (3) 23:00:00.000",
         "0-3-5 (0) 2:00:00.000"},
        {{{march, 1}, {october, 0}, {next_march, 1}, {nth(year + 1, 10, 3, 3, 22), 0}},
         text_of(october + 3600),
         text_of(march)},
        {{{utc(year - 1, 11, 1), 1}, {march, 0}}, text_of(march + 3600), text_of(utc(year, 1, 1))},
        {{{march, 1}}, text_of(utc(year + 1, 1, 1) - 1), text_of(march)}};
    for (const auto &c : cases) {
        const ZoneBytes file{c.changes, {{0, false, 0}, {3600, true, 3}}, {"ST\0DT", 6}, ""};
        const std::string name = std::to_string(&c - cases);
        dir.Write(name, file.Bytes());
        EXPECT_EQ(rule_of(dir.Path() / name), "0 ST 0 " + c.standard + ", DT -60 " + c.daylight);
        const ZoneScope scope(dir.Path() / name);
        TIME_ZONE_INFORMATION zone;
        GetTimeZoneInformation(&zone);
        for (WORD month = 1; month <= 12; ++month) {
            const SYSTEMTIME time{static_cast<WORD>(year), month, 0, 17, 1, 59, 59, 999};
            SYSTEMTIME by_rule;
            SYSTEMTIME by_zone;
            ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(&zone, &time, &by_rule));
            ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &time, &by_zone));
            EXPECT_EQ(text(by_rule), text(by_zone));
        }
    }
}

// By its own rule a zone has the same clock as by the database, in years that have that rule.
TEST(TimeZoneInformation, GivesTheClockOfTheZone) {
    std::mt19937_64 random(7);
    for (const std::string name :
         {"America/New_York", "Europe/Berlin", "Australia/Lord_Howe", "America/St_Johns",
          "Europe/Dublin", "Asia/Tokyo", "Australia/Melbourne", "Pacific/Chatham",
          "AAA11BBB,M12.5.0/23,M1.2.4/0"}) {
        const ZoneScope scope(name);
        TIME_ZONE_INFORMATION zone;
        ASSERT_NE(GetTimeZoneInformation(&zone), TIME_ZONE_ID_INVALID);
        const std::uint64_t begin = 132'800'000'000'000'000;  // in 2021
        const std::uint64_t end = 9'223'149'800'000'000'000;  // in 30827
        for (int i = 0; i < 5000; ++i) {
            const FILETIME time = count(begin + random() % (i % 2 == 0 ? end - begin : begin / 50));
            SYSTEMTIME utc_fields;
            SYSTEMTIME by_rule;
            ASSERT_TRUE(FileTimeToSystemTime(&time, &utc_fields));
            SYSTEMTIME by_zone = utc_fields;
            ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(&zone, &utc_fields, &by_rule));
            ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &by_zone, &by_zone));
            ASSERT_EQ(text(by_rule), text(by_zone)) << name << ' ' << text(utc_fields);
        }
    }
}

TIME_ZONE_INFORMATION zone_of(SYSTEMTIME standard, SYSTEMTIME daylight, LONG bias = 0) {
    TIME_ZONE_INFORMATION zone{};
    zone.Bias = bias;
    zone.StandardDate = standard;
    zone.DaylightDate = daylight;
    zone.DaylightBias = -60;
    return zone;
}

TEST(TimeZoneInformation, AppliesARule) {
    const SYSTEMTIME april{0, 4, 0, 1, 3, 0, 0, 0};
    const SYSTEMTIME october{0, 10, 0, 5, 2, 0, 0, 0};
    const SYSTEMTIME may_9{2026, 5, 0, 9, 2, 0, 0, 0};
    const struct {
        TIME_ZONE_INFORMATION zone;
        SYSTEMTIME utc;
        const char *local;
    } cases[] = {
        {zone_of(april, october), {2026, 4, 0, 5, 1, 59, 59, 999}, "2026-4-5 (0) 2:59:59.999"},
        {zone_of(april, october), {2026, 4, 0, 5, 2, 0, 0, 0}, "2026-4-5 (0) 2:00:00.000"},
        {zone_of(april, october), {2026, 10, 0, 25, 2, 0, 0, 0}, "2026-10-25 (0) 3:00:00.000"},
        {zone_of(april, october), {1999, 12, 0, 31, 23, 30, 0, 7}, "2000-1-1 (6) 0:30:00.007"},
        // A date with a year is that day of every year.
        {zone_of(october, may_9), {2026, 5, 0, 9, 2, 0, 0, 0}, "2026-5-9 (6) 3:00:00.000"},
        {zone_of(october, may_9), {1950, 5, 0, 9, 1, 59, 0, 0}, "1950-5-9 (2) 1:59:00.000"},
        {zone_of(october, may_9), {1950, 5, 0, 9, 2, 0, 0, 0}, "1950-5-9 (2) 3:00:00.000"},
        {zone_of({}, {}, -90), {1601, 1, 0, 1, 0, 0, 0, 0}, "1601-1-1 (1) 1:30:00.000"},
        {zone_of({}, {}, INT_MIN), {2026, 1, 0, 1, 0, 0, 0, 0}, "6109-1-24 (4) 2:08:00.000"},
        // What is no time, or no zone.
        {zone_of({}, {}, 1), {1601, 1, 0, 1, 0, 0, 0, 0}, nullptr},
        {zone_of({}, {}, -1), {30827, 12, 0, 31, 23, 59, 0, 0}, nullptr},
        {zone_of(april, october, INT_MAX), {2026, 1, 0, 1, 0, 0, 0, 0}, nullptr},
        {zone_of(april, {}), {2026, 1, 0, 1, 0, 0, 0, 0}, nullptr},
        {zone_of({0, 13, 0, 1, 0, 0, 0, 0}, april), {2026, 1, 0, 1, 0, 0, 0, 0}, nullptr},
        {zone_of({0, 10, 7, 1, 0, 0, 0, 0}, april), {2026, 1, 0, 1, 0, 0, 0, 0}, nullptr},
        {zone_of({0, 10, 0, 0, 0, 0, 0, 0}, april), {2026, 1, 0, 1, 0, 0, 0, 0}, nullptr},
        {zone_of({0, 10, 0, 1, 24, 0, 0, 0}, april), {2026, 1, 0, 1, 0, 0, 0, 0}, nullptr},
        {zone_of({2026, 2, 0, 29, 0, 0, 0, 0}, april), {2026, 1, 0, 1, 0, 0, 0, 0}, nullptr},
    };
    for (const auto &c : cases) {
        SYSTEMTIME local{};
        SetLastError(0);
        const bool done = SystemTimeToTzSpecificLocalTime(&c.zone, &c.utc, &local);
        EXPECT_EQ(done ? text(local) : "", c.local != nullptr ? c.local : "") << text(c.utc);
        EXPECT_EQ(GetLastError(), done ? 0 : ERROR_INVALID_PARAMETER);
    }
    EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, nullptr, nullptr));
}

TEST(SystemTime, IsMadeLocalByTheBiasOfNow) {
    const ZoneScope zone("EST5EDT,0/0,J365/25");  // daylight time all the year
    constexpr std::uint64_t kBias = 4 * 36'000'000'000;
    const FILETIME some = count(kBias + 7);
    const FILETIME early = count(kBias - 1);
    FILETIME local{};
    EXPECT_TRUE(FileTimeToLocalFileTime(&some, &local));
    EXPECT_EQ(ticks(local), 7u);
    SetLastError(0);
    EXPECT_FALSE(FileTimeToLocalFileTime(&early, &local));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(FileTimeToLocalFileTime(&local, &local));
    EXPECT_FALSE(FileTimeToLocalFileTime(nullptr, &local));
    EXPECT_FALSE(FileTimeToLocalFileTime(&some, nullptr));
    const ZoneScope east("AAA-5:30");
    const FILETIME last = count(INT64_MAX - 198'000'000'000 + 1);
    EXPECT_FALSE(FileTimeToLocalFileTime(&last, &local));
}

}  // namespace
