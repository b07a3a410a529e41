#ifndef OSTREL_PLATFORM_FILE_DEVICE_SET_H
#define OSTREL_PLATFORM_FILE_DEVICE_SET_H

// Internal. Some of the host's devices that something is known of, for a second: the number of a
// device goes to another file system once it is free.

#include <sys/types.h>

#include <array>
#include <atomic>
#include <ctime>

namespace ostrel_platform {

// The last ones that were added. Any thread.
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
        std::atomic<dev_t> device{0};  // of no file system
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
