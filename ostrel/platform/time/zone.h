#ifndef OSTREL_PLATFORM_TIME_ZONE_H
#define OSTREL_PLATFORM_TIME_ZONE_H

// Internal. A time zone: which clock is in force at a time, and the way back.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/platform/time/zone_rule.h"

namespace ostrel_platform {

// Offsets are smaller than this (RFC 8536: -89999 to 93599 seconds).
inline constexpr std::int64_t kMaxOffset = std::int64_t{26} * 3600;

// What a local time is counted in: the clock as it is, or that of standard time all the year.
enum class ClockKind : std::uint8_t { kWall, kStandard };

constexpr std::int64_t offset_of(const ZoneInterval &interval, ClockKind kind) {
    return kind == ClockKind::kWall ? interval.offset : interval.standard;
}

// Never changed once it is made, so that any thread may read it.
class Zone {
public:
    // UTC.
    Zone() = default;

    explicit Zone(ZoneRule rule);

    // `intervals` follow one another from kTimeBegin to kTimeEnd, their names lie in `names`. From
    // the beginning of the last one on, `rule` holds, if there is one.
    Zone(std::vector<ZoneInterval> intervals, std::unique_ptr<const std::string> names,
         std::optional<ZoneRule> rule);

    // The clock that is in force at a time between kTimeBegin and kTimeEnd.
    ZoneInterval At(std::int64_t time) const;

    // The time in UTC at which the clock shows `local`: the first, if there are several. A clock
    // that is skipped is read as if the change were still to come.
    std::int64_t ToUtc(std::int64_t local, ClockKind kind) const;

    // What the clocks of the zone differ by at most.
    std::int64_t Spread() const { return m_spread; }

    const ZoneRule *Rule() const { return m_rule ? &*m_rule : nullptr; }

private:
    void PrepareSearch();
    void MeasureSpread();
    std::size_t IndexAt(std::int64_t time) const;

    std::vector<ZoneInterval> m_intervals;
    std::vector<std::int64_t> m_begins;   // theirs
    std::vector<std::uint32_t> m_starts;  // where to begin a search, for equal steps from 1970 on
    std::unique_ptr<const std::string> m_names;
    std::optional<ZoneRule> m_rule;
    std::int64_t m_spread = 0;
};

// What a zone does in the year of standard time in which a time falls.
struct ZoneYear {
    std::int64_t number = 0;
    std::int64_t begin = 0;
    std::int64_t end = 0;
    ZoneInterval now;                      // at that time
    std::optional<ZoneInterval> standard;  // one of each kind: that of now, or else the last one
    std::optional<ZoneInterval> daylight;
    // In UTC, of each direction the last change in the year up to that time, or else the first.
    std::optional<std::int64_t> daylight_begins;
    std::optional<std::int64_t> standard_begins;
};

ZoneYear year_of_zone(const Zone &zone, std::int64_t time);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_ZONE_H
