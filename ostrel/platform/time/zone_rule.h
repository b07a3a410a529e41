#ifndef OSTREL_PLATFORM_TIME_ZONE_RULE_H
#define OSTREL_PLATFORM_TIME_ZONE_RULE_H

// Internal. A rule for daylight time that repeats every year.
//
// Times are seconds from 1970-01-01 00:00:00 UTC; offsets are seconds.

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace ostrel_platform {

// The bounds of all times. They leave a margin, so that sums with offsets do not overflow.
inline constexpr std::int64_t kTimeBegin = -(std::int64_t{1} << 60);
inline constexpr std::int64_t kTimeEnd = std::int64_t{1} << 60;

// The clock of a zone for the times in UTC from `begin` to `end`, `end` excluded. Neighbouring
// intervals may have the same clock.
struct ZoneInterval {
    std::int64_t begin = kTimeBegin;
    std::int64_t end = kTimeEnd;
    std::int64_t offset = 0;    // local time - UTC, in seconds
    std::int64_t standard = 0;  // the offset without daylight time
    const char *name = "UTC";   // the abbreviation; the zone or rule owns the text
    bool daylight = false;
};

// A year, prepared for the calculation of dates.
struct RuleYear {
    explicit RuleYear(std::int64_t number);
    RuleYear(std::int64_t first, bool leap) : first_day(first), is_leap(leap) {}

    std::int64_t first_day;  // 1 January, in days from 1970-01-01
    bool is_leap;
};

// When in a year the clock changes, on the clock in force before the change.
struct RuleDate {
    enum class Form : std::uint8_t {
        kWeekday,         // the `day`-th `weekday` of `month`; 5 is the last, 0 is Sunday
        kDayOfMonth,      // day `day` of `month`
        kDayOfYear,       // day `day` of the year, from 0
        kDayOfPlainYear,  // day `day` of the year, from 1, without 29 February
    };
    Form form = Form::kDayOfYear;
    int month = 1;
    int day = 0;
    int weekday = 0;
    // From midnight of that day; may be negative or beyond a day.
    std::int64_t seconds = std::int64_t{2} * 3600;

    // Returns the change in a year, in seconds from 1970-01-01 00:00:00 on that clock.
    std::int64_t InYear(const RuleYear &year) const;
};

// The two clocks of a zone, and the dates of the changes between them.
struct ZoneRule {
    std::int64_t standard = 0;  // the offset of standard time
    std::int64_t daylight = 0;  // the offset of daylight time
    bool has_daylight = false;
    std::string standard_name;
    std::string daylight_name;
    RuleDate daylight_begins;
    RuleDate standard_begins;

    // Returns the clock in force at a time. The interval may be shorter than the clock lasts. The
    // name points into this object.
    ZoneInterval At(std::int64_t time) const;

    // Return the changes of a year, in UTC.
    std::int64_t DaylightBegins(const RuleYear &year) const;
    std::int64_t StandardBegins(const RuleYear &year) const;
};

// Parses a rule in the form of the POSIX variable TZ, with the extensions of RFC 8536 (the hours of
// a change are -167 to 167). Daylight time without dates gets the dates of the United States since
// 2007. When daylight time is behind standard time, the call swaps the two, so that the smaller
// offset is the standard one. Returns nothing for any other text.
std::optional<ZoneRule> parse_zone_rule(std::string_view text);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_ZONE_RULE_H
