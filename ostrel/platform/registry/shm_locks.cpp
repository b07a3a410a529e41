#include "ostrel/platform/registry/shm_locks.h"

#include <fcntl.h>

#include <algorithm>
#include <atomic>

#include "ostrel/platform/registry/shared_page.h"

namespace ostrel_platform {
namespace {

// The locks of SQLite's -shm file (sqlite.org, "WAL-mode File Format"): bytes from 120 on for the
// writer, the checkpoint, the recovery and five readers.
constexpr int kFirstByte = 120;
constexpr int kFirstReader = 3;

struct Scope {
    int shm = -1;
    bool is_log_large = false;
    SharedPage *page = nullptr;
};
thread_local Scope t_scope;

// Two processes that read or write at the same moment are out of each other's way after fewer.
constexpr int kAttempts = 8;
constexpr int kEndless = -1;
thread_local int t_attempts = kEndless;  // that are left

std::atomic<const sqlite3_io_methods *> s_original{nullptr};
sqlite3_io_methods s_watched;

bool has_exclusive_lock(int first, int count) noexcept {
    struct flock lock {};
    lock.l_type = F_RDLCK;  // which a shared lock of another process would allow
    lock.l_whence = SEEK_SET;
    lock.l_start = kFirstByte + first;
    lock.l_len = count;
    // An open-file-description lock conflicts with those of this process too.
    return fcntl(t_scope.shm, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

int lock_shm(sqlite3_file *file, int first, int count, int flags) {
    const int result =
        s_original.load(std::memory_order_acquire)->xShmLock(file, first, count, flags);
    const bool is_in_the_way = result == SQLITE_BUSY && (flags & SQLITE_SHM_LOCK) != 0 &&
                               (flags & SQLITE_SHM_EXCLUSIVE) != 0;
    if (is_in_the_way && t_scope.shm < 0 && t_attempts >= 0 && first < kFirstReader) {
        t_attempts = std::max(t_attempts - 1, 0);
        return t_attempts > 0 ? result : SQLITE_IOERR_SHMLOCK;
    }
    if (!is_in_the_way || t_scope.shm < 0 ||
        (first + count > kFirstReader && !t_scope.is_log_large) ||
        has_exclusive_lock(first, count)) {
        return result;
    }
    if (first + count > kFirstReader && t_scope.page != nullptr) {
        t_scope.page->LoseSnapshots();
    }
    return SQLITE_OK;
}

}  // namespace

void watch_shm_locks(sqlite3 *database) noexcept {
    sqlite3_file *file = nullptr;
    if (sqlite3_file_control(database, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
        file == nullptr || file->pMethods == nullptr || file->pMethods->iVersion < 2) {
        return;
    }
    static const bool is_set = [file] {
        s_watched = *file->pMethods;
        s_watched.xShmLock = lock_shm;
        s_original.store(file->pMethods, std::memory_order_release);
        return true;
    }();
    if (is_set && file->pMethods == s_original.load(std::memory_order_acquire)) {
        file->pMethods = &s_watched;
    }
}

void set_early_give_up(bool gives_up) noexcept {
    t_attempts = gives_up ? kAttempts : kEndless;
}

void set_shm_locks(int shm, std::int64_t log_size, SharedPage *page) noexcept {
    t_scope = {shm, log_size > kMaxLog, page};
    t_attempts = kEndless;
}

}  // namespace ostrel_platform
