#ifndef OSTREL_PLATFORM_REGISTRY_STORE_H
#define OSTREL_PLATFORM_REGISTRY_STORE_H

// Internal. The store of the machine, or of the user: its database, its page and its locks.
//
// Reads run in snapshots of one connection, writes in transactions of another, so that readers of
// this process do not wait for a commit. Writers of all processes take turns by the lock of
// writer_lock.h; SQLite's own locks then never have to be waited for, except beside other tools.
//
// While a page is current, cached answers may be used (shared_page.h). Every kCheckPeriod a process
// makes sure that its files and its page are still those by which the others work. Whoever puts a
// new page in the place of one that was lost waits for longer than that before the first commit
// after it. So nobody answers from before a write that has returned.

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file/write_signal.h"
#include "ostrel/platform/registry/database.h"
#include "ostrel/platform/registry/shared_futex.h"
#include "ostrel/platform/registry/shared_page.h"
#include "ostrel/platform/registry/store_places.h"
#include "ostrel/platform/registry/timed_lock.h"
#include "ostrel/platform/registry/writer_lock.h"

namespace ostrel_platform {

inline constexpr std::int64_t kCheckPeriod = 50;  // milliseconds

// What a write changes: the keys whose cached answers end, and what watchers learn.
class Changes {
public:
    // A value of the key, or the key itself, which is then kDeleted.
    void Add(std::uint32_t kind, std::int64_t key, std::vector<std::int64_t> ancestors);
    bool IsEmpty() const { return m_changes.empty(); }

private:
    friend class Store;
    std::vector<std::uint32_t> m_buckets;
    std::vector<Change> m_changes;
};

// Threads: any. Errors: StoreFailure and std::bad_alloc.
class Store {
public:
    // The store of the process. Its place is decided at the first use.
    static Store &Of(StoreKind kind);

    StoreKind Kind() const { return m_kind; }

    // Returns the page by which cached answers hold, or null when every answer has to come from the
    // database. Costs a few nanoseconds.
    SharedPage *CurrentPage() noexcept {
        SharedPage *const page = m_page.load(std::memory_order_acquire);
        return page != nullptr && page->IsSound() &&
                       coarse_milliseconds() < m_checkAt.load(std::memory_order_relaxed)
                   ? page
                   : CheckPage();
    }

    // Runs `body(database)` in one snapshot, again from its beginning when the snapshot was lost.
    template <class Body>
    void Read(Body body) {
        try {
            ReadSnapshot(body);
        } catch (const StoreFailure &failure) {
            if (!IsHeldUp(failure)) {
                throw;
            }
            const WriteTurn turn(*this);  // a lock was in the way; see shm_locks.h
            ReadSnapshot(body);
        }
    }

    // Runs `body(database, changes)`, which returns a code, in a transaction. Commits when the code
    // is ERROR_SUCCESS and there are changes. Returns the code.
    template <class Body>
    DWORD Write(Body body) {
        const WriteTurn turn(*this);
        for (;;) {
            SharedPage *const page = BeginWrite();
            Changes changes;
            DWORD code = ERROR_SUCCESS;
            try {
                code = body(m_writer, changes);
                if (code == ERROR_SUCCESS && !changes.IsEmpty()) {
                    if (!Commit(page, changes)) {
                        continue;  // the page was lost before the commit
                    }
                } else {
                    CancelWrite();
                }
            } catch (...) {
                CancelWrite();
                throw;
            }
            return code;
        }
    }

    // Returns ERROR_SUCCESS when this process may write the store, or the code of a write.
    DWORD WriteCode();

    // Writes all commits to the disk.
    void Flush();

    // Writes the database anew, without the room that deleted rows left, and empties the log unless
    // a reader holds it. Other writers wait.
    void Compact();

    // Closes everything that a fork or the end of the library must not keep; the next use opens it
    // again. For the fork, which holds the locks.
    void CloseFiles() noexcept;
    void LockForFork() noexcept;
    void UnlockForFork() noexcept;
    void RenewAfterFork() noexcept;

    // Whether nobody else can change what this process reads.
    bool IsAlone() noexcept {
        const std::lock_guard lock(m_readMutex);
        return m_isAlone;
    }

    const StorePlace &Place() const { return m_place; }

private:
    explicit Store(StoreKind kind);

    // Keeps the signal of the host's limit of file sizes from the process: the calls report
    // ERROR_DISK_FULL. Costs 100 ns.
    class WithoutSizeSignal {
    public:
        WithoutSizeSignal() noexcept {
            if (const int signal = signal_of_writes(true)) {
                m_blocked.emplace(signal);
            }
        }

    private:
        std::optional<BlockedSignal> m_blocked;
    };

    // The turn of this thread among all writers.
    class WriteTurn {
    public:
        explicit WriteTurn(Store &store);
        ~WriteTurn();
        WriteTurn &operator=(WriteTurn &&) = delete;  // nor copied

    private:
        Store &m_store;
        const WithoutSizeSignal m_withoutSignal;
    };

    // The files that the connections belong to.
    struct Identity {
        dev_t device = 0;
        ino_t database = 0, shm = 0;
        bool operator==(const Identity &) const = default;
    };

    template <class Body>
    void ReadSnapshot(Body &body) {
        const WithoutSizeSignal without_signal;
        const std::lock_guard lock(m_readMutex);
        for (;;) {
            const std::uint64_t lost = BeginRead();
            try {
                body(m_reader);
                if (EndRead(lost)) {
                    return;
                }
            } catch (const StoreFailure &) {
                if (CancelRead(lost)) {
                    throw;
                }
            } catch (...) {
                CancelRead(lost);
                throw;
            }
        }
    }

    SharedPage *CheckPage() noexcept;
    // Whether a lock of a reader stopped a read, in a process that may write.
    bool IsHeldUp(const StoreFailure &failure) noexcept;
    // All below need the read mutex, ...
    std::uint64_t BeginRead();
    // Return whether the snapshot held to the end.
    bool EndRead(std::uint64_t lost);
    bool CancelRead(std::uint64_t lost) noexcept;
    bool IsSnapshotLost(std::uint64_t lost) const noexcept;
    void EnsureReader();
    void AdoptPublishedPage();
    Identity PresentIdentity() const noexcept;
    void OpenReader();
    void OpenAbsent(DWORD write_code);
    DWORD PrepareToWrite();
    // ... and these the turn.
    void TakeTurn();
    void EndTurn() noexcept;
    bool CanRead();
    void OpenShm();
    void OpenWriter();
    void CloseWriter() noexcept;
    SharedPage *BeginWrite();
    bool Commit(SharedPage *page, const Changes &changes);
    void CancelWrite() noexcept;
    SharedPage *WritersPage();
    SharedPage *ReplacePage(const PageName &lost);
    void RemoveStaleKeys(Database &database);
    void CheckpointWhenDue(SharedPage *page) noexcept;

    const StoreKind m_kind;
    const StorePlace m_place;

    std::atomic<SharedPage *> m_page{nullptr};
    // When the page, and when the files, have to be checked again.
    std::atomic<std::int64_t> m_checkAt{0};
    std::atomic<std::int64_t> m_filesCheckAt{0};
    std::atomic<std::int64_t> m_pageAttemptAt{0};

    TimedLock m_writeLock;  // before m_readMutex
    WriterLock m_lock;
    Database m_writer;
    HostDescriptor m_shm;  // closing it drops the locks that SQLite holds on the file
    Identity m_writerIdentity;
    std::int64_t m_logPages = 0;

    std::mutex m_readMutex;
    Database m_reader;
    Identity m_identity;
    struct stat m_facts {};  // of the database file
    DWORD m_writeCode = ERROR_SUCCESS;
    // Nothing to share: there is no file and this user cannot create it, or the file system is
    // read-only. Every read first looks whether that is still so.
    bool m_isAlone = false;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_STORE_H
