#ifndef OSTREL_PLATFORM_TIME_ZONE_H
#define OSTREL_PLATFORM_TIME_ZONE_H

// Internal. A time zone: a table of intervals with one clock each, and a rule for later times.
//
// Times are seconds from 1970-01-01 00:00:00 UTC; offsets are seconds.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/platform/time/zone_rule.h"

namespace ostrel_platform {

// Every offset is smaller in magnitude (RFC 8536: -89999 to 93599 seconds).
inline constexpr std::int64_t kMaxOffset = std::int64_t{26} * 3600;

// The clock of a local time: kWall is the clock in use, kStandard shows standard time all year.
enum class ClockKind : std::uint8_t { kWall, kStandard };

constexpr std::int64_t offset_of(const ZoneInterval &interval, ClockKind kind) {
    return kind == ClockKind::kWall ? interval.offset : interval.standard;
}

// Threads: a zone does not change after construction, so every thread may read it.
class Zone {
public:
    // Constructs UTC.
    Zone() = default;

    explicit Zone(ZoneRule rule);

    // `intervals` are not empty and cover the time from kTimeBegin to kTimeEnd without gaps. Their
    // names point into `names`, which the zone then owns. If there is a rule, it replaces the last
    // interval from that interval's beginning.
    Zone(std::vector<ZoneInterval> intervals, std::unique_ptr<const std::string> names,
         std::optional<ZoneRule> rule);

    // Returns the clock in force at a time from kTimeBegin to kTimeEnd, kTimeEnd excluded.
    ZoneInterval At(std::int64_t time) const;

    // Returns the time in UTC at which the clock shows `local`, seconds from 1970-01-01 00:00:00 on
    // that clock. Of several such times returns the first. A reading that the zone skips is
    // converted with the offset in force before the gap.
    std::int64_t ToUtc(std::int64_t local, ClockKind kind) const;

    // Returns the largest difference between two offsets of the zone, standard offsets included.
    std::int64_t Spread() const { return m_spread; }

    const ZoneRule *Rule() const { return m_rule ? &*m_rule : nullptr; }

private:
    void PrepareSearch();
    void MeasureSpread();
    std::size_t IndexAt(std::int64_t time) const;

    std::vector<ZoneInterval> m_intervals;
    std::vector<std::int64_t> m_begins;   // the `begin` of each interval
    std::vector<std::uint32_t> m_starts;  // where a search starts, for equal steps from 1970 on
    std::unique_ptr<const std::string> m_names;
    std::optional<ZoneRule> m_rule;
    std::int64_t m_spread = 0;
};

// The clocks of a zone, and its changes, in the year of standard time that contains a time.
struct ZoneYear {
    std::int64_t number = 0;
    std::int64_t begin = 0;  // of the year, in UTC
    std::int64_t end = 0;    // excluded
    ZoneInterval now;        // the interval at that time
    // `now` if it is of that kind, otherwise the last interval of that kind in the year, if any.
    std::optional<ZoneInterval> standard;
    std::optional<ZoneInterval> daylight;
    // The last such change in the year up to that time, otherwise the first in the year, in UTC.
    std::optional<std::int64_t> daylight_begins;
    std::optional<std::int64_t> standard_begins;
};

ZoneYear year_of_zone(const Zone &zone, std::int64_t time);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_ZONE_H
