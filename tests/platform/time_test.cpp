// The runtime's calendar calls and those on SYSTEMTIME.

#include "ostrel/platform/time.h"

#include <gtest/gtest.h>

#include <bit>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <sstream>
#include <string>
#include <tuple>

#include "ostrel/platform/timezone.h"
#include "support/file_calls.h"
#include "support/zone_scope.h"

namespace {

constexpr std::int64_t kLast = 32535215999;

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
    const std::tuple<const char *, std::int64_t, const char *> cases[] = {
        {"Pacific/Apia", utc(2011, 12, 30, 10), "12-29 23:59:59 1, 12-31 00:00:00 1"},
        // The database says these the other way round.
        {"Africa/Casablanca", utc(2024, 3, 10, 2), "03-10 02:59:59 1, 03-10 02:00:00 0"},
        {"Europe/Dublin", utc(1970, 10, 27), "10-27 00:59:59 0, 10-27 01:00:00 0"},  // for years
        {"IST-1GMT0,M10.5.0,M3.5.0/1", utc(2026, 3, 29, 1), "03-29 00:59:59 0, 03-29 02:00:00 1"},
        {":Europe/Paris", utc(2040, 3, 25, 1), "03-25 01:59:59 0, 03-25 03:00:00 1"},
        {"/usr/share/zoneinfo/Asia/Tokyo", 1, "01-01 09:00:00 0, 01-01 09:00:01 0"},
        {"", 1, "01-01 00:00:00 0, 01-01 00:00:01 0"},
        {"AAA0BBB,0/-167,J180", utc(2025, 12, 25, 1), "12-25 00:59:59 0, 12-25 02:00:00 1"},
        {"AAA0BBB,J9,J365/167", utc(2027, 1, 6, 22), "01-06 22:59:59 1, 01-06 22:00:00 0"},
        {"EST4EDT", utc(2900, 3, 14, 6), "03-14 01:59:59 0, 03-14 03:00:00 1"},  // by default
        {"AAA0BBB,J60,299", utc(2024, 3, 1, 2), "03-01 01:59:59 0, 03-01 03:00:00 1"},
        {"AAA0BBB,59,J300/1:2", utc(2024, 10, 27, 0, 2), "10-27 01:01:59 1, 10-27 00:02:00 0"},
        {"EST5EDT,0/0,J365/25", utc(2027, 1, 1, 5), "01-01 00:59:59 1, 01-01 01:00:00 1"},
    };
    for (const auto &[zone, change, clocks] : cases) {
        const ZoneScope scope(zone);
        EXPECT_EQ(clock_of(change - 1) + ", " + clock_of(change), clocks) << zone;
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
            EXPECT_TRUE(call(&time) == nullptr && call(nullptr) == nullptr);
            EXPECT_EQ(errno, EINVAL);
        }
    }
    EXPECT_EQ(text(*_gmtime64(&kLast)), "3000-12-31 23:59:59 3 365 0");
    const std::tuple<std::tm, std::int64_t> cases[] = {
        {fields(1970, 1, 1, 5, 30), 0},          {fields(1970, 1, 1, 5, 29), -1},
        {fields(3001, 1, 1, 5, 29), kLast - 59}, {fields(3001, 1, 1, 5, 30), -1},
        {fields(1969, 12, 32, 5, 30), 0},        {fields(1900, 1, 0), -1}};
    for (const auto &[given, time] : cases) {
        std::tm local = given;
        errno = 0;
        EXPECT_EQ(_mktime64(&local), time) << text(given);
        EXPECT_EQ(errno, time < 0 ? EINVAL : 0);
        EXPECT_EQ(time < 0, text(local) == text(given)) << text(local);
    }
    std::tm largest{INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MAX, 0, 0, 0, 0, nullptr};
    std::tm least{INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, 0, 0, 1, 0, nullptr};
    for (std::tm *const of : {&largest, &least, static_cast<std::tm *>(nullptr)}) {
        EXPECT_EQ(_mktime64(of) + _mkgmtime64(of), -2);
    }
    EXPECT_EQ(_difftime64(1, kLast) + _difftime64(-1, 3) + _difftime64(3, -1), 1. - kLast);
    EXPECT_LE(std::abs(_time64(nullptr) - std::time(nullptr)), 1);
}

TEST(Time, ReadsFieldsAsTheyAreFlagged) {
    const std::tuple<const char *, std::tm, std::int64_t> cases[] = {
        {"Europe/Berlin", fields(2024, 10, 27, 2, 30, -1), utc(2024, 10, 27, 0, 30)},
        {"Europe/Berlin", fields(2024, 3, 31, 2, 30, -1), utc(2024, 3, 31, 1, 30)},
        {"Pacific/Apia", fields(2011, 12, 30, 12, 0, -1), utc(2011, 12, 30, 22)},
        {"Europe/Berlin", fields(2024, 7, 1, 12, 0, 0), utc(2024, 7, 1, 11)},
        {"Australia/Lord_Howe", fields(2024, 7, 1, 12, 0, 1), utc(2024, 7, 1, 1)},
        // A zone that has no daylight time any more: what it was ahead then, and is now.
        {"America/Sao_Paulo", fields(2018, 1, 1, 12, 0, 1), utc(2018, 1, 1, 14)},
        {"America/Sao_Paulo", fields(2018, 7, 1, 12, 0, 1), utc(2018, 7, 1, 15)},
    };
    for (const auto &[zone, given, time] : cases) {
        const ZoneScope scope(zone);
        std::tm local = given;
        EXPECT_EQ(_mktime64(&local), time) << zone << ' ' << text(given);
        EXPECT_EQ(text(local), text(*_localtime64(&time))) << zone;
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
        EXPECT_EQ(error_of(SystemTimeToFileTime(&fields, &to)), ERROR_INVALID_PARAMETER);
        EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, &fields, &back)) << text(fields);
    }
    const auto beyond = std::bit_cast<FILETIME>(std::uint64_t{1} << 63);
    EXPECT_FALSE(FileTimeToSystemTime(&beyond, &back) || FileTimeToSystemTime(nullptr, &back) ||
                 FileTimeToSystemTime(&to, nullptr) || SystemTimeToFileTime(nullptr, &to));
    constexpr std::uint64_t kEnd = 9'223'149'888'000'000'000;  // of the year 30827
    const auto last = std::bit_cast<FILETIME>(kEnd - 1);
    EXPECT_TRUE(FileTimeToSystemTime(&last, &back));
    EXPECT_EQ(text(back), "30827-12-31 (5) 23:59:59.999");
    back.wDayOfWeek = 9;  // is not read
    EXPECT_TRUE(SystemTimeToFileTime(&back, &to));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(to), kEnd - 10'000);
    GetSystemTime(&back);
    EXPECT_TRUE(SystemTimeToFileTime(&back, &to));
    EXPECT_NEAR(static_cast<double>(std::bit_cast<std::uint64_t>(to) / 10'000'000),
                static_cast<double>(std::time(nullptr) + 11'644'473'600), 1);
}

TEST(TimeZoneInformation, AppliesARule) {
    const SYSTEMTIME april{0, 4, 0, 1, 3, 0, 0, 0};
    const SYSTEMTIME october{0, 10, 0, 5, 2, 0, 0, 0};
    const SYSTEMTIME may_9{2026, 5, 0, 9, 2, 0, 0, 0};
    const SYSTEMTIME new_year{2026, 1, 0, 1, 0, 0, 0, 0};
    const SYSTEMTIME noon{2026, 1, 0, 1, 12, 0, 0, 0};
    const std::tuple<LONG, SYSTEMTIME, SYSTEMTIME, SYSTEMTIME, const char *> cases[] = {
        {0, april, october, {1999, 12, 0, 31, 23, 30, 0, 7}, "2000-01-01 (6) 00:30:00.007"},
        {0, october, april, {2026, 4, 0, 5, 3, 0, 0, 0}, "2026-04-05 (0) 04:00:00.000"},
        // A date with a year is that day of every year.
        {0, october, may_9, {1950, 5, 0, 9, 2, 0, 0, 0}, "1950-05-09 (2) 03:00:00.000"},
        // At noon in the zone, the change of the next year has been made.
        {-720, new_year, april, {2025, 12, 0, 31, 12, 0, 0, 0}, "2026-01-01 (4) 00:00:00.000"},
        {-90, {}, {}, {1601, 1, 0, 1, 0, 0, 0, 0}, "1601-01-01 (1) 01:30:00.000"},
        {1, {}, {}, {1601, 1, 0, 1, 0, 0, 0, 0}, ""},
        {-1, {}, {}, {30827, 12, 0, 31, 23, 59, 0, 0}, ""},
        {0, april, {}, noon, ""},
        {0, {0, 10, 7, 1, 0, 0, 0, 0}, april, noon, ""},
        {0, {0, 10, 0, 1, 24, 0, 0, 0}, april, noon, ""},
        {0, {2026, 2, 0, 29, 0, 0, 0, 0}, april, noon, ""},
    };
    for (const auto &[bias, standard, daylight, utc, expected] : cases) {
        const TIME_ZONE_INFORMATION zone{bias, {}, standard, 0, {}, daylight, -60};
        SYSTEMTIME local{};
        const bool done = SystemTimeToTzSpecificLocalTime(&zone, &utc, &local);
        EXPECT_EQ(done ? text(local) : "", expected) << text(utc);
        EXPECT_TRUE(done || GetLastError() == ERROR_INVALID_PARAMETER);
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
