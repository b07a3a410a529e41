#ifndef OSTREL_PLATFORM_FILE_SHARE_MODE_H
#define OSTREL_PLATFORM_FILE_SHARE_MODE_H

// Internal. The sharing rules of open files, between all processes that use the layer.
//
// Each open file holds a shared lock of the host (F_OFD_SETLK, which belongs to the open file, not
// to the process) on one byte far behind the end of any file: which byte tells its access and its
// share mode. An open that finds a lock on a byte it does not go with fails.

#include <utility>

#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {

// Bits of an access and of a share mode; the share bits are those of FILE_SHARE_*.
inline constexpr unsigned kShareRead = 1;
inline constexpr unsigned kShareWrite = 2;
inline constexpr unsigned kShareDelete = 4;

// How often an open or deletion starts again because its path leads to another file than it did
// when it looked: others delete and create files of that name all the time.
inline constexpr int kMaxAttempts = 32;

// Whether all that have the file open allow this access. `file` is open in any way and takes no
// part itself.
bool is_shared_for(int file, unsigned access) noexcept;

// Owns an open file and its part in the sharing, which ends before the descriptor is closed: a
// program that another thread starts just then holds the same open until it runs, and one that a
// fork left behind for as long as it lives.
class SharingFile {
public:
    SharingFile() = default;
    explicit SharingFile(HostDescriptor file) noexcept : m_file(std::move(file)) {}
    SharingFile(SharingFile &&other) noexcept
        : m_file(std::move(other.m_file)),
          m_takesPart(std::exchange(other.m_takesPart, false)),
          m_forks(other.m_forks) {}
    SharingFile &operator=(SharingFile &&other) noexcept {
        std::swap(m_file, other.m_file);
        std::swap(m_takesPart, other.m_takesPart);
        std::swap(m_forks, other.m_forks);
        return *this;
    }
    ~SharingFile() { EndShare(); }

    explicit operator bool() const { return static_cast<bool>(m_file); }
    int Get() const { return m_file.Get(); }

    // Takes part from now on; once for a file. One that the host has not opened for reading, or
    // that cannot be locked, takes no part, nor does access 0. Result: 0, or EBUSY when another
    // open stands against it.
    int Take(unsigned access, unsigned share) noexcept;

    // Result: 0, or the errno of a write that fails only now.
    int Close() noexcept {
        EndShare();
        return m_file.Close();
    }

private:
    void EndShare() noexcept;

    HostDescriptor m_file;
    bool m_takesPart = false;
    unsigned m_forks = 0;  // at which it was taken: what a forked child closes ends nothing
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_FILE_SHARE_MODE_H
