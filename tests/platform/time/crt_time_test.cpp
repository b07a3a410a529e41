#include "ostrel/platform/time.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <sstream>

#include "ostrel/platform/timezone.h"
#include "support/test.h"
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
TEST(CrtTime, ZonesChangeWhereTheyDo) {
    const std::tuple<const char *, std::int64_t, const char *> cases[] = {
        {"Pacific/Apia", utc(2011, 12, 30, 10), "12-29 23:59:59 1, 12-31 00:00:00 1"},
        // The database says these the other way round.
        {"Africa/Casablanca", utc(2024, 3, 10, 2), "03-10 02:59:59 1, 03-10 02:00:00 0"},
        {"Europe/Dublin", utc(1970, 10, 27), "10-27 00:59:59 0, 10-27 01:00:00 0"},  // for years
        {"IST-1GMT0,M10.5.0,M3.5.0/1", utc(2026, 3, 29, 1), "03-29 00:59:59 0, 03-29 02:00:00 1"},
        {":Europe/Paris", utc(2040, 3, 25, 1), "03-25 01:59:59 0, 03-25 03:00:00 1"},
        {"/usr/share/zoneinfo/Asia/Tokyo", 1, "01-01 09:00:00 0, 01-01 09:00:01 0"},
        {"AAA0BBB,J9,J365/167", utc(2027, 1, 6, 22), "01-06 22:59:59 1, 01-06 22:00:00 0"},
        {"EST4EDT", utc(2900, 3, 14, 6), "03-14 01:59:59 0, 03-14 03:00:00 1"},  // by default
        {"AAA0BBB,J60,299", utc(2024, 3, 1, 2), "03-01 01:59:59 0, 03-01 03:00:00 1"},
        {"AAA0BBB,59,J300/1:2", utc(2024, 10, 27, 0, 2), "10-27 01:01:59 1, 10-27 00:02:00 0"},
        {"EST5EDT,0/0,J365/25", utc(2027, 1, 1, 5), "01-01 00:59:59 1, 01-01 01:00:00 1"}};
    for (const auto &[zone, change, clocks] : cases) {
        const ZoneScope scope(zone);
        EXPECT_EQ(clock_of(change - 1) + ", " + clock_of(change), clocks) << zone;
    }
}

// Names that lead out of the database or to no zone, and rules that are none.
TEST(CrtTime, ZonesAreUtcWhenTheyAreNone) {
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

TEST(CrtTime, EndsWhereItsRangeEnds) {
    const ZoneScope zone("Asia/Kolkata");
    for (const std::int64_t time : {std::int64_t{-1}, kLast + 1, INT64_MIN, INT64_MAX}) {
        for (const auto call : {_localtime64, _gmtime64}) {
            errno = 0;
            EXPECT_TRUE(call(&time) == nullptr && call(nullptr) == nullptr) << time;
            EXPECT_EQ(errno, EINVAL) << time;
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
        EXPECT_EQ(errno, time < 0 ? EINVAL : 0) << text(given);
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

TEST(CrtTime, ReadsFieldsAsTheyAreFlagged) {
    const std::tuple<const char *, std::tm, std::int64_t> cases[] = {
        {"Europe/Berlin", fields(2024, 10, 27, 2, 30, -1), utc(2024, 10, 27, 0, 30)},
        {"Europe/Berlin", fields(2024, 3, 31, 2, 30, -1), utc(2024, 3, 31, 1, 30)},
        {"Pacific/Apia", fields(2011, 12, 30, 12, 0, -1), utc(2011, 12, 30, 22)},
        {"Europe/Berlin", fields(2024, 7, 1, 12, 0, 0), utc(2024, 7, 1, 11)},
        {"Australia/Lord_Howe", fields(2024, 7, 1, 12, 0, 1), utc(2024, 7, 1, 1)},
        // A zone that has no daylight time any more: what it was ahead then, and is now.
        {"America/Sao_Paulo", fields(2018, 1, 1, 12, 0, 1), utc(2018, 1, 1, 14)},
        {"America/Sao_Paulo", fields(2018, 7, 1, 12, 0, 1), utc(2018, 7, 1, 15)}};
    for (const auto &[zone, given, time] : cases) {
        const ZoneScope scope(zone);
        std::tm local = given;
        EXPECT_EQ(_mktime64(&local), time) << zone << ' ' << text(given);
        EXPECT_EQ(text(local), text(*_localtime64(&time))) << zone << ' ' << text(given);
    }
}

}  // namespace
