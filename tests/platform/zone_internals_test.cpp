// Zone files that no database has.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "ostrel/platform/zone_file.h"

namespace {

// The clock around a time, as "offset name" or "offset/standard name" with daylight time.
std::string clock_at(const std::string &file, std::int64_t time) {
    const auto zone = platform::read_zone_file(file);
    if (zone == nullptr) {
        return "none";
    }
    zone->ToUtc(time, platform::ClockKind::kStandard);
    const platform::ZoneInterval clock = zone->At(time);
    EXPECT_TRUE(clock.begin <= time && time < clock.end);
    return std::to_string(clock.offset) +
           (clock.daylight ? '/' + std::to_string(clock.standard) : "") + ' ' + clock.name;
}

// A file of the first version, for a zone that is an hour ahead in the summer of 2000.
const std::string kHeader("TZif\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 32);
const std::string kCounts("\0\0\0\2\0\0\0\2\0\0\0\6", 12);  // changes, clocks, characters
const std::string kChanges("\x39\x0C\xC9\x00\x39\xAE\xF1\x80\1\0", 10);  // 1 May, 1 September
const std::string kClocks("\0\0\x0E\x10\0\0\0\0\x1C\x20\1\3ST\0DT\0", 18);
const std::string kFile = kHeader + kCounts + kChanges + kClocks;

TEST(ZoneFiles, AreRefusedWhenTheyAreBroken) {
    constexpr std::int64_t kMay = 957139200;
    EXPECT_EQ(clock_at(kFile, kMay - 1), "3600 ST");
    EXPECT_EQ(clock_at(kFile, kMay), "7200/3600 DT");
    EXPECT_EQ(clock_at(kFile, 20 * kMay), "3600 ST");
    const struct {
        std::size_t at;
        std::string bytes;
        const char *clock;  // on 1 May
    } cases[] = {
        {0, "TZIF", "none"},
        {32, {"\x7F\xFF\xFF\xFF\0\0\0\2", 8}, "none"},     // more changes than there are bytes
        {32, {"\0\0\0\0\0\0\0\0\0\0\0\x1C", 12}, "none"},  // no clock
        {36, "\xFF\xFF\xFF\xFF", "none"},                  // counts that overflow
        {44, "\x39\xAE\xF1\x80", "none"},                  // changes out of order
        {44, {"\x80\0\0\0", 4}, "7200/3600 DT"},           // one before all times
        {52, "\2", "none"},                                // a clock that is not there
        {60, {"\x80\0\0\0", 4}, "none"},                   // offsets of a day and more
        {60, {"\0\1\x6D\xA0", 4}, "none"},
        {65, "\6", "none"},  // a name that is not there
    };
    for (const auto &c : cases) {
        std::string file = kFile;
        EXPECT_EQ(clock_at(file.replace(c.at, c.bytes.size(), c.bytes), kMay), c.clock) << c.at;
    }
}

// One of the database, cut anywhere, and with any byte turned over.
TEST(ZoneFiles, AreReadWithinTheirBounds) {
    std::ifstream stream("/usr/share/zoneinfo/Australia/Lord_Howe", std::ios::binary);
    const std::string good(std::istreambuf_iterator<char>(stream), {});
    ASSERT_NE(clock_at(good, 0), "none");
    const std::size_t footer = good.rfind('\n', good.size() - 2);
    for (std::size_t at = 0; at < good.size(); ++at) {
        EXPECT_EQ(clock_at(good.substr(0, at), 0) == "none", at < footer) << at;
        std::string bytes = good;
        bytes[at] = static_cast<char>(bytes[at] ^ 0xFF);
        clock_at(bytes, 1700000000);
    }
}

// Daylight time stopped for a month in the summer of 2015: what counts is the change in force.
TEST(ZoneFiles, TellTheChangesThatHoldInAYearOfMany) {
    std::ifstream stream("/usr/share/zoneinfo/Africa/Casablanca", std::ios::binary);
    const auto zone =
        platform::read_zone_file(std::string(std::istreambuf_iterator<char>(stream), {}));
    ASSERT_NE(zone, nullptr);
    constexpr std::int64_t kMarch = 1427594400, kJune = 1434247200, kJuly = 1437271200;
    for (const auto &[time, daylight] :
         {std::pair(kJune + 86400, kMarch), {kJuly + 86400, kJuly}}) {
        const platform::ZoneYear year = platform::year_of_zone(*zone, time);
        EXPECT_EQ(year.daylightBegins, daylight);
        EXPECT_EQ(year.standardBegins, kJune);
    }
}

}  // namespace
