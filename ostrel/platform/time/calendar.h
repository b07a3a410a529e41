#ifndef OSTREL_PLATFORM_TIME_CALENDAR_H
#define OSTREL_PLATFORM_TIME_CALENDAR_H

// Internal. The Gregorian calendar, carried on before 1582, in closed form.
//
// Days are counted from 1970-01-01. Everything holds for some 10^10 years in both directions, far
// beyond what any of the layer's field types can hold.

#include <cstdint>

namespace ostrel_platform {

inline constexpr std::int64_t kSecondsOfDay = 86400;

// The runtime's times: 1970 to the end of the year 3000.
inline constexpr std::int64_t kLastTime = 32535215999;

struct CivilDay {
    std::int64_t year;
    int month;        // 1 to 12
    int day;          // 1 to 31
    int day_of_year;  // 0 to 365
};

namespace calendar {

// Years are counted from March within, so that the leap day is the last one, and from so far back
// that no number is negative: 3*10^7 cycles of 400 years before the year 0.
inline constexpr std::int64_t kDaysOfCycle = 146097;
inline constexpr std::int64_t kYearShift = 400 * std::int64_t{30'000'000};
inline constexpr std::int64_t kDayShift = kDaysOfCycle * 30'000'000 + 719468;

}  // namespace calendar

// Quotient and remainder with the remainder not negative. `divisor` is positive.
constexpr std::int64_t floor_quotient(std::int64_t value, std::int64_t divisor) {
    return value / divisor - (value % divisor < 0);
}
constexpr std::int64_t floor_remainder(std::int64_t value, std::int64_t divisor) {
    return value - floor_quotient(value, divisor) * divisor;
}

constexpr bool is_leap_year(std::int64_t year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// `month` is 1 to 12; `day` may be any, 1 is the first of the month.
constexpr std::int64_t days_from_civil(std::int64_t year, int month, std::int64_t day) {
    const bool early = month <= 2;
    const auto y = static_cast<std::uint64_t>(year - early + calendar::kYearShift);
    const auto m = static_cast<unsigned>(month - 3 + 12 * early);
    const std::uint64_t century = y / 100;
    const std::uint64_t days = 365 * y + y / 4 - century + century / 4 + (153 * m + 2) / 5;
    return static_cast<std::int64_t>(days) - calendar::kDayShift + day - 1;
}

constexpr CivilDay civil_from_days(std::int64_t days) {
    // Four times a count of days plus 3: a century has 146097 such quarters, a year 1461.
    const auto quarters = 4 * static_cast<std::uint64_t>(days + calendar::kDayShift) + 3;
    const std::uint64_t century = quarters / calendar::kDaysOfCycle;
    const auto rest = static_cast<std::uint32_t>(quarters - century * calendar::kDaysOfCycle) | 3;
    const std::uint32_t y = rest / 1461;
    const std::uint32_t n = rest % 1461 / 4;  // day of the year that began in March
    // Months from March are 30.6 days long on average: in units of 1/65536 month a day has 2141,
    // and with this start (C. Neri and L. Schneider, 2022) every first of a month comes out whole.
    const std::uint32_t months = 2141 * n + 197913;
    const bool early = n >= 306;  // January and February, which are of the next year
    const bool leap = y != 0 ? y % 4 == 0 : century % 4 == 0;  // of the year in which March lies
    const std::uint32_t since_january = n + 59 + leap;
    return {static_cast<std::int64_t>(100 * century + y) - calendar::kYearShift + early,
            static_cast<int>((months >> 16) - (early ? 12 : 0)),
            static_cast<int>((months & 0xFFFF) / 2141 + 1),
            static_cast<int>(early ? n - 306 : since_january)};
}

// 0 is Sunday.
constexpr int weekday_of(std::int64_t days) {
    constexpr std::int64_t kShift = 7 * std::int64_t{1'000'000'000'000};
    return static_cast<int>(static_cast<std::uint64_t>(days + 4 + kShift) % 7);
}

constexpr int days_in_month(std::int64_t year, int month) {
    return month == 2 ? 28 + is_leap_year(year) : 30 + ((month + (month > 7)) & 1);
}

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_CALENDAR_H
