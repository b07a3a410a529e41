#ifndef OSTREL_PLATFORM_DEVICE_SET_H
#define OSTREL_PLATFORM_DEVICE_SET_H

// Internal. Some of the host's devices that something is known of.

#include <sys/types.h>

#include <array>
#include <atomic>

namespace platform {

// The last ones that were added. A place is 0 while it is free: no file system has that device. Any
// thread.
class DeviceSet {
public:
    bool Has(dev_t device) const {
        for (const std::atomic<dev_t> &place : m_places) {
            if (place.load(std::memory_order_relaxed) == device) {
                return true;
            }
        }
        return false;
    }

    void Add(dev_t device) {
        const unsigned turn = m_turn.fetch_add(1, std::memory_order_relaxed);
        m_places[turn % m_places.size()].store(device, std::memory_order_relaxed);
    }

private:
    std::array<std::atomic<dev_t>, 8> m_places{};
    std::atomic<unsigned> m_turn{0};
};

}  // namespace platform

#endif  // OSTREL_PLATFORM_DEVICE_SET_H
