#ifndef OSTREL_PLATFORM_REGISTRY_SHM_LOCKS_H
#define OSTREL_PLATFORM_REGISTRY_SHM_LOCKS_H

// Internal. Keeps a user who may only read the store from stopping its writers.
//
// Who may read SQLite's -shm file can take shared locks on its bytes, and hold them: the lock of
// the writer, those of a checkpoint, and those of readers, which keep the log from being used
// again. SQLite itself never holds the first kinds as shared locks. So a writer that has the lock
// of writer_lock.h goes on when only shared locks are in its way: at once for the locks of writers,
// and for those of readers once the log has become larger than kMaxLog.
//
// A reader takes the locks of writers too: the first connection of all builds the -shm file anew. A
// reader that may write gives up early when it does not get them, with SQLITE_IOERR_SHMLOCK, and
// then reads in the turn of a writer. SQLite itself would try for 10 seconds.

#include <sqlite3.h>

#include <cstdint>

namespace ostrel_platform {

class SharedPage;

inline constexpr std::int64_t kMaxLog = 64 << 20;  // bytes

// Makes the connection ask for locks as described.
void watch_shm_locks(sqlite3 *database) noexcept;

// Whether the next snapshot of this thread gives up early. Until set_shm_locks.
void set_early_give_up(bool gives_up) noexcept;

// Lets the connections that this thread uses go on, until the thread calls it with -1. The thread
// has the lock between writers. `shm` is a descriptor of the -shm file, `log_size` the size of the
// log in bytes, `page` may be null.
void set_shm_locks(int shm, std::int64_t log_size, SharedPage *page) noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_SHM_LOCKS_H
