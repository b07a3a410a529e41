#ifndef OSTREL_PLATFORM_TIME_ZONE_SOURCE_H
#define OSTREL_PLATFORM_TIME_ZONE_SOURCE_H

// Internal. Finds the local zone from TZ and /etc/localtime, and notices when either changes.

#include <sys/stat.h>

#include <compare>
#include <cstdint>

#include "ostrel/platform/base/environment.h"
#include "ostrel/platform/time/zone.h"

namespace ostrel_platform {

// Distinguishes the versions of a file.
struct ZoneFileIdentity {
    dev_t device = 0;
    ino_t number = 0;
    off_t size = 0;
    std::int64_t seconds = 0;  // the time of the last write
    std::int64_t nanoseconds = 0;

    auto operator<=>(const ZoneFileIdentity &) const = default;
};

// Returns the present time in seconds from 1970, in UTC, on a clock that advances some hundred
// times a second.
std::int64_t coarse_time() noexcept;

// The local zone as one thread sees it. Caches the two intervals that the thread used last, so that
// times near each other need no search.
//
// Threads: an object belongs to one thread.
class LocalZone {
public:
    // Returns the calling thread's object, updated when the local zone has changed. Zones live
    // until the process ends. Uses UTC when memory is missing; the next call tries again.
    static LocalZone &Current() noexcept;

    const Zone &Get() const { return *m_zone; }

    // Like the functions of Zone. The interval is valid until the next call on this object.
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
        // No other clock of the zone shows `local` at a time this far from both changes.
        const std::int64_t margin = m_zone->Spread();
        const ZoneInterval &near = At(local - m_recent[m_last].offset);
        const std::int64_t time = local - offset_of(near, kind);
        return time >= near.begin + margin && time < near.end - margin ? time
                                                                       : m_zone->ToUtc(local, kind);
    }

    // The clock at present, valid from `begin` to `end`, `end` excluded.
    struct Present {
        std::int64_t begin = 0;  // in UTC
        std::int64_t end = 0;
        std::int64_t offset = 0;
        std::int64_t standard = 0;
        std::int64_t daylight_bias = 0;  // daylight time - standard time of this year, 0 without
        bool has_daylight = false;       // whether this year has daylight time
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
    unsigned m_last = 0;                       // the index of the one used last
    Present m_present;
    bool m_isSystems = false;  // the zone is from /etc/localtime
    timespec m_checked{};      // when that file was checked last
    ZoneFileIdentity m_identity;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_ZONE_SOURCE_H
