#ifndef OSTREL_PLATFORM_TIME_ZONE_RULE_H
#define OSTREL_PLATFORM_TIME_ZONE_RULE_H

// Internal. Daylight time that comes back every year by a rule.

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace ostrel_platform {

// Bounds of all times, so far away that sums with offsets do not overflow.
inline constexpr std::int64_t kTimeBegin = -(std::int64_t{1} << 60);
inline constexpr std::int64_t kTimeEnd = std::int64_t{1} << 60;

// The clock of a zone for the times in UTC from `begin` to `end`, which is not included. The
// neighbours may have the same clock.
struct ZoneInterval {
    std::int64_t begin = kTimeBegin;
    std::int64_t end = kTimeEnd;
    std::int64_t offset = 0;    // local time - UTC in seconds
    std::int64_t standard = 0;  // what `offset` were without daylight time
    const char *name = "UTC";   // the abbreviation; lives as long as the zone
    bool daylight = false;
};

// A year, with the day on which it begins.
struct RuleYear {
    explicit RuleYear(std::int64_t number);
    RuleYear(std::int64_t first, bool leap) : first_day(first), is_leap(leap) {}

    std::int64_t first_day;
    bool is_leap;
};

// When in a year the clock changes, told on the clock that ends.
struct RuleDate {
    enum class Form : std::uint8_t {
        kWeekday,         // the `day`-th `weekday` of `month`, 5 is the last
        kDayOfMonth,      // day `day` of `month`
        kDayOfYear,       // day `day` of the year, from 0
        kDayOfPlainYear,  // day `day` of the year, from 1, 29 February not counted
    };
    Form form = Form::kDayOfYear;
    int month = 1;
    int day = 0;
    int weekday = 0;
    std::int64_t seconds =
        std::int64_t{2} * 3600;  // from midnight of that day; may be negative or beyond a day

    // In seconds from 1970-01-01 00:00:00 of that clock.
    std::int64_t InYear(const RuleYear &year) const;
};

struct ZoneRule {
    std::int64_t standard = 0;
    std::int64_t daylight = 0;  // offset with daylight time
    bool has_daylight = false;
    std::string standard_name;
    std::string daylight_name;
    RuleDate daylight_begins;
    RuleDate standard_begins;

    ZoneInterval At(std::int64_t time) const;

    // The changes of a year in UTC.
    std::int64_t DaylightBegins(const RuleYear &year) const;
    std::int64_t StandardBegins(const RuleYear &year) const;
};

// Reads a rule in the form of the POSIX variable TZ, with the extensions of RFC 8536 (hours to 167
// and below 0). Daylight time without dates has those of the United States since 2007. Daylight
// time that is behind standard time is turned round: the smaller offset is the standard one.
// Nothing for any other text.
std::optional<ZoneRule> parse_zone_rule(std::string_view text);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_ZONE_RULE_H
