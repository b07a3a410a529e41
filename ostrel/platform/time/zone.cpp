#include "ostrel/platform/time/zone.h"

#include <algorithm>
#include <utility>

#include "ostrel/platform/time/calendar.h"

namespace ostrel_platform {
namespace {

// 2^23 seconds are 97 days, in which no zone has many changes.
constexpr int kStepBits = 23;

}  // namespace

Zone::Zone(ZoneRule rule) : m_rule(std::move(rule)) {
    MeasureSpread();
}

Zone::Zone(std::vector<ZoneInterval> intervals, std::unique_ptr<const std::string> names,
           std::optional<ZoneRule> rule)
    : m_intervals(std::move(intervals)), m_names(std::move(names)), m_rule(std::move(rule)) {
    PrepareSearch();
    MeasureSpread();
}

void Zone::PrepareSearch() {
    for (const ZoneInterval &interval : m_intervals) {
        m_begins.push_back(interval.begin);
    }
    const std::int64_t last = std::min(m_begins.back(), kLastTime);
    std::uint32_t index = 0;
    for (std::int64_t time = 0; time <= last; time += std::int64_t{1} << kStepBits) {
        while (index + 1 < m_begins.size() && m_begins[index + 1] <= time) {
            ++index;
        }
        m_starts.push_back(index);
    }
}

void Zone::MeasureSpread() {
    std::vector<std::int64_t> offsets;
    for (const ZoneInterval &interval : m_intervals) {
        offsets.insert(offsets.end(), {interval.offset, interval.standard});
    }
    if (m_rule) {
        offsets.insert(offsets.end(), {m_rule->standard, m_rule->daylight});
    }
    const auto [least, greatest] = std::minmax_element(offsets.begin(), offsets.end());
    m_spread = *greatest - *least;
}

// Returns the index of the interval that contains a time.
std::size_t Zone::IndexAt(std::int64_t time) const {
    const auto step = static_cast<std::uint64_t>(time) >> kStepBits;
    if (step >= m_starts.size()) {
        const auto behind = std::upper_bound(m_begins.begin(), m_begins.end(), time);
        return static_cast<std::size_t>(behind - m_begins.begin()) - 1;
    }
    std::size_t index = m_starts[step];
    while (index + 1 < m_begins.size() && m_begins[index + 1] <= time) {
        ++index;
    }
    return index;
}

ZoneInterval Zone::At(std::int64_t time) const {
    const std::int64_t table_end = m_begins.empty() ? kTimeBegin : m_begins.back();
    if (m_rule && time >= table_end) {
        ZoneInterval interval = m_rule->At(time);
        interval.begin = std::max(interval.begin, table_end);
        return interval;
    }
    return m_intervals.empty() ? ZoneInterval() : m_intervals[IndexAt(time)];
}

// Starts with the interval of a time before every candidate, and walks to the first interval whose
// clock shows `local` before the interval ends.
std::int64_t Zone::ToUtc(std::int64_t local, ClockKind kind) const {
    ZoneInterval interval = At(local - kMaxOffset);
    std::int64_t time = local - offset_of(interval, kind);
    while (time >= interval.end) {
        interval = At(interval.end);
        const std::int64_t next = local - offset_of(interval, kind);
        if (next < interval.begin) {  // the change skips `local`
            return time;
        }
        time = next;
    }
    return time;
}

ZoneYear year_of_zone(const Zone &zone, std::int64_t time) {
    ZoneYear year;
    year.now = zone.At(time);
    const auto begin_of = [&](std::int64_t number) {
        return days_from_civil(number, 1, 1) * kSecondsOfDay - year.now.standard;
    };
    year.number = civil_from_days(floor_quotient(time + year.now.standard, kSecondsOfDay)).year;
    year.begin = begin_of(year.number);
    year.end = begin_of(year.number + 1);
    for (ZoneInterval interval = zone.At(year.begin);;) {
        std::optional<ZoneInterval> &kind = interval.daylight ? year.daylight : year.standard;
        kind = interval;
        if (interval.end >= year.end) {
            break;
        }
        const ZoneInterval next = zone.At(interval.end);
        std::optional<std::int64_t> &change =
            next.daylight ? year.daylight_begins : year.standard_begins;
        if (next.daylight != interval.daylight && (!change || next.begin <= time)) {
            change = next.begin;
        }
        interval = next;
    }
    (year.now.daylight ? year.daylight : year.standard) = year.now;
    return year;
}

}  // namespace ostrel_platform
