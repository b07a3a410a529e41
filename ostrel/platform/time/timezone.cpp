#include "ostrel/platform/timezone.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>

#include "ostrel/platform/time/calendar.h"
#include "ostrel/platform/time/system_time.h"
#include "ostrel/platform/time/zone_source.h"

namespace ostrel_platform {
namespace {

// The two changes of a year, each on the clock in force before the change.
struct ChangeDates {
    SYSTEMTIME daylight;
    SYSTEMTIME standard;
};

// The two changes of a year, in seconds from 1970-01-01 00:00:00 on the clock in force before the
// change. A missing change to daylight time is the first second of the year, a missing change to
// standard time the last second.
struct LocalChanges {
    std::int64_t daylight;
    std::int64_t standard;
};

LocalChanges local_changes(const ZoneYear &year) {
    return {year.daylight_begins.value_or(year.begin) + year.daylight->standard,
            year.standard_begins ? *year.standard_begins + year.daylight->offset
                                 : year.end - 1 + year.now.standard};
}

SYSTEMTIME fields_of_local(std::int64_t local) {
    return fields_of(local * 1000 + kMillisecondsTo1970);
}

// Returns the change as a weekday of its month (wYear 0) if that weekday and time of day describe
// the changes of both years, otherwise nothing.
std::optional<SYSTEMTIME> as_weekday(std::int64_t local, std::int64_t next_local) {
    SYSTEMTIME date = fields_of_local(local);
    const SYSTEMTIME next = fields_of_local(next_local);
    const auto week = [](const SYSTEMTIME &of) { return (of.wDay - 1) / 7 + 1; };
    const auto is_last = [](const SYSTEMTIME &of) {
        return of.wDay + 7 > days_in_month(of.wYear, of.wMonth);
    };
    const bool last = is_last(date) && is_last(next);
    if (date.wMonth != next.wMonth || date.wDayOfWeek != next.wDayOfWeek ||
        floor_remainder(local - next_local, kSecondsOfDay) != 0 ||
        (!last && week(date) != week(next))) {
        return std::nullopt;
    }
    date.wYear = 0;
    date.wDay = static_cast<WORD>(last ? 5 : week(date));
    return date;
}

// Returns a date of a rule in the platform's form, if that form can express it.
std::optional<SYSTEMTIME> as_weekday(const RuleDate &date) {
    if (date.form != RuleDate::Form::kWeekday || date.seconds < 0 ||
        date.seconds >= kSecondsOfDay) {
        return std::nullopt;
    }
    SYSTEMTIME fields = fields_of(date.seconds * 1000);
    fields.wYear = 0;
    fields.wMonth = static_cast<WORD>(date.month);
    fields.wDayOfWeek = static_cast<WORD>(date.weekday);
    fields.wDay = static_cast<WORD>(date.day);
    return fields;
}

// Returns the dates of the zone's rule if the changes of the year follow that rule.
std::optional<ChangeDates> dates_of_rule(const ZoneRule *rule, const ZoneYear &year) {
    if (rule == nullptr || !rule->has_daylight ||
        year.daylight_begins != rule->DaylightBegins(RuleYear(year.number)) ||
        year.standard_begins != rule->StandardBegins(RuleYear(year.number))) {
        return std::nullopt;
    }
    const std::optional<SYSTEMTIME> daylight = as_weekday(rule->daylight_begins);
    const std::optional<SYSTEMTIME> standard = as_weekday(rule->standard_begins);
    return daylight && standard ? std::optional(ChangeDates{*daylight, *standard}) : std::nullopt;
}

ChangeDates change_dates(const Zone &zone, const ZoneYear &year) {
    if (const auto dates = dates_of_rule(zone.Rule(), year)) {
        return *dates;
    }
    const LocalChanges local = local_changes(year);
    const ZoneYear next = year_of_zone(zone, year.end + 183 * kSecondsOfDay);
    if (year.daylight_begins && year.standard_begins && next.daylight_begins &&
        next.standard_begins) {
        const LocalChanges next_local = local_changes(next);
        const auto daylight = as_weekday(local.daylight, next_local.daylight);
        const auto standard = as_weekday(local.standard, next_local.standard);
        if (daylight && standard) {
            return {*daylight, *standard};
        }
    }
    return {fields_of_local(local.daylight), fields_of_local(local.standard)};
}

template <std::size_t capacity>
void store_name(const char *name, WCHAR (&text)[capacity]) {
    for (std::size_t i = 0; i + 1 < capacity && name[i] != '\0'; ++i) {
        text[i] = static_cast<unsigned char>(name[i]);
    }
}

// Returns false when the fields are not a valid date.
bool read_date(const SYSTEMTIME &fields, RuleDate *date) {
    const bool absolute = fields.wYear != 0;
    const int days =
        absolute && fields.wMonth <= 12 ? days_in_month(fields.wYear, fields.wMonth) : 5;
    date->form = absolute ? RuleDate::Form::kDayOfMonth : RuleDate::Form::kWeekday;
    date->month = fields.wMonth;
    date->day = fields.wDay;
    date->weekday = fields.wDayOfWeek;
    date->seconds = (fields.wHour * 60 + fields.wMinute) * 60 + fields.wSecond;
    return fields.wMonth >= 1 && fields.wMonth <= 12 && fields.wDay >= 1 && fields.wDay <= days &&
           (absolute || fields.wDayOfWeek <= 6) && fields.wHour <= 23 && fields.wMinute <= 59 &&
           fields.wSecond <= 59;
}

std::optional<ZoneRule> read_zone(const TIME_ZONE_INFORMATION &zone) {
    ZoneRule rule;
    rule.standard = -60 * (std::int64_t{zone.Bias} + zone.StandardBias);
    rule.daylight = -60 * (std::int64_t{zone.Bias} + zone.DaylightBias);
    rule.has_daylight = zone.StandardDate.wMonth != 0 || zone.DaylightDate.wMonth != 0;
    if (rule.has_daylight && !(read_date(zone.StandardDate, &rule.standard_begins) &&
                               read_date(zone.DaylightDate, &rule.daylight_begins))) {
        return std::nullopt;
    }
    return rule;
}

// A cache for each thread: the rule that the thread used last, parsed, with the changes of up to 32
// years. Callers convert many times by one rule.
class GivenRule {
public:
    // Returns nothing when `zone` is not valid. `utc` and `time` are the same moment.
    static std::optional<std::int64_t> OffsetAt(const TIME_ZONE_INFORMATION &zone,
                                                const SYSTEMTIME &utc, std::int64_t time) {
        thread_local constinit GivenRule kept;
        if (std::memcmp(&zone, &kept.m_given, sizeof zone) != 0 && !kept.Read(zone)) {
            return std::nullopt;
        }
        return kept.Offset(utc, time);
    }

private:
    struct Year {
        int number = 0;
        std::int64_t daylight_begins = 0;
        std::int64_t standard_begins = 0;
    };
    static constexpr int kYears = 32;

    // Returns false and keeps the old rule when `zone` is not valid.
    bool Read(const TIME_ZONE_INFORMATION &zone) {
        const std::optional<ZoneRule> rule = read_zone(zone);
        if (rule) {
            std::memcpy(&m_given, &zone, sizeof zone);
            m_standard = rule->standard;
            m_daylight = rule->daylight;
            m_hasDaylight = rule->has_daylight;
            m_isFar = std::max(std::abs(m_standard), std::abs(m_daylight)) > kSecondsOfDay;
            std::fill(std::begin(m_years), std::end(m_years), Year());
        }
        return rule.has_value();
    }

    // Whether a change of the neighbouring year may be near.
    static bool IsAtEdge(const SYSTEMTIME &utc) {
        return (utc.wMonth == 1 && utc.wDay < 13) || (utc.wMonth == 12 && utc.wDay > 18);
    }

    std::int64_t Offset(const SYSTEMTIME &utc, std::int64_t time) {
        if (!m_hasDaylight) {
            return m_standard;
        }
        if (m_isFar || IsAtEdge(utc)) {
            return read_zone(m_given)->At(time).offset;
        }
        Year &year = m_years[utc.wYear % kYears];
        if (year.number != utc.wYear) {
            const ZoneRule rule = *read_zone(m_given);
            const RuleYear number(utc.wYear);
            year = {utc.wYear, rule.DaylightBegins(number), rule.StandardBegins(number)};
        }
        const bool behind_daylight = time >= year.daylight_begins;
        const bool behind_standard = time >= year.standard_begins;
        const bool daylight = year.daylight_begins < year.standard_begins
                                  ? behind_daylight && !behind_standard
                                  : behind_daylight || !behind_standard;
        return daylight ? m_daylight : m_standard;
    }

    TIME_ZONE_INFORMATION m_given = {};  // UTC
    std::int64_t m_standard = 0;
    std::int64_t m_daylight = 0;
    bool m_hasDaylight = false;
    bool m_isFar = false;  // an offset exceeds a day
    Year m_years[kYears];
};

// Stores the rule of the year that contains `now`, and the times from `begin` to `end`, `end`
// excluded, for which rule and result are valid. Returns the TIME_ZONE_ID_ value.
DWORD describe_rule(const Zone &zone, std::int64_t now, TIME_ZONE_INFORMATION *rule,
                    std::int64_t *begin, std::int64_t *end) {
    const ZoneYear year = year_of_zone(zone, now);
    *begin = std::max(year.begin, year.now.begin);
    *end = std::min(year.end, year.now.end);
    *rule = TIME_ZONE_INFORMATION();
    rule->Bias = static_cast<LONG>(-year.now.standard / 60);
    store_name((year.standard ? *year.standard : year.now).name, rule->StandardName);
    if (!year.daylight) {
        return TIME_ZONE_ID_UNKNOWN;
    }
    const ChangeDates dates = change_dates(zone, year);
    rule->StandardDate = dates.standard;
    rule->DaylightDate = dates.daylight;
    rule->DaylightBias = static_cast<LONG>((year.daylight->standard - year.daylight->offset) / 60);
    store_name(year.daylight->name, rule->DaylightName);
    return year.now.daylight ? TIME_ZONE_ID_DAYLIGHT : TIME_ZONE_ID_STANDARD;
}

// Stores the present rule of the local zone; returns the TIME_ZONE_ID_ value. Each thread caches
// both.
DWORD present_rule(TIME_ZONE_INFORMATION *rule) {
    struct Kept {
        const Zone *zone = nullptr;
        std::int64_t begin = 0;
        std::int64_t end = 0;
        DWORD kind = TIME_ZONE_ID_UNKNOWN;
        TIME_ZONE_INFORMATION rule = {};
    };
    thread_local constinit Kept kept;
    const Zone *const zone = &LocalZone::Current().Get();
    const std::int64_t now = coarse_time();
    if (zone != kept.zone || now < kept.begin || now >= kept.end) {
        kept.kind = describe_rule(*zone, now, &kept.rule, &kept.begin, &kept.end);
        kept.zone = zone;
    }
    *rule = kept.rule;
    return kept.kind;
}

}  // namespace
}  // namespace ostrel_platform

DWORD GetTimeZoneInformation(TIME_ZONE_INFORMATION *zone) noexcept {
    if (zone == nullptr) {
        ostrel_platform::fail_with_invalid_parameter();
        return TIME_ZONE_ID_INVALID;
    }
    return ostrel_platform::present_rule(zone);
}

BOOL SystemTimeToTzSpecificLocalTime(const TIME_ZONE_INFORMATION *zone, const SYSTEMTIME *utc,
                                     SYSTEMTIME *local) noexcept {
    if (utc == nullptr || local == nullptr) {
        return ostrel_platform::fail_with_invalid_parameter();
    }
    const std::optional<std::int64_t> milliseconds = ostrel_platform::milliseconds_of(*utc);
    if (!milliseconds) {
        return ostrel_platform::fail_with_invalid_parameter();
    }
    const std::int64_t time =
        ostrel_platform::floor_quotient(*milliseconds - ostrel_platform::kMillisecondsTo1970, 1000);
    const std::optional<std::int64_t> offset =
        zone != nullptr ? ostrel_platform::GivenRule::OffsetAt(*zone, *utc, time)
                        : ostrel_platform::LocalZone::Current().At(time).offset;
    const std::int64_t clock = *milliseconds + offset.value_or(0) * 1000;
    if (!offset || !ostrel_platform::is_year_of_fields(clock)) {
        return ostrel_platform::fail_with_invalid_parameter();
    }
    *local = ostrel_platform::fields_of(clock);
    return TRUE;
}

BOOL FileTimeToLocalFileTime(const FILETIME *utc, FILETIME *local) noexcept {
    if (utc == nullptr || local == nullptr || utc == local) {
        return ostrel_platform::fail_with_invalid_parameter();
    }
    const std::optional<std::int64_t> ticks = ostrel_platform::ticks_of(*utc);
    const std::int64_t offset = ostrel_platform::LocalZone::Current().GetPresent().offset;
    std::int64_t clock = 0;
    if (!ticks ||
        __builtin_add_overflow(*ticks, offset * ostrel_platform::kTicksOfSecond, &clock) ||
        clock < 0) {
        return ostrel_platform::fail_with_invalid_parameter();
    }
    *local = ostrel_platform::count_of(clock);
    return TRUE;
}
