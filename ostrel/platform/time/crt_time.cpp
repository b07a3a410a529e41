// The runtime's time calls.

#include <cerrno>

#include "ostrel/platform/time.h"
#include "ostrel/platform/time/calendar.h"
#include "ostrel/platform/time/zone_source.h"
#include "ostrel/platform/timezone.h"

namespace ostrel_platform {
namespace {

constexpr bool is_time(std::int64_t time) {
    return time >= 0 && time <= kLastTime;
}

void store_fields(std::int64_t time, const ZoneInterval &clock, std::tm *fields) {
    const std::int64_t local = time + clock.offset;
    const std::int64_t days = floor_quotient(local, kSecondsOfDay);
    const auto seconds = static_cast<int>(local - days * kSecondsOfDay);
    const CivilDay date = civil_from_days(days);
    fields->tm_sec = seconds % 60;
    fields->tm_min = seconds / 60 % 60;
    fields->tm_hour = seconds / 3600;
    fields->tm_mday = date.day;
    fields->tm_mon = date.month - 1;
    fields->tm_year = static_cast<int>(date.year - 1900);
    fields->tm_wday = weekday_of(days);
    fields->tm_yday = date.day_of_year;
    fields->tm_isdst = clock.daylight;
    fields->tm_gmtoff = static_cast<long>(clock.offset);  // the host's tm has two more fields
    fields->tm_zone = clock.name;
}

// Returns the seconds from 1970-01-01 00:00:00 on the clock of the fields. Every field may be out
// of its range.
std::int64_t seconds_of(const std::tm &fields) {
    std::int64_t year = std::int64_t{fields.tm_year} + 1900;
    int month = fields.tm_mon;
    if (month < 0 || month >= 12) {
        year += floor_quotient(month, 12);
        month = static_cast<int>(floor_remainder(month, 12));
    }
    const std::int64_t days = days_from_civil(year, month + 1, fields.tm_mday);
    return ((days * 24 + fields.tm_hour) * 60 + fields.tm_min) * 60 + fields.tm_sec;
}

// Returns the time at which a daylight clock shows `local`. `standard` is the time at which the
// standard clock shows `local`. Where the zone has no daylight time at that date, uses the
// difference of the present year.
std::int64_t daylight_time(LocalZone &zone, std::int64_t local, std::int64_t standard) {
    constexpr std::int64_t kMaxBias = std::int64_t{2} * 3600;
    for (const std::int64_t near : {standard, standard - kMaxBias}) {
        const ZoneInterval &clock = zone.At(near);
        const std::int64_t time = local - clock.offset;
        if (clock.daylight && time >= clock.begin && time < clock.end) {
            return time;
        }
    }
    return standard - zone.GetPresent().daylight_bias;
}

constexpr ZoneInterval kUtc;

constinit thread_local std::tm t_fields{};

std::tm *refused() {
    errno = EINVAL;
    return nullptr;
}

}  // namespace
}  // namespace ostrel_platform

std::int64_t _time64(std::int64_t *time) noexcept {
    const std::int64_t now = std::time(nullptr);
    if (time != nullptr) {
        *time = now;
    }
    return now;
}

std::tm *_localtime64(const std::int64_t *time) noexcept {
    if (time == nullptr || !ostrel_platform::is_time(*time)) {
        return ostrel_platform::refused();
    }
    std::tm *const fields = &ostrel_platform::t_fields;
    ostrel_platform::store_fields(*time, ostrel_platform::LocalZone::Current().At(*time), fields);
    return fields;
}

std::tm *_gmtime64(const std::int64_t *time) noexcept {
    if (time == nullptr || !ostrel_platform::is_time(*time)) {
        return ostrel_platform::refused();
    }
    std::tm *const fields = &ostrel_platform::t_fields;
    ostrel_platform::store_fields(*time, ostrel_platform::kUtc, fields);
    return fields;
}

std::int64_t _mktime64(std::tm *time) noexcept {
    // Every clock is nearer to UTC, daylight time included.
    constexpr std::int64_t kFarthest = 3 * ostrel_platform::kMaxOffset;
    if (time != nullptr) {
        const std::int64_t local = ostrel_platform::seconds_of(*time);
        if (local >= -kFarthest && local <= ostrel_platform::kLastTime + kFarthest) {
            ostrel_platform::LocalZone &zone = ostrel_platform::LocalZone::Current();
            const auto kind = time->tm_isdst < 0 ? ostrel_platform::ClockKind::kWall
                                                 : ostrel_platform::ClockKind::kStandard;
            std::int64_t result = zone.ToUtc(local, kind);
            if (time->tm_isdst > 0) {
                result = ostrel_platform::daylight_time(zone, local, result);
            }
            if (ostrel_platform::is_time(result)) {
                ostrel_platform::store_fields(result, zone.At(result), time);
                return result;
            }
        }
    }
    errno = EINVAL;
    return -1;
}

std::int64_t _mkgmtime64(std::tm *time) noexcept {
    if (time != nullptr) {
        const std::int64_t result = ostrel_platform::seconds_of(*time);
        if (ostrel_platform::is_time(result)) {
            ostrel_platform::store_fields(result, ostrel_platform::kUtc, time);
            return result;
        }
    }
    errno = EINVAL;
    return -1;
}

double _difftime64(std::int64_t end, std::int64_t start) noexcept {
    if (end < 0 || start < 0) {
        errno = EINVAL;
        return 0;
    }
    return static_cast<double>(end - start);
}

LONG platform_timezone() noexcept {
    return static_cast<LONG>(-ostrel_platform::LocalZone::Current().GetPresent().standard);
}

int platform_daylight() noexcept {
    return ostrel_platform::LocalZone::Current().GetPresent().has_daylight;
}
