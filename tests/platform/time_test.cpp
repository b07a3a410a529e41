// The runtime's calendar calls and those on SYSTEMTIME, with the host's as a measure.

#include "ostrel/platform/time.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ostrel/platform/error.h"
#include "ostrel/platform/timezone.h"
#include "support/zone_scope.h"

namespace {

constexpr std::int64_t kLast = 32535215999;
constexpr std::int64_t kDay = 86400;

std::tm fields(int year, int month, int day, int hour = 0, int minute = 0, int isdst = -1) {
    return {0, minute, hour, day, month - 1, year - 1900, 0, 0, isdst, 0, nullptr};
}

std::int64_t utc(int year, int month, int day, int hour = 0, int minute = 0) {
    std::tm of = fields(year, month, day, hour, minute);
    return timegm(&of);
}

std::string text(const std::tm &of, const char *format = "%F %T %w %j ") {
    char buffer[200];
    std::strftime(buffer, sizeof buffer, format, &of);
    return buffer + std::to_string(of.tm_isdst);
}

std::string clock_of(std::int64_t time) {
    return text(*_localtime64(&time), "%m-%d %T ");
}

// The last second of the old clock and the first one of the new, each with tm_isdst.
TEST(TimeZones, ChangeWhereTheyDo) {
    const struct {
        const char *zone;
        std::int64_t change;
        const char *clocks;
    } cases[] = {
        {"Pacific/Apia", utc(2011, 12, 30, 10), "12-29 23:59:59 1, 12-31 00:00:00 1"},
        // The database says these the other way round.
        {"Africa/Casablanca", utc(2024, 3, 10, 2), "03-10 02:59:59 1, 03-10 02:00:00 0"},
        {"Europe/Dublin", utc(1970, 10, 27), "10-27 00:59:59 0, 10-27 01:00:00 0"},  // for years
        {"IST-1GMT0,M10.5.0,M3.5.0/1", utc(2026, 3, 29, 1), "03-29 00:59:59 0, 03-29 02:00:00 1"},
        {":Europe/Paris", utc(2024, 3, 31, 1), "03-31 01:59:59 0, 03-31 03:00:00 1"},
        {"/usr/share/zoneinfo/Asia/Tokyo", 1, "01-01 09:00:00 0, 01-01 09:00:01 0"},
        {"", 1, "01-01 00:00:00 0, 01-01 00:00:01 0"},
        {"AAA0BBB,0/-167,J180", utc(2025, 12, 25, 1), "12-25 00:59:59 0, 12-25 02:00:00 1"},
        {"AAA0BBB,J9,J365/167", utc(2027, 1, 6, 22), "01-06 22:59:59 1, 01-06 22:00:00 0"},
        {"EST5EDT,0/0,J365/25", utc(2027, 1, 1, 5), "01-01 00:59:59 1, 01-01 01:00:00 1"},
    };
    for (const auto &c : cases) {
        const ZoneScope zone(c.zone);
        EXPECT_EQ(clock_of(c.change - 1) + ", " + clock_of(c.change), c.clocks) << c.zone;
    }
}

// Names that lead out of the database or to no zone, and rules that are none.
TEST(TimeZones, AreUtcWhenTheyAreNone) {
    std::istringstream texts(
        "Europe/Nowhere|Europe/../Asia/Tokyo|Europe|/|/dev/zero|/dev/stdin|/etc/passwd|:|zone.tab|"
        "E5|EST25|EST5:60|EST5:00:00:0|<EST5|<>5|EST5 |5EST|EST00005|E\xC3\x96ST5|EST5ED|EST5EDT,|"
        "EST5EDT,,|EST5EDT4,M3.2.0|EST5EDT4M3.2.0|EST5EDT,M0.2.0,M11.1.0|EST5EDT,M3.6.0,M11.1.0|"
        "EST5EDT,M3.2.7,M11.1.0|"
        "EST5EDT,J0,J365|EST5EDT,J1,366|EST5EDT,M3.2.0/168,M11.1.0|EST5EDT,M3.2.0,M11.1.0x|" +
        std::string(10'000, 'x') + "|EST" + std::string(10'000, '9') + "|/" +
        std::string(10'000, '/') + "x");
    for (std::string name; std::getline(texts, name, '|');) {
        const ZoneScope zone(name);
        EXPECT_EQ(clock_of(utc(2024, 7, 1, 12)), "07-01 12:00:00 0") << name.substr(0, 40);
        EXPECT_EQ(_timezone, 0) << name.substr(0, 40);
    }
}

TEST(Time, EndsWhereItsRangeEnds) {
    const ZoneScope zone("Asia/Kolkata");
    for (const std::int64_t time : {std::int64_t{-1}, kLast + 1, INT64_MIN, INT64_MAX}) {
        for (const auto call : {_localtime64, _gmtime64}) {
            errno = 0;
            EXPECT_EQ(call(&time), nullptr);
            EXPECT_EQ(errno, EINVAL);
            EXPECT_EQ(call(nullptr), nullptr);
        }
    }
    EXPECT_EQ(text(*_gmtime64(&kLast)), "3000-12-31 23:59:59 3 365 0");
    const struct {
        std::tm local;
        std::int64_t time;
    } cases[] = {{fields(1970, 1, 1, 5, 30), 0},          {fields(1970, 1, 1, 5, 29), -1},
                 {fields(3001, 1, 1, 5, 29), kLast - 59}, {fields(3001, 1, 1, 5, 30), -1},
                 {fields(1969, 12, 32, 5, 30), 0},        {fields(1900, 1, 0), -1}};
    for (const auto &c : cases) {
        std::tm local = c.local;
        errno = 0;
        EXPECT_EQ(_mktime64(&local), c.time) << text(c.local);
        EXPECT_EQ(errno, c.time < 0 ? EINVAL : 0);
        EXPECT_EQ(c.time < 0, text(local) == text(c.local)) << text(local);
    }
    EXPECT_EQ(_mktime64(nullptr) + _mkgmtime64(nullptr), -2);
    EXPECT_EQ(_difftime64(1, kLast) + _difftime64(-1, 3) + _difftime64(3, -1), 1. - kLast);
    EXPECT_LE(std::abs(_time64(nullptr) - std::time(nullptr)), 1);
}

TEST(Time, ReadsFieldsAsTheyAreFlagged) {
    const struct {
        const char *zone;
        std::tm local;
        std::int64_t time;
    } cases[] = {
        {"Europe/Berlin", fields(2024, 10, 27, 2, 30, -1), utc(2024, 10, 27, 0, 30)},
        {"Europe/Berlin", fields(2024, 3, 31, 2, 30, -1), utc(2024, 3, 31, 1, 30)},
        {"Pacific/Apia", fields(2011, 12, 30, 12, 0, -1), utc(2011, 12, 30, 22)},
        {"Europe/Berlin", fields(2024, 7, 1, 12, 0, 0), utc(2024, 7, 1, 11)},
        {"Australia/Lord_Howe", fields(2024, 7, 1, 12, 0, 1), utc(2024, 7, 1, 1)},
        // A zone that has no daylight time any more: what it was ahead then, and is now.
        {"America/Sao_Paulo", fields(2018, 1, 1, 12, 0, 1), utc(2018, 1, 1, 14)},
        {"America/Sao_Paulo", fields(2018, 7, 1, 12, 0, 1), utc(2018, 7, 1, 15)},
    };
    for (const auto &c : cases) {
        const ZoneScope zone(c.zone);
        std::tm local = c.local;
        EXPECT_EQ(_mktime64(&local), c.time) << c.zone << ' ' << text(c.local);
        EXPECT_EQ(text(local), text(*_localtime64(&c.time))) << c.zone;
    }
}

// Fields may hold anything. The host's timegm is exact over all of it.
TEST(Time, TakesFieldsOfAnySize) {
    const ZoneScope zone("America/New_York");
    std::mt19937 random(1);
    for (int i = 0; i < 10'000; ++i) {
        std::tm given{};
        for (int *const place : {&given.tm_sec, &given.tm_min, &given.tm_hour, &given.tm_mday,
                                 &given.tm_mon, &given.tm_year}) {
            const int values[] = {INT_MIN, -1, 1, 70, INT_MAX};
            *place = values[random() % 5];
        }
        std::tm host = given;
        const std::int64_t expected = timegm(&host);
        const bool good = expected >= 0 && expected <= kLast;
        std::tm ours = given;
        ASSERT_EQ(_mkgmtime64(&ours), good ? expected : -1) << text(given);
        ASSERT_EQ(text(ours), text(good ? host : given));
        ASSERT_LE(std::abs(_mktime64(&given) - (good ? expected : -1)), kDay) << text(host);
    }
}

// Moments of all the range, more of them in the years of the tables, and around changes.
std::vector<std::int64_t> moments(std::mt19937_64 *random) {
    std::vector<std::int64_t> times = {0, 1, kLast - 1, kLast};
    const auto offset_at = [](std::int64_t time) {
        std::tm of{};
        return localtime_r(&time, &of)->tm_gmtoff;
    };
    for (std::int64_t time = 0, next = 0; time < kLast; time = next) {
        const std::int64_t most = (time < 70 * 365 * kDay ? 100 : 800) * kDay;
        next = time + std::uniform_int_distribution<std::int64_t>(1, most)(*random);
        std::int64_t behind = next;
        for (std::int64_t before = time; behind - before > 1;) {
            const std::int64_t middle = before + (behind - before) / 2;
            (offset_at(middle) == offset_at(time) ? before : behind) = middle;
        }
        for (const std::int64_t around : {-90'000, -3600, -1800, -1, 0, 1, 1800, 3600, 90'000}) {
            times.push_back(std::clamp<std::int64_t>(behind + around, 0, kLast));
        }
    }
    return times;
}

TEST(TimeZones, AgreeWithTheHost) {
    std::mt19937_64 random(5);
    std::istringstream names(
        "UTC America/New_York Europe/Berlin Asia/Kolkata Asia/Tokyo Australia/Lord_Howe "
        "Africa/Casablanca America/Sao_Paulo Pacific/Apia Europe/Dublin Europe/Moscow Asia/Tehran "
        "Asia/Jerusalem America/St_Johns America/Nuuk Africa/Cairo Africa/Windhoek Pacific/Chatham "
        "Antarctica/Troll America/Argentina/San_Luis <+1030>-10:30<+11>-11,M10.1.0,M4.1.0 "
        "EST5EDT,M3.2.0,M11.1.0 AAA0BBB,59,J300/1:2:3 AAA0BBB,J60,299");
    for (std::string name; names >> name;) {
        const ZoneScope zone(name);
        const bool turned = name == "Europe/Dublin" || name == "Africa/Casablanca" ||
                            name == "Africa/Windhoek";  // in the database
        for (const std::int64_t time : moments(&random)) {
            std::tm host{};
            localtime_r(&time, &host);
            const std::tm ours = *_localtime64(&time);
            host.tm_isdst = turned ? ours.tm_isdst : host.tm_isdst;
            const char *const format = "%F %T %w %j %z %Z ";
            ASSERT_EQ(text(ours, format), text(host, format)) << name << ' ' << time;
            // Back by the flag. Clocks of one kind come twice where that kind itself falls back.
            std::tm again = ours;
            const std::int64_t error = std::abs(_mktime64(&again) - time);
            const bool twice = ours.tm_isdst == 0 || text(again) == text(ours);
            ASSERT_TRUE(error == 0 || (twice && error <= 3600)) << name << ' ' << text(ours);
            // Without a flag too, whichever it is of clocks that come twice.
            again = ours;
            again.tm_isdst = -1;
            _mktime64(&again);
            ASSERT_EQ(text(again, "%F %T ").substr(0, 20), text(ours, "%F %T ").substr(0, 20))
                << name << ' ' << time;
        }
    }
}

std::string text(const SYSTEMTIME &of) {
    char buffer[80];
    std::snprintf(buffer, sizeof buffer, "%u-%02u-%02u (%u) %02u:%02u:%02u.%03u", of.wYear,
                  of.wMonth, of.wDay, of.wDayOfWeek, of.wHour, of.wMinute, of.wSecond,
                  of.wMilliseconds);
    return buffer;
}

constexpr std::uint64_t kEnd = 9'223'149'888'000'000'000;  // of the year 30827

TEST(SystemTime, AgreesWithTheHost) {
    std::mt19937_64 random(3);
    for (int i = 0; i < 100'000; ++i) {
        const std::uint64_t some = i == 0 ? 0 : random() % kEnd;
        const auto given = std::bit_cast<FILETIME>(some);
        SYSTEMTIME ours{};
        ASSERT_TRUE(FileTimeToSystemTime(&given, &ours));
        const auto time = static_cast<std::int64_t>(some / 10'000'000) - 11'644'473'600;
        std::tm host{};
        char buffer[80];
        std::strftime(buffer, sizeof buffer, "%Y-%m-%d (%w) %T", gmtime_r(&time, &host));
        const std::string thousandths = std::to_string(1000 + some / 10'000 % 1000).substr(1);
        ASSERT_EQ(text(ours), std::string(buffer) + '.' + thousandths);
        ours.wDayOfWeek = 9;
        FILETIME back{};
        ASSERT_TRUE(SystemTimeToFileTime(&ours, &back));
        ASSERT_EQ(std::bit_cast<std::uint64_t>(back), some - some % 10'000);
    }
}

TEST(SystemTime, EndsWhereItsRangeEnds) {
    const SYSTEMTIME wrong[] = {{1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0},
                                {2023, 2, 0, 29, 0, 0, 0, 0},  {2023, 0, 0, 1, 0, 0, 0, 0},
                                {2023, 13, 0, 1, 0, 0, 0, 0},  {2023, 1, 0, 1, 24, 0, 0, 0},
                                {2023, 1, 0, 0, 0, 0, 0, 0},   {2023, 1, 0, 1, 0, 0, 0, 1000}};
    FILETIME to{};
    SYSTEMTIME back{};
    for (const SYSTEMTIME &fields : wrong) {
        SetLastError(0);
        EXPECT_FALSE(SystemTimeToFileTime(&fields, &to)) << text(fields);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
        EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, &fields, &back)) << text(fields);
    }
    const auto beyond = std::bit_cast<FILETIME>(std::uint64_t{1} << 63);
    EXPECT_FALSE(FileTimeToSystemTime(&beyond, &back) || FileTimeToSystemTime(nullptr, &back) ||
                 FileTimeToSystemTime(&to, nullptr) || SystemTimeToFileTime(nullptr, &to));
    GetSystemTime(&back);
    ASSERT_TRUE(SystemTimeToFileTime(&back, &to));
    EXPECT_NEAR(static_cast<double>(std::bit_cast<std::uint64_t>(to) / 10'000'000),
                static_cast<double>(std::time(nullptr) + 11'644'473'600), 1);
}

// By its own rule a zone has the same clock as by the database, in years that have that rule.
TEST(TimeZoneInformation, GivesTheClockOfTheZone) {
    std::mt19937_64 random(7);
    for (const char *const name : {"America/New_York", "Europe/Dublin", "Asia/Tokyo",
                                   "Australia/Lord_Howe", "AAA11BBB,M12.5.0/23,M1.2.4/0"}) {
        const ZoneScope scope(name);
        TIME_ZONE_INFORMATION zone;
        ASSERT_NE(GetTimeZoneInformation(&zone), TIME_ZONE_ID_INVALID);
        for (int i = 0; i < 5000; ++i) {
            const std::uint64_t in_2021 = 132'800'000'000'000'000;
            const auto time = std::bit_cast<FILETIME>(in_2021 + random() % in_2021);
            SYSTEMTIME utc{}, by_zone{}, by_rule{};
            ASSERT_TRUE(FileTimeToSystemTime(&time, &utc) &&
                        SystemTimeToTzSpecificLocalTime(&zone, &utc, &by_rule) &&
                        SystemTimeToTzSpecificLocalTime(nullptr, &utc, &by_zone));
            ASSERT_EQ(text(by_rule), text(by_zone)) << name;
        }
    }
}

TEST(TimeZoneInformation, AppliesARule) {
    const SYSTEMTIME april{0, 4, 0, 1, 3, 0, 0, 0};
    const SYSTEMTIME october{0, 10, 0, 5, 2, 0, 0, 0};
    const SYSTEMTIME may_9{2026, 5, 0, 9, 2, 0, 0, 0};
    const SYSTEMTIME noon{2026, 1, 0, 1, 12, 0, 0, 0};
    const struct {
        LONG bias;
        SYSTEMTIME standard, daylight, utc;
        const char *local;
    } cases[] = {
        {0, april, october, {1999, 12, 0, 31, 23, 30, 0, 7}, "2000-01-01 (6) 00:30:00.007"},
        {0, october, april, {2026, 4, 0, 5, 3, 0, 0, 0}, "2026-04-05 (0) 04:00:00.000"},
        // A date with a year is that day of every year.
        {0, october, may_9, {1950, 5, 0, 9, 2, 0, 0, 0}, "1950-05-09 (2) 03:00:00.000"},
        {-90, {}, {}, {1601, 1, 0, 1, 0, 0, 0, 0}, "1601-01-01 (1) 01:30:00.000"},
        {1, {}, {}, {1601, 1, 0, 1, 0, 0, 0, 0}, ""},
        {-1, {}, {}, {30827, 12, 0, 31, 23, 59, 0, 0}, ""},
        {0, april, {}, noon, ""},
        {0, {0, 10, 7, 1, 0, 0, 0, 0}, april, noon, ""},
        {0, {0, 10, 0, 1, 24, 0, 0, 0}, april, noon, ""},
        {0, {2026, 2, 0, 29, 0, 0, 0, 0}, april, noon, ""},
    };
    for (const auto &c : cases) {
        const TIME_ZONE_INFORMATION zone{c.bias, {}, c.standard, 0, {}, c.daylight, -60};
        SYSTEMTIME local{};
        SetLastError(0);
        const bool done = SystemTimeToTzSpecificLocalTime(&zone, &c.utc, &local);
        EXPECT_EQ(done ? text(local) : "", c.local) << text(c.utc);
        EXPECT_EQ(GetLastError(), done ? 0 : ERROR_INVALID_PARAMETER);
    }
    EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, nullptr, nullptr));
    EXPECT_EQ(GetTimeZoneInformation(nullptr), TIME_ZONE_ID_INVALID);
}

TEST(SystemTime, IsMadeLocalByTheBiasOfNow) {
    const ZoneScope zone("EST5EDT,0/0,J365/25");  // daylight time all the year
    for (const std::uint64_t ticks : {7ULL, 0ULL, ~0ULL}) {
        const auto given = std::bit_cast<FILETIME>(ticks + 4 * 36'000'000'000);
        FILETIME local{};
        EXPECT_EQ(FileTimeToLocalFileTime(&given, &local), ticks <= 7);
        EXPECT_EQ(std::bit_cast<std::uint64_t>(local), ticks <= 7 ? ticks : 0);
        EXPECT_FALSE(FileTimeToLocalFileTime(&local, &local));
    }
}

}  // namespace
