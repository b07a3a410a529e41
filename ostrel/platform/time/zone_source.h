#ifndef OSTREL_PLATFORM_TIME_ZONE_SOURCE_H
#define OSTREL_PLATFORM_TIME_ZONE_SOURCE_H

// Internal. The local zone: which one it is, and the notice of a change.

#include <sys/stat.h>

#include <compare>
#include <cstdint>

#include "ostrel/platform/base/environment.h"
#include "ostrel/platform/time/zone.h"

namespace ostrel_platform {

// Tells the versions of a file apart.
struct ZoneFileIdentity {
    dev_t device = 0;
    ino_t number = 0;
    off_t size = 0;
    std::int64_t seconds = 0;  // of its last change
    std::int64_t nanoseconds = 0;

    auto operator<=>(const ZoneFileIdentity &) const = default;
};

// Seconds from 1970 to now in UTC, on a clock that steps some hundred times a second.
std::int64_t coarse_time() noexcept;

// The local zone as a thread sees it, with what the thread asked last: times that are near each
// other are found without a search.
class LocalZone {
public:
    // The calling thread's, of the zone that is the local one now. Zones stay for the life of the
    // process.
    static LocalZone &Current() noexcept;

    const Zone &Get() const { return *m_zone; }

    // As those of Zone.
    const ZoneInterval &At(std::int64_t time) noexcept {
        if (!Holds(m_recent[m_last], time)) {
            m_last ^= 1;
            if (!Holds(m_recent[m_last], time)) {
                m_recent[m_last] = m_zone->At(time);
            }
        }
        return m_recent[m_last];
    }
    std::int64_t ToUtc(std::int64_t local, ClockKind kind) noexcept {
        // This far away from the changes no other clock of the zone shows the same.
        const std::int64_t margin = m_zone->Spread();
        const ZoneInterval &near = At(local - m_recent[m_last].offset);
        const std::int64_t time = local - offset_of(near, kind);
        return time >= near.begin + margin && time < near.end - margin ? time
                                                                       : m_zone->ToUtc(local, kind);
    }

    // What holds at present, for as long as it does.
    struct Present {
        std::int64_t begin = 0;  // in UTC
        std::int64_t end = 0;
        std::int64_t offset = 0;
        std::int64_t standard = 0;
        std::int64_t daylight_bias = 0;  // what daylight time is ahead of standard time this year
        bool has_daylight = false;
    };
    const Present &GetPresent() noexcept;

private:
    static bool Holds(const ZoneInterval &interval, std::int64_t time) {
        return time >= interval.begin && time < interval.end;
    }
    bool IsUnchanged() noexcept;
    void Choose() noexcept;

    WatchedVariable m_variable;
    const Zone *m_zone = nullptr;
    ZoneInterval m_recent[2]{{0, 0}, {0, 0}};  // two, for summer and winter
    unsigned m_last = 0;                       // which of them was used last
    Present m_present;
    bool m_isSystems = false;  // the zone is that of /etc/localtime
    timespec m_checked{};      // when that file was last looked at
    ZoneFileIdentity m_identity;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_ZONE_SOURCE_H
