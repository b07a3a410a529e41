#ifndef OSTREL_PLATFORM_TIME_CALENDAR_H
#define OSTREL_PLATFORM_TIME_CALENDAR_H

// Internal. Converts between days and calendar dates by closed formulas, without loops or tables.
//
// The calendar is the Gregorian one, extended to the time before 1582. A count of days starts at
// 1970-01-01. The functions are exact for about 10^10 years in both directions, far beyond the
// range of the layer's field types.

#include <cstdint>

namespace ostrel_platform {

inline constexpr std::int64_t kSecondsOfDay = 86400;

// The last time of the runtime's calls, in seconds from 1970: the end of the year 3000 in UTC.
inline constexpr std::int64_t kLastTime = 32535215999;

struct CivilDay {
    std::int64_t year;
    int month;        // 1 to 12
    int day;          // 1 to 31
    int day_of_year;  // 0 to 365
};

namespace calendar {

// The functions count years from March, so that the leap day is the last day of a year. They count
// from 3*10^7 cycles of 400 years before the year 0, so that no intermediate number is negative.
inline constexpr std::int64_t kDaysOfCycle = 146097;
inline constexpr std::int64_t kYearShift = 400 * std::int64_t{30'000'000};
inline constexpr std::int64_t kDayShift = kDaysOfCycle * 30'000'000 + 719468;

}  // namespace calendar

// Return the quotient, rounded down, and the remainder, which is not negative. `divisor` is
// positive.
constexpr std::int64_t floor_quotient(std::int64_t value, std::int64_t divisor) {
    return value / divisor - (value % divisor < 0);
}
constexpr std::int64_t floor_remainder(std::int64_t value, std::int64_t divisor) {
    return value - floor_quotient(value, divisor) * divisor;
}

constexpr bool is_leap_year(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// Returns the days from 1970-01-01 to a date. `month` is 1 to 12. `day` counts from 1, the first of
// the month, and may be any number.
constexpr std::int64_t days_from_civil(std::int64_t year, int month, std::int64_t day) {
    const bool early = month <= 2;
    const auto y = static_cast<std::uint64_t>(year - early + calendar::kYearShift);
    const auto m = static_cast<unsigned>(month - 3 + 12 * early);
    const std::uint64_t century = y / 100;
    const std::uint64_t days = 365 * y + y / 4 - century + century / 4 + (153 * m + 2) / 5;
    return static_cast<std::int64_t>(days) - calendar::kDayShift + day - 1;
}

// Returns the date that is `days` days after 1970-01-01.
constexpr CivilDay civil_from_days(std::int64_t days) {
    // In quarters of a day a century has 146097 units and a year 1461, both whole numbers.
    const auto quarters = 4 * static_cast<std::uint64_t>(days + calendar::kDayShift) + 3;
    const std::uint64_t century = quarters / calendar::kDaysOfCycle;
    const auto rest = static_cast<std::uint32_t>(quarters - century * calendar::kDaysOfCycle) | 3;
    const std::uint32_t y = rest / 1461;
    const std::uint32_t n = rest % 1461 / 4;  // day of the year that began in March
    // Months from March have 30.6 days on average, so a day is 2141/65536 of a month. With the
    // start 197913 (C. Neri and L. Schneider, 2022) the number from bit 16 on is the month, and the
    // low 16 bits divided by 2141 give the day within the month.
    const std::uint32_t months = 2141 * n + 197913;
    const bool early = n >= 306;  // January and February, which belong to the next year
    const bool leap = y != 0 ? y % 4 == 0 : century % 4 == 0;  // of the year that contains March
    const std::uint32_t since_january = n + 59 + leap;
    return {static_cast<std::int64_t>(100 * century + y) - calendar::kYearShift + early,
            static_cast<int>((months >> 16) - (early ? 12 : 0)),
            static_cast<int>((months & 0xFFFF) / 2141 + 1),
            static_cast<int>(early ? n - 306 : since_january)};
}

// Returns the weekday of a count of days; 0 is Sunday.
constexpr int weekday_of(std::int64_t days) {
    constexpr std::int64_t kShift = 7 * std::int64_t{1'000'000'000'000};
    return static_cast<int>(static_cast<std::uint64_t>(days + 4 + kShift) % 7);
}

constexpr int days_in_month(std::int64_t year, int month) {
    return month == 2 ? 28 + is_leap_year(year) : 30 + ((month + (month > 7)) & 1);
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_CALENDAR_H
