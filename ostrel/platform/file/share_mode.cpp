#include "ostrel/platform/file/share_mode.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>

namespace ostrel_platform {
namespace {

constexpr off_t kFirstByte = 0x7000000000000000;
constexpr unsigned kModes = 8;  // of three bits
constexpr unsigned kBytes = kModes * kModes;
constexpr int kAttempts = 6;

constexpr bool go_together(unsigned access, unsigned share, unsigned byte) {
    return (access & ~(byte % kModes)) == 0 && (byte / kModes & ~share) == 0;
}

// How many forks lie between the first process and this one; getpid would be a call of the host.
std::atomic<unsigned> forks_before_this{0};
[[maybe_unused]] const int counts_forks =
    pthread_atfork(nullptr, nullptr, [] { ++forks_before_this; });

struct flock lock_of(short type, unsigned first, unsigned count) {
    struct flock lock = {};  // an open file's lock must say process 0
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = kFirstByte + static_cast<off_t>(first);
    lock.l_len = static_cast<off_t>(count);
    return lock;
}

// Whether another open has a lock on one of the bytes [first, end) that does not go with this
// access and share mode. The host tells any one lock of a range, so that each one which goes with
// them splits the rest. A longer lock is not of this layer and says nothing.
bool has_conflict(int file, unsigned access, unsigned share, unsigned first,
                  unsigned end) noexcept {
    while (first < end) {
        struct flock lock = lock_of(F_WRLCK, first, end - first);
        if (fcntl(file, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK || lock.l_len != 1) {
            return false;
        }
        const auto found = static_cast<unsigned>(lock.l_start - kFirstByte);
        if (!go_together(access, share, found) || has_conflict(file, access, share, first, found)) {
            return true;
        }
        first = found + 1;
    }
    return false;
}

// 0 or EBUSY.
int take_share(int file, unsigned access, unsigned share) noexcept {
    if (access == 0) {
        return 0;
    }
    const unsigned byte = access * kModes + share;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // Of two that open at once both may see the other and step back. From then on each looks
        // before it locks, so as not to be in the way of others.
        if (attempt > 0 && (sched_yield(), has_conflict(file, access, share, 0, kBytes))) {
            continue;
        }
        struct flock lock = lock_of(F_RDLCK, byte, 1);
        if (fcntl(file, F_OFD_SETLK, &lock) != 0 || !has_conflict(file, access, share, 0, kBytes)) {
            return 0;
        }
        lock = lock_of(F_UNLCK, byte, 1);
        fcntl(file, F_OFD_SETLK, &lock);
    }
    return EBUSY;
}

}  // namespace

bool is_shared_for(int file, unsigned access) noexcept {
    return !has_conflict(file, access, kShareRead | kShareWrite | kShareDelete, 0, kBytes);
}

int SharingFile::Take(unsigned access, unsigned share) noexcept {
    const int error = take_share(Get(), access, share);
    m_takesPart = error == 0 && access != 0;
    m_forks = forks_before_this;
    return error;
}

void SharingFile::EndShare() noexcept {
    if (std::exchange(m_takesPart, false) && m_forks == forks_before_this) {
        struct flock lock = lock_of(F_UNLCK, 0, kBytes);
        fcntl(Get(), F_OFD_SETLK, &lock);
    }
}

}  // namespace ostrel_platform
