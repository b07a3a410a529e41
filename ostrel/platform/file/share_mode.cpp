#include "ostrel/platform/file/share_mode.h"

#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>

namespace ostrel_platform {
namespace {

// The locks lie far behind the end of any file. A byte of the first range encodes an access and a
// share mode. A byte of the second range is a ticket, which an open locks while another open of the
// same moment contends with it.
constexpr off_t kFirstByte = 0x7000000000000000;
constexpr unsigned kModes = 8;  // of three bits
constexpr unsigned kBytes = kModes * kModes;
constexpr unsigned kTickets = 1u << 30;

constexpr bool are_compatible(unsigned access, unsigned share, unsigned byte) {
    return (access & ~(byte % kModes)) == 0 && (byte / kModes & ~share) == 0;
}

// The forks between the first process and this one; getpid would be a call of the host.
std::atomic<unsigned> forks_before_this{0};
[[maybe_unused]] const int counts_forks =
    pthread_atfork(nullptr, nullptr, [] { ++forks_before_this; });

struct flock lock_of(short type, unsigned first, unsigned count) {
    struct flock lock = {};  // l_pid must be 0 for an open file's lock
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = kFirstByte + static_cast<off_t>(first);
    lock.l_len = static_cast<off_t>(count);
    return lock;
}

bool set_lock(int file, short type, unsigned byte) noexcept {
    struct flock lock = lock_of(type, byte, 1);
    return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

// Whether another open has a lock on one of the bytes [first, end) that is incompatible with this
// access and share mode. The host reports any one lock of a range, so each compatible lock splits
// the rest. A longer lock is not of this layer and ends the search without a conflict.
bool has_conflict(int file, unsigned access, unsigned share, unsigned first,
                  unsigned end) noexcept {
    while (first < end) {
        struct flock lock = lock_of(F_WRLCK, first, end - first);
        if (fcntl(file, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK || lock.l_len != 1) {
            return false;
        }
        const auto found = static_cast<unsigned>(lock.l_start - kFirstByte);
        if (!are_compatible(access, share, found) ||
            has_conflict(file, access, share, first, found)) {
            return true;
        }
        first = found + 1;
    }
    return false;
}

unsigned draw_ticket() noexcept {
    unsigned number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number) {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        number = static_cast<unsigned>(now.tv_nsec) * 2654435761u;  // Knuth's multiplicative hash
    }
    return number % kTickets;
}

// An open that contends with others of the same moment. All its locks are read locks, which never
// exclude each other.
class Contender {
public:
    Contender(int file, unsigned access, unsigned share)
        : m_file(file), m_access(access), m_share(share) {}

    // Settles a conflict that was found after this open acquired its share lock. Of the contending
    // opens at least one gets its lock: an open treats a conflicting lock as permanent only when it
    // has a ticket and finds the lock but no other ticket. The open that draws last therefore finds
    // either such a lock or none. Of two tickets the lower one stays; the other open releases its
    // locks and retries.
    //
    // Returns 0 with the share lock, or EBUSY without it.
    int Settle() noexcept {
        while (m_pauses < kMaxPauses) {
            const Outcome outcome = Draw();
            if (outcome == Outcome::kLocked) {
                return 0;
            }
            if (outcome == Outcome::kRefused || !WaitForOthers()) {
                return EBUSY;
            }
            if (!Conflicts()) {
                return 0;
            }
        }
        set_lock(m_file, F_UNLCK, Byte());
        return EBUSY;
    }

private:
    enum class Outcome { kLocked, kRefused, kSteppedBack };

    // Up to 0.3 seconds; an open takes some microseconds.
    static constexpr int kMaxPauses = 400;

    unsigned Byte() const { return m_access * kModes + m_share; }
    bool Conflicts() const noexcept { return has_conflict(m_file, m_access, m_share, 0, kBytes); }

    // Whether another open has locked one of the `count` tickets from `first` on.
    bool IsLocked(unsigned first, unsigned count) const noexcept {
        struct flock lock = lock_of(F_WRLCK, kBytes + first, count);
        return fcntl(m_file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    }

    void Pause() noexcept {
        if (++m_pauses <= 8) {
            sched_yield();
        } else {
            const timespec half_a_millisecond = {0, 500'000};
            nanosleep(&half_a_millisecond, nullptr);
        }
    }

    // Draws a ticket and locks it. The open has the share lock before, and after only for kLocked.
    Outcome Draw() noexcept {
        const unsigned ticket = draw_ticket();
        set_lock(m_file, F_RDLCK, kBytes + ticket);
        Outcome outcome = Outcome::kSteppedBack;
        while (m_pauses < kMaxPauses) {
            if (!Conflicts()) {
                outcome = Outcome::kLocked;
                break;
            }
            if (IsLocked(0, ticket + 1)) {
                break;
            }
            if (!IsLocked(ticket + 1, kTickets - ticket - 1)) {
                // The conflicting open may have released its lock between the two checks.
                outcome = Conflicts() ? Outcome::kRefused : Outcome::kLocked;
                break;
            }
            Pause();
        }
        if (outcome != Outcome::kLocked) {
            set_lock(m_file, F_UNLCK, Byte());
        }
        set_lock(m_file, F_UNLCK, kBytes + ticket);
        return outcome;
    }

    // Waits without any lock until no lock conflicts, then acquires the share lock again. Returns
    // false when a lock conflicts and nobody contends any more, or when the time is over.
    bool WaitForOthers() noexcept {
        while (m_pauses < kMaxPauses) {
            Pause();
            if (!Conflicts()) {
                return set_lock(m_file, F_RDLCK, Byte());
            }
            if (!IsLocked(0, kTickets) && Conflicts()) {
                return false;
            }
        }
        return false;
    }

    int m_file;
    unsigned m_access;
    unsigned m_share;
    int m_pauses = 0;
};

// Returns 0 or EBUSY.
int take_share(int file, unsigned access, unsigned share) noexcept {
    const bool locked = access != 0 && set_lock(file, F_RDLCK, access * kModes + share);
    if (!locked || !has_conflict(file, access, share, 0, kBytes)) {
        return 0;
    }
    return Contender(file, access, share).Settle();
}

// Deletes the name of an open file or link, if the host knows it and it still leads to the file.
void delete_name_of(int file) noexcept {
    char link[sizeof "/proc/self/fd/" + 10];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    char path[PATH_MAX];
    const ssize_t length = readlink(link, path, sizeof path);
    if (length <= 0 || length == sizeof path) {
        return;
    }
    path[length] = '\0';
    struct stat opened, named;
    if (fstat(file, &opened) == 0 && lstat(path, &named) == 0 && is_same_file(opened, named)) {
        unlink(path);
    }
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

void SharingFile::DeleteAtEnd() noexcept {
    m_deletes = true;
    m_forks = forks_before_this;
}

void SharingFile::EndShare() noexcept {
    if (std::exchange(m_deletes, false) && m_forks == forks_before_this) {
        delete_name_of(Get());
    }
    if (std::exchange(m_takesPart, false) && m_forks == forks_before_this) {
        struct flock lock = lock_of(F_UNLCK, 0, kBytes);
        fcntl(Get(), F_OFD_SETLK, &lock);
    }
}

}  // namespace ostrel_platform
