#ifndef OSTREL_PLATFORM_BASE_NO_CANCELLATION_H
#define OSTREL_PLATFORM_BASE_NO_CANCELLATION_H

// Internal. Keeps pthread_cancel from ending a thread within a call of the layer: the calls are
// noexcept, and the host unwinds a cancelled thread through their frames, which ends the process.

#include <pthread.h>

namespace ostrel_platform {

// Disables cancellation in the calling thread while the object lives. A request stays pending. The
// two host calls take about 20 ns.
class NoCancellation {
public:
    NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
    ~NoCancellation() { pthread_setcancelstate(m_before, nullptr); }
    NoCancellation &operator=(NoCancellation &&) = delete;  // nor copied

private:
    int m_before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_BASE_NO_CANCELLATION_H
