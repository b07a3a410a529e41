// Zone files that no database has.

#include "ostrel/platform/time/zone_file.h"
#include "support/test.h"

namespace {

// The clock around a time, as "offset name" or "offset/standard name" with daylight time.
std::string clock_at(const std::string &file, std::int64_t time) {
    const auto zone = ostrel_platform::read_zone_file(file);
    if (zone == nullptr) {
        return "none";
    }
    zone->ToUtc(time, ostrel_platform::ClockKind::kStandard);
    const ostrel_platform::ZoneInterval clock = zone->At(time);
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

TEST(ZoneFile, IsRefusedWhenItIsBroken) {
    constexpr std::int64_t kMay = 957139200;
    EXPECT_EQ(clock_at(kFile, kMay - 1) + clock_at(kFile, 20 * kMay), "3600 ST3600 ST");
    const std::tuple<std::size_t, std::string, const char *> cases[] = {
        {0, "TZif", "7200/3600 DT"},
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
    for (const auto &[at, bytes, clock] : cases) {
        std::string file = kFile;
        EXPECT_EQ(clock_at(file.replace(at, bytes.size(), bytes), kMay), clock)
            << at << ' ' << PrintToString(bytes);
    }
    for (std::size_t size = 0; size < kFile.size(); ++size) {
        EXPECT_EQ(clock_at(kFile.substr(0, size), kMay), "none") << size;
    }
}

}  // namespace
