#ifndef OSTREL_PLATFORM_FILE_DEVICE_SET_H
#define OSTREL_PLATFORM_FILE_DEVICE_SET_H

// Internal. A cache of one fact about devices of the host, for up to a second. An entry expires
// this soon because the host may reuse the number of an unmounted device for another file system.

#include <sys/types.h>

#include <array>
#include <atomic>
#include <ctime>

namespace ostrel_platform {

// A set of up to 8 devices. A ninth device replaces one of them.
//
// Threads: every call may run on any thread.
class DeviceSet {
public:
    // Whether the device was added in the current second of the clock.
    bool Has(dev_t device) const {
        for (const Slot &slot : m_slots) {
            if (slot.device.load(std::memory_order_relaxed) == device) {
                return Now() - slot.since.load(std::memory_order_relaxed) < 1;
            }
        }
        return false;
    }

    void Add(dev_t device) {
        Slot *slot = &m_slots[m_next.fetch_add(1, std::memory_order_relaxed) % m_slots.size()];
        for (Slot &known : m_slots) {
            if (known.device.load(std::memory_order_relaxed) == device) {
                slot = &known;
            }
        }
        slot->since.store(Now(), std::memory_order_relaxed);
        slot->device.store(device, std::memory_order_relaxed);
    }

private:
    struct Slot {
        std::atomic<dev_t> device{0};  // 0: a free slot; no file system has this number
        std::atomic<std::time_t> since{0};
    };

    static std::time_t Now() {
        std::timespec now;
        clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
        return now.tv_sec;
    }

    std::array<Slot, 8> m_slots{};
    std::atomic<unsigned> m_next{0};
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_DEVICE_SET_H
