#ifndef OSTREL_PLATFORM_FILE_DEVICE_SET_H
#define OSTREL_PLATFORM_FILE_DEVICE_SET_H

// Internal. Remembers a fact about devices of the host, for up to a second. The time is short
// because the host gives the number of an unmounted device to another file system.

#include <sys/types.h>

#include <array>
#include <atomic>
#include <ctime>

namespace ostrel_platform {

// A set of up to 8 devices.
//
// Threads: every call may run on any thread.
class DeviceSet {
public:
    bool Has(dev_t device) const {
        for (const Place &place : m_places) {
            if (place.device.load(std::memory_order_relaxed) == device) {
                return Now() - place.since.load(std::memory_order_relaxed) < 1;
            }
        }
        return false;
    }

    void Add(dev_t device) {
        Place *place = &m_places[m_turn.fetch_add(1, std::memory_order_relaxed) % m_places.size()];
        for (Place &known : m_places) {
            if (known.device.load(std::memory_order_relaxed) == device) {
                place = &known;
            }
        }
        place->since.store(Now(), std::memory_order_relaxed);
        place->device.store(device, std::memory_order_relaxed);
    }

private:
    struct Place {
        std::atomic<dev_t> device{0};  // 0 is the device of no file system
        std::atomic<std::time_t> since{0};
    };

    static std::time_t Now() {
        std::timespec now;
        clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
        return now.tv_sec;
    }

    std::array<Place, 8> m_places{};
    std::atomic<unsigned> m_turn{0};
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_DEVICE_SET_H
