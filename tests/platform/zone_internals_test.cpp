// What zones are made of: the calendar, rules, and the bytes of zone files.

#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <string>

#include "ostrel/platform/calendar.h"
#include "ostrel/platform/zone_file.h"
#include "support/zone_bytes.h"

namespace {

using platform::ClockKind;
using platform::Zone;
using platform::ZoneInterval;

std::int64_t utc(int year, int month, int day, int hour = 0, int minute = 0) {
    return (platform::days_from_civil(year, month, day) * 24 + hour) * 3600 + minute * 60;
}

// The host's calendar is the measure, day after day and to both ends of what fields can say.
TEST(ZoneCalendar, IsTheHosts) {
    std::int64_t day = -780'000'000'000;
    while (day < 780'000'000'000) {
        const std::time_t time = day * 86400;
        std::tm host;
        ASSERT_NE(gmtime_r(&time, &host), nullptr);
        const platform::CivilDay date = platform::civil_from_days(day);
        ASSERT_EQ(date.year, host.tm_year + 1900LL) << day;
        ASSERT_EQ(date.month - 1, host.tm_mon) << day;
        ASSERT_EQ(date.day, host.tm_mday) << day;
        ASSERT_EQ(date.dayOfYear, host.tm_yday) << day;
        ASSERT_EQ(platform::weekday_of(day), host.tm_wday) << day;
        ASSERT_EQ(platform::days_from_civil(date.year, date.month, date.day), day);
        ASSERT_LE(date.day, platform::days_in_month(date.year, date.month));
        day += day >= -140'000 && day < 160'000 ? 1 : 999'999'937;
        if (day > -999'000'000 && day < -140'000) {
            day = -140'000;
        }
    }
    EXPECT_EQ(platform::days_in_month(2000, 2) + platform::days_in_month(1900, 2), 57);
}

// The clock around a time, as "offset name" or "offset/standard name" with daylight time.
std::string clock_at(const Zone &zone, std::int64_t time) {
    const ZoneInterval interval = zone.At(time);
    EXPECT_LE(interval.begin, time);
    EXPECT_GT(interval.end, time);
    return std::to_string(interval.offset) +
           (interval.daylight ? '/' + std::to_string(interval.standard) : "") + ' ' + interval.name;
}

TEST(ZoneRules, ChangeOnTheirDates) {
    const struct {
        const char *rule;
        std::int64_t change;  // the first second of the new clock
        const char *before, *behind;
    } cases[] = {
        {"CET-1CEST,M3.5.0,M10.5.0/3", utc(2026, 3, 29, 1), "3600 CET", "7200/3600 CEST"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", utc(2999, 10, 27, 1), "7200/3600 CEST", "3600 CET"},
        {"EST5EDT", utc(2026, 11, 1, 6), "-14400/-18000 EDT", "-18000 EST"},
        {"<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", utc(2026, 4, 4, 15), "39600/37800 +11",
         "37800 +1030"},
        {"IST-1GMT0,M10.5.0,M3.5.0/1", utc(2026, 3, 29, 1), "0 GMT", "3600/0 IST"},
        {"IST-2IDT,M3.4.4/26,M10.5.0", utc(2026, 3, 27, 0), "7200 IST", "10800/7200 IDT"},
        {"<-02>2<-01>,M3.5.0/-1,M10.5.0/0", utc(2026, 3, 29, 1), "-7200 -02", "-3600/-7200 -01"},
        // The leap day counts for n and not for Jn; day 60 of a plain year is 1 March.
        {"AAA0BBB,59,J300", utc(2024, 2, 29, 2), "0 AAA", "3600/0 BBB"},
        {"AAA0BBB,J60,J300", utc(2024, 3, 1, 2), "0 AAA", "3600/0 BBB"},
        {"AAA0BBB,59,J300", utc(2023, 3, 1, 2), "0 AAA", "3600/0 BBB"},
        // Changes that come to lie in the year before and the year behind.
        {"AAA0BBB,0/-167,J180", utc(2025, 12, 25, 1), "0 AAA", "3600/0 BBB"},
        {"AAA0BBB,J180,J365/167:59:59", utc(2027, 1, 6, 23) - 1, "3600/0 BBB", "0 AAA"},
    };
    for (const auto &c : cases) {
        auto rule = platform::parse_zone_rule(c.rule);
        ASSERT_TRUE(rule) << c.rule;
        const Zone zone(*rule);
        EXPECT_EQ(clock_at(zone, c.change - 1), c.before) << c.rule << ' ' << c.change;
        EXPECT_EQ(clock_at(zone, c.change), c.behind) << c.rule << ' ' << c.change;
    }
    // Daylight time that ends as it begins again.
    const Zone always(*platform::parse_zone_rule("EST5EDT,0/0,J365/25"));
    for (int hour = -72; hour < 72; ++hour) {
        EXPECT_EQ(clock_at(always, utc(2027, 1, 1, 5) + hour * 3600), "-14400/-18000 EDT") << hour;
    }
}

TEST(ZoneRules, AreRefusedWhenTheyAreNone) {
    for (const std::string text : {"",
                                   "E5",
                                   "EST",
                                   "EST25",
                                   "EST5:60",
                                   "EST5:00:00:0",
                                   "<EST5",
                                   "<>5",
                                   "EST5 ",
                                   "5EST",
                                   "EST5ED",
                                   "EST5EDT,",
                                   "EST5EDT4,M3.2.0",
                                   "EST5EDT,M0.2.0,M11.1.0",
                                   "EST5EDT,M3.6.0,M11.1.0",
                                   "EST5EDT,M3.2.7,M11.1.0",
                                   "EST5EDT,J0,J365",
                                   "EST5EDT,J1,366",
                                   "EST5EDT,M3.2.0/168,M11.1.0",
                                   "EST5EDT,M3.2.0,M11.1.0x",
                                   "EST5EDT,,",
                                   "EST5EDT4M3.2.0",
                                   "EST00005",
                                   "E\xC3\x96ST5"}) {
        EXPECT_FALSE(platform::parse_zone_rule(text)) << text;
    }
    const std::string digits(10'000, '9');
    EXPECT_FALSE(platform::parse_zone_rule("EST" + digits));
    EXPECT_FALSE(platform::parse_zone_rule(std::string(10'000, 'E')));
}

const std::string kNames("ST\0DT\0UT", 9);

// A zone that leaves UTC in 2000 for an hour more in summer, and a day more for good in 2001.
ZoneBytes good_file() {
    return {
        {{utc(2000, 1, 1), 1}, {utc(2000, 5, 1), 2}, {utc(2000, 9, 1), 1}, {utc(2001, 1, 1), 3}},
        {{0, false, 6}, {-36000, false, 0}, {-32400, true, 3}, {50400, false, 0}},
        kNames,
        "<X14>-14<X15>,M4.1.0,M10.1.0"};
}

TEST(ZoneFiles, TellTheClock) {
    const auto zone = platform::read_zone_file(good_file().Bytes());
    ASSERT_NE(zone, nullptr);
    EXPECT_EQ(clock_at(*zone, utc(1900, 1, 1)), "0 UT");
    EXPECT_EQ(clock_at(*zone, utc(2000, 5, 1) - 1), "-36000 ST");
    EXPECT_EQ(clock_at(*zone, utc(2000, 5, 1)), "-32400/-36000 DT");
    EXPECT_EQ(clock_at(*zone, utc(2001, 2, 1)), "50400 X14");
    EXPECT_EQ(clock_at(*zone, utc(2002, 7, 1)), "54000/50400 X15");
    EXPECT_EQ(zone->At(utc(2001, 1, 2)).begin, utc(2001, 1, 1));

    const auto first_version = platform::read_zone_file(good_file().Block('\0', 4));
    ASSERT_NE(first_version, nullptr);
    EXPECT_EQ(clock_at(*first_version, utc(2000, 5, 1)), "-32400/-36000 DT");
    EXPECT_EQ(clock_at(*first_version, utc(2500, 7, 1)), "50400 ST");  // no rule

    const struct {
        std::int64_t local;
        ClockKind kind;
        std::int64_t time;
    } cases[] = {
        {utc(2000, 4, 30, 14, 30), ClockKind::kWall, utc(2000, 5, 1, 0, 30)},      // skipped
        {utc(2000, 8, 31, 14, 30), ClockKind::kWall, utc(2000, 8, 31, 23, 30)},    // twice
        {utc(2000, 8, 31, 14, 30), ClockKind::kStandard, utc(2000, 9, 1, 0, 30)},  // once
        {utc(2000, 12, 31, 20), ClockKind::kWall, utc(2001, 1, 1, 6)},             // skipped
        {utc(2001, 1, 1, 14), ClockKind::kWall, utc(2001, 1, 1)},
        {utc(2000, 1, 1) - 36'000 - 1, ClockKind::kWall, utc(2000, 1, 1) - 36'000 - 1},
        {utc(2000, 1, 1) - 36'000, ClockKind::kWall, utc(2000, 1, 1) - 36'000},  // twice
        {utc(2000, 1, 1), ClockKind::kWall, utc(2000, 1, 1, 10)},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(zone->ToUtc(c.local, c.kind), c.time) << c.local;
    }
}

// Of daylight time the file does not tell what it is ahead of, and it may be behind.
TEST(ZoneFiles, TellStandardTimeFromDaylightTime) {
    const struct {
        std::vector<ZoneBytes::Type> clocks;  // one after the other, half a year each
        std::vector<const char *> read;
    } cases[] = {
        {{{0, false, 0}, {3600, true, 3}, {7200, true, 3}, {3600, true, 3}, {0, false, 0}},
         {"0 ST", "3600/0 DT", "7200/0 DT", "3600/0 DT", "0 ST"}},
        {{{-3600, false, 0}, {0, true, 3}, {86400, true, 3}, {82800, false, 0}},
         {"-3600 ST", "0/-3600 DT", "86400/82800 DT", "82800 ST"}},
        {{{3600, false, 0}, {0, true, 3}, {3600, false, 0}, {0, true, 3}},
         {"3600 ST", "0 DT", "3600/0 ST", "0 DT"}},
        {{{0, false, 0}, {3600, true, 3}}, {"0 ST", "3600/0 DT"}},
        {{{7200, true, 3}}, {"7200/3600 DT"}},
    };
    for (const auto &c : cases) {
        ZoneBytes file{{}, c.clocks, kNames, ""};
        for (unsigned i = 1; i < c.clocks.size(); ++i) {
            file.changes.emplace_back(utc(2000, 1 + 6 * (i % 2), 1) + utc(1970 + i / 2, 1, 1), i);
        }
        const auto zone = platform::read_zone_file(file.Bytes());
        ASSERT_NE(zone, nullptr);
        for (unsigned i = 0; i < c.read.size(); ++i) {
            const std::int64_t time = i == 0 ? utc(1999, 12, 1) : file.changes[i - 1].first;
            EXPECT_EQ(clock_at(*zone, time), c.read[i]) << i;
        }
    }
}

TEST(ZoneFiles, AreRefusedWhenTheyAreBroken) {
    const std::string good = good_file().Bytes();
    for (std::size_t length = 0; length < good.size() - good_file().footer.size() - 2; ++length) {
        EXPECT_EQ(platform::read_zone_file(good.substr(0, length)), nullptr) << length;
    }
    const auto broken = [](auto change) {
        ZoneBytes file = good_file();
        change(&file);
        return platform::read_zone_file(file.Bytes()) == nullptr;
    };
    EXPECT_TRUE(broken([](ZoneBytes *file) { file->types.clear(); }));
    EXPECT_TRUE(broken([](ZoneBytes *file) { file->names.resize(6); }));
    EXPECT_TRUE(broken([](ZoneBytes *file) { file->changes[1].second = 4; }));
    EXPECT_TRUE(broken([](ZoneBytes *file) { file->changes[1].second = 255; }));
    EXPECT_TRUE(broken([](ZoneBytes *file) { file->changes[1].first = utc(2000, 1, 1); }));
    EXPECT_TRUE(broken([](ZoneBytes *file) { file->types[2].offset = INT_MIN; }));
    EXPECT_TRUE(broken([](ZoneBytes *file) { file->types[2].offset = 26 * 3600; }));
    EXPECT_FALSE(broken([](ZoneBytes *file) { file->footer = "nonsense"; }));
    // Every count as large as it gets, and every byte of both headers turned over.
    for (std::size_t at = 0; at < good.size(); ++at) {
        std::string bytes = good;
        bytes[at] = static_cast<char>(bytes[at] ^ 0xFF);
        if (const auto zone = platform::read_zone_file(bytes)) {
            zone->At(utc(2000, 6, 1));
            zone->ToUtc(utc(2500, 6, 1), ClockKind::kStandard);
        }
    }
    // Times beyond all bounds are no changes, but the first clock is theirs.
    ZoneBytes far = good_file();
    far.changes.insert(far.changes.begin(), {INT64_MIN, 2});
    far.changes.emplace_back(INT64_MAX, 0);
    far.footer.clear();
    const auto zone = platform::read_zone_file(far.Bytes());
    ASSERT_NE(zone, nullptr);
    EXPECT_EQ(clock_at(*zone, utc(1, 1, 1)), "-32400/-36000 DT");
    EXPECT_EQ(clock_at(*zone, utc(30'000, 1, 1)), "50400 ST");
}

}  // namespace
