#ifndef OSTREL_PLATFORM_FILE_SHARE_MODE_H
#define OSTREL_PLATFORM_FILE_SHARE_MODE_H

// Internal. Implements the share modes of open files, between all processes that use the layer.
//
// Each open file has a read lock of the host (F_OFD_SETLK, which belongs to the open file, not to
// the process) on one byte far behind the end of any file. The position of the byte encodes the
// file's access and share mode. An open fails when another open has a lock on an incompatible byte.

#include <utility>

#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {

// The bits of an access and of a share mode, equal to FILE_SHARE_READ, _WRITE and _DELETE.
inline constexpr unsigned kShareRead = 1;
inline constexpr unsigned kShareWrite = 2;
inline constexpr unsigned kShareDelete = 4;

// The largest number of attempts of an open or a deletion. An attempt is repeated when the path
// leads to another file than before, since others keep deleting and creating files of that name.
inline constexpr int kMaxAttempts = 32;

// Whether the share modes of all other opens of the file allow `access`. `file` is open in any way;
// the call ignores the lock of `file` itself. Returns true when the host has no such locks.
bool is_shared_for(int file, unsigned access) noexcept;

// Owns an open file and its share lock. The destructor and Close release the lock before they close
// the descriptor: a child that another thread forks has the same open file until it calls exec, or,
// without exec, for as long as it lives, and would keep the lock.
class SharingFile {
public:
    SharingFile() = default;
    explicit SharingFile(HostDescriptor file) noexcept : m_file(std::move(file)) {}
    SharingFile(SharingFile &&other) noexcept
        : m_file(std::move(other.m_file)),
          m_takesPart(std::exchange(other.m_takesPart, false)),
          m_deletes(std::exchange(other.m_deletes, false)),
          m_forks(other.m_forks) {}
    SharingFile &operator=(SharingFile &&other) noexcept {
        std::swap(m_file, other.m_file);
        std::swap(m_takesPart, other.m_takesPart);
        std::swap(m_deletes, other.m_deletes);
        std::swap(m_forks, other.m_forks);
        return *this;
    }
    ~SharingFile() { EndShare(); }

    explicit operator bool() const { return static_cast<bool>(m_file); }
    int Get() const { return m_file.Get(); }

    // Acquires the share lock; call once. Waits up to 0.3 seconds for conflicting opens of
    // the same moment. Returns 0, or EBUSY when the access or share mode of another open forbids
    // this one. When `access` is 0, when the file is not open for reading, or when the host cannot
    // lock it, acquires no lock, checks nothing and returns 0.
    int Take(unsigned access, unsigned share) noexcept;

    // Leaves the release of the lock to the closing: nobody can open the file any more.
    void Forget() noexcept { m_takesPart = false; }

    // Has the destructor and Close delete the file, while the lock still holds: the name that the
    // file has then, which links and moves may have changed. Call after Take, which must have kept
    // others from opening the file without FILE_SHARE_DELETE. A forked child does not delete.
    void DeleteAtEnd() noexcept;

    // Releases the lock and closes the file. Returns 0, or errno when the host reports a failed
    // write only here.
    int Close() noexcept {
        EndShare();
        return m_file.Close();
    }

private:
    void EndShare() noexcept;

    HostDescriptor m_file;
    bool m_takesPart = false;
    bool m_deletes = false;
    // The forks up to Take or DeleteAtEnd: a forked child must neither release the lock nor delete.
    unsigned m_forks = 0;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_SHARE_MODE_H
