#ifndef OSTREL_PLATFORM_FILE_WRITE_SIGNAL_H
#define OSTREL_PLATFORM_FILE_WRITE_SIGNAL_H

// Internal. Keeps the signals of failing writes from the process: a call of the platform reports
// the failure by its result alone.

#include <signal.h>
#include <sys/resource.h>

#include <ctime>

namespace ostrel_platform {

// Returns the signal that a failing write to this file raises beside its error: SIGPIPE once the
// reader of a FIFO or socket has gone, SIGXFSZ beyond the greatest file size that the process may
// write. Returns 0 when no write raises a signal.
inline int signal_of_writes(bool regular) noexcept {
    struct rlimit limit;
    if (!regular) {
        return SIGPIPE;
    }
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur == RLIM_INFINITY ? 0 : SIGXFSZ;
}

// Blocks a signal in the calling thread while the object lives, then discards the signal if the
// scope raised it.
class BlockedSignal {
public:
    explicit BlockedSignal(int signal) noexcept {
        sigemptyset(&m_signal);
        sigaddset(&m_signal, signal);
        sigset_t pending;
        sigpending(&pending);
        m_wasPending = sigismember(&pending, signal) == 1;
        pthread_sigmask(SIG_BLOCK, &m_signal, &m_before);
    }
    ~BlockedSignal() {
        const std::timespec no_wait = {};
        if (!m_wasPending) {
            sigtimedwait(&m_signal, nullptr, &no_wait);
        }
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    BlockedSignal &operator=(BlockedSignal &&) = delete;  // nor copied

private:
    sigset_t m_signal, m_before;
    bool m_wasPending;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_WRITE_SIGNAL_H
