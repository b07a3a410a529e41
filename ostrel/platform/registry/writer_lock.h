#ifndef OSTREL_PLATFORM_REGISTRY_WRITER_LOCK_H
#define OSTREL_PLATFORM_REGISTRY_WRITER_LOCK_H

// Internal. The lock between the writers of a store: an open-file-description lock on a file that
// only writers may open. The host releases it when its holder dies. The thread that takes it holds
// a lock of the process in front of it.

#include <cstdint>
#include <string>

#include "ostrel/platform/base/host_descriptor.h"

namespace ostrel_platform {

class SharedPage;

// How long a writer waits for the others.
inline constexpr std::int64_t kMaxLockWait = 10'000;  // milliseconds

class WriterLock {
public:
    // Opens the file, and creates it for those who may write the database, whose mode is
    // `database_mode`. Returns 0 or errno.
    int Open(const std::string &path, mode_t database_mode);
    void Close() noexcept { m_file = HostDescriptor(); }
    bool IsOpen() const { return static_cast<bool>(m_file); }

    // Takes the lock. `page`, which may be null, tells early when the lock is free. Returns 0,
    // EBUSY after kMaxLockWait, or errno.
    int Lock(SharedPage *page) noexcept;
    void Unlock(SharedPage *page) noexcept;

    // The text that the last writer left in the file.
    std::string Text() const;
    bool SetText(const std::string &text) const noexcept;

private:
    HostDescriptor m_file;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_WRITER_LOCK_H
