#include "ostrel/platform/registry/store.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>

#include "ostrel/platform/base/errno_code.h"
#include "ostrel/platform/base/host_rename.h"
#include "ostrel/platform/registry/shm_locks.h"
#include "ostrel/platform/registry/store_files.h"

namespace ostrel_platform {
namespace {

constexpr char kPage[] = "page";
constexpr char kBoot[] = "boot";

// Longer than kCheckPeriod with the steps of a coarse clock.
constexpr std::int64_t kPageGrace = kCheckPeriod + 25;  // milliseconds
constexpr std::int64_t kPageAttemptPeriod = 1000;       // milliseconds
constexpr std::int64_t kCheckpointPeriod = 3000;        // milliseconds
constexpr std::int64_t kCheckpointPages = 8192;         // pages of the log

std::string meta(Database &database, const char *name) {
    Query query(database, Sql::kGetMeta);
    query.BindText(name);
    return query.Step() ? std::string(query.Bytes(0)) : std::string();
}

void set_meta(Database &database, const char *name, const std::string &value) {
    Query(database, Sql::kSetMeta).BindText(name).Bind(value).Step();
}

void run(Database &database, Sql sql) {
    Query(database, sql).Step();
}

// Ends a transaction. A connection that cannot, for lack of memory, is closed, and the next use
// opens it again.
void roll_back(Database &database) noexcept {
    if (!database.IsOpen() || sqlite3_get_autocommit(database.Get()) != 0) {
        return;
    }
    try {
        run(database, Sql::kRollback);
    } catch (const StoreFailure &) {
    }
    if (sqlite3_get_autocommit(database.Get()) == 0) {
        database.Close();
    }
}

int count_log_pages(void *pages, sqlite3 *, const char *, int count) {
    *static_cast<std::int64_t *>(pages) = count;
    return SQLITE_OK;
}

bool is_mounted_read_only(const std::string &path) {
    struct statvfs facts;
    return statvfs(path.c_str(), &facts) == 0 && (facts.f_flag & ST_RDONLY) != 0;
}

}  // namespace

void Changes::Add(std::uint32_t kind, std::int64_t key, std::vector<std::int64_t> ancestors) {
    m_buckets.push_back(bucket_of(key));
    m_changes.push_back({kind, key, std::move(ancestors)});
}

Store &Store::Of(StoreKind kind) {
    // Never destroyed: static destructors use the registry too.
    static Store *const machine = new Store(StoreKind::kMachine);
    static Store *const user = new Store(StoreKind::kUser);
    return kind == StoreKind::kMachine ? *machine : *user;
}

Store::Store(StoreKind kind) : m_kind(kind), m_place(place_of(kind)) {}

// ---- files

Store::Identity Store::PresentIdentity() const noexcept {
    struct stat facts;
    Identity identity;
    if (stat(m_place.database.c_str(), &facts) == 0) {
        identity.device = facts.st_dev;
        identity.database = facts.st_ino;
    }
    // Not by a descriptor: closing it would drop SQLite's locks.
    if (stat(m_place.shm.c_str(), &facts) == 0) {
        identity.shm = facts.st_ino;
    }
    return identity;
}

// Looks whether this process may write. The first process of a boot removes the -shm file of the
// last one, whose content a power loss may have torn.
DWORD Store::PrepareToWrite() {
    if (access(m_place.database.c_str(), F_OK) == 0 &&
        faccessat(AT_FDCWD, m_place.database.c_str(), W_OK, AT_EACCESS) != 0) {
        return code_of_errno(errno);
    }
    WriterLock lock;
    if (const int error = lock.Open(m_place.lock, m_facts.st_mode)) {
        return code_of_errno(error);
    }
    if (lock.Text() == host_boot()) {
        return ERROR_SUCCESS;
    }
    if (const int error = lock.Lock(nullptr)) {
        return code_of_errno(error);
    }
    const std::string before = lock.Text();
    if (before != host_boot()) {
        // A text that is lost or cut short tells of no other boot.
        if (before.size() == host_boot().size()) {
            unlink(m_place.shm.c_str());
        }
        lock.SetText(host_boot());
    }
    lock.Unlock(nullptr);
    return ERROR_SUCCESS;
}

void Store::OpenAbsent(DWORD write_code) {
    open_in_memory(m_kind, &m_reader);
    m_writeCode = write_code;
    m_isAlone = true;
}

void Store::OpenReader() {
    m_page.store(nullptr, std::memory_order_release);
    m_reader.Close();
    m_isAlone = false;
    m_identity = {};
    if (stat(m_place.database.c_str(), &m_facts) != 0) {
        int error = errno;
        if (error == ENOENT) {
            error = create_database(m_place, m_kind);
            if (error == EACCES || error == EPERM || error == EROFS) {
                OpenAbsent(code_of_errno(error));
                return;
            }
        }
        if (error != 0 || stat(m_place.database.c_str(), &m_facts) != 0) {
            throw StoreFailure{code_of_errno(error != 0 ? error : errno)};
        }
    }
    if (!S_ISREG(m_facts.st_mode)) {
        throw StoreFailure{ERROR_BADDB};
    }
    m_writeCode = PrepareToWrite();
    set_early_give_up(m_writeCode == ERROR_SUCCESS);
    open_database(m_place, &m_reader, &m_isAlone);
    if (m_writeCode == ERROR_SUCCESS && sqlite3_db_readonly(m_reader.Get(), "main") != 0) {
        m_writeCode =
            is_mounted_read_only(m_place.database) ? ERROR_WRITE_PROTECT : ERROR_ACCESS_DENIED;
    }
    m_identity = PresentIdentity();
}

void Store::EnsureReader() {
    const std::int64_t now = coarse_milliseconds();
    const bool is_due = m_isAlone || m_page.load(std::memory_order_relaxed) == nullptr ||
                        now >= m_filesCheckAt.load(std::memory_order_relaxed);
    if (!m_reader.IsOpen() || (is_due && PresentIdentity() != m_identity)) {
        OpenReader();
    }
    if (is_due) {
        m_filesCheckAt.store(now + kCheckPeriod, std::memory_order_relaxed);
    }
}

// ---- reading

std::uint64_t Store::BeginRead() {
    EnsureReader();
    SharedPage *const page = m_page.load(std::memory_order_relaxed);
    const std::uint64_t lost = page != nullptr ? page->LostSnapshots() : 0;
    set_early_give_up(m_writeCode == ERROR_SUCCESS);
    run(m_reader, Sql::kBegin);
    return lost;
}

bool Store::IsSnapshotLost(std::uint64_t lost) const noexcept {
    SharedPage *const page = m_page.load(std::memory_order_relaxed);
    return (page != nullptr && page->LostSnapshots() != lost && page->IsSound()) ||
           (m_isAlone && PresentIdentity() != m_identity && m_identity.database != 0);
}

bool Store::EndRead(std::uint64_t lost) {
    run(m_reader, Sql::kCommit);
    return !IsSnapshotLost(lost);
}

bool Store::CancelRead(std::uint64_t lost) noexcept {
    roll_back(m_reader);
    return !IsSnapshotLost(lost);
}

bool Store::IsHeldUp(const StoreFailure &failure) noexcept {
    const std::lock_guard lock(m_readMutex);
    return failure.sqlite != 0 && failure.code == ERROR_BUSY && m_writeCode == ERROR_SUCCESS;
}

void Store::AdoptPublishedPage() {
    const PageName name = PageName::Parse(meta(m_reader, kPage));
    SharedPage *page = m_page.load(std::memory_order_relaxed);
    if (page == nullptr || page->Name().number != name.number || !page->IsSound()) {
        int error = 0;
        page = SharedPage::Map(name, m_facts, m_place.page, m_writeCode == ERROR_SUCCESS, &error);
        m_page.store(page, std::memory_order_release);
    }
}

SharedPage *Store::CheckPage() noexcept {
    try {
        const std::int64_t now = coarse_milliseconds();
        bool may_write = false;
        SharedPage *page = nullptr;
        Read([&](Database &) {
            if (!m_isAlone) {
                AdoptPublishedPage();
                page = m_page.load(std::memory_order_relaxed);
                m_checkAt.store(now + kCheckPeriod, std::memory_order_relaxed);
                may_write = m_writeCode == ERROR_SUCCESS;
            }
        });
        if (page == nullptr && may_write &&
            now >= m_pageAttemptAt.load(std::memory_order_relaxed)) {
            m_pageAttemptAt.store(now + kPageAttemptPeriod, std::memory_order_relaxed);
            Write([](Database &, Changes &) -> DWORD { return ERROR_SUCCESS; });
            page = m_page.load(std::memory_order_acquire);
        }
        return page;
    } catch (const StoreFailure &) {
    } catch (const std::bad_alloc &) {
    }
    return nullptr;  // the read that follows reports the failure
}

// ---- writing

DWORD Store::WriteCode() {
    const std::lock_guard lock(m_readMutex);
    EnsureReader();
    return m_writeCode;
}

Store::WriteTurn::WriteTurn(Store &store) : m_store(store) {
    if (!store.m_writeLock.TryLockFor(std::chrono::milliseconds(kMaxLockWait))) {
        throw StoreFailure{ERROR_BUSY};
    }
    try {
        store.TakeTurn();
    } catch (...) {
        store.m_writeLock.Unlock();
        throw;
    }
}

Store::WriteTurn::~WriteTurn() {
    m_store.EndTurn();
    m_store.m_writeLock.Unlock();
}

// Returns false when the locks of a reader keep this process from opening the database before it
// has the turn.
bool Store::CanRead() {
    try {
        const std::lock_guard lock(m_readMutex);
        EnsureReader();
        if (m_writeCode != ERROR_SUCCESS) {
            throw StoreFailure{m_writeCode};
        }
        if (m_writerIdentity != m_identity) {
            CloseWriter();
        }
        m_writerIdentity = m_identity;
        return true;
    } catch (const StoreFailure &failure) {
        if (!IsHeldUp(failure)) {
            throw;
        }
    }
    CloseWriter();
    return false;
}

void Store::TakeTurn() {
    const bool can_read = CanRead();
    if (!m_lock.IsOpen()) {
        if (const int error = m_lock.Open(m_place.lock, m_facts.st_mode)) {
            throw StoreFailure{code_of_errno(error)};
        }
    }
    if (const int error = m_lock.Lock(m_page.load(std::memory_order_acquire))) {
        throw StoreFailure{error == EBUSY ? ERROR_BUSY : code_of_errno(error)};
    }
    try {
        if (!can_read) {
            OpenShm();
            set_shm_locks(m_shm.Get(), 0, nullptr);
            const std::lock_guard lock(m_readMutex);
            EnsureReader();
            m_writerIdentity = m_identity;
        }
        OpenWriter();
    } catch (...) {
        set_shm_locks(-1, 0, nullptr);
        CloseWriter();  // releases the lock
        throw;
    }
}

void Store::EndTurn() noexcept {
    set_shm_locks(-1, 0, nullptr);
    m_lock.Unlock(m_page.load(std::memory_order_acquire));
}

// Opens the -shm file, unless it is open. When the file has been replaced, no connection of this
// process holds locks on the old one any more.
void Store::OpenShm() {
    struct stat facts;
    if (!m_shm || fstat(m_shm.Get(), &facts) != 0 ||
        !still_names({AT_FDCWD, m_place.shm.c_str()}, facts)) {
        m_shm = open_host(m_place.shm.c_str(), O_RDWR);
    }
}

void Store::OpenWriter() {
    const bool is_new = !m_writer.IsOpen();
    if (is_new) {
        OpenShm();
        set_shm_locks(m_shm.Get(), 0, nullptr);
        bool is_alone = false;
        open_database(m_place, &m_writer, &is_alone);
        if (is_alone || sqlite3_db_readonly(m_writer.Get(), "main") != 0) {
            throw StoreFailure{ERROR_ACCESS_DENIED};
        }
        m_logPages = 0;
        sqlite3_busy_timeout(m_writer.Get(), static_cast<int>(kMaxLockWait));
        sqlite3_wal_hook(m_writer.Get(), count_log_pages, &m_logPages);
    }
    set_shm_locks(m_shm.Get(), m_logPages * kPageSize, m_page.load(std::memory_order_acquire));
    if (is_new) {
        run(m_writer, Sql::kBeginWrite);
        upgrade_database(&m_writer);
        if (meta(m_writer, kBoot) != host_boot()) {
            RemoveStaleKeys(m_writer);
            set_meta(m_writer, kBoot, host_boot());
        }
        run(m_writer, Sql::kCommit);
    }
}

void Store::CloseWriter() noexcept {
    m_writer.Close();
    m_lock.Close();
}

// Removes the volatile keys of earlier boots. All keys below them are volatile too.
void Store::RemoveStaleKeys(Database &database) {
    std::vector<std::int64_t> keys;
    {
        Query query(database, Sql::kStaleKeys);
        query.Bind(host_boot());
        while (query.Step()) {
            keys.push_back(query.Number(0));
        }
    }
    for (const std::int64_t key : keys) {
        Query(database, Sql::kDeleteValues).Bind(key).Step();
        Query(database, Sql::kDeleteKey).Bind(key).Step();
    }
}

SharedPage *Store::ReplacePage(const PageName &lost) {
    const bool is_in_use = lost.number != 0 && lost.boot == host_boot();
    if (SharedPage *const old = m_page.exchange(nullptr, std::memory_order_acq_rel)) {
        old->Discard(m_place.page);
    }
    if (lost.number != 0) {
        SharedPage::Remove(lost, m_place.page);
    }
    SharedPage *const page = SharedPage::Create(m_facts, m_place.page, is_in_use);
    const PageName none{host_boot(), 0, false};
    run(m_writer, Sql::kBeginWrite);
    set_meta(m_writer, kPage, (page != nullptr ? page->Name() : none).Text());
    if (lost.number != 0) {
        // This may be a copy. The ids of its new keys are not those of the original's new keys.
        skip_key_ids(&m_writer, random_number() >> 28);
    }
    run(m_writer, Sql::kCommit);
    if (is_in_use) {
        const timespec grace{0, kPageGrace * 1'000'000};
        nanosleep(&grace, nullptr);
    }
    m_page.store(page, std::memory_order_release);
    m_checkAt.store(coarse_milliseconds() + kCheckPeriod, std::memory_order_relaxed);
    return page;
}

// Returns the page that the database names, in a transaction of its own when there has to be a new
// one, or null.
SharedPage *Store::WritersPage() {
    const PageName name = PageName::Parse(meta(m_writer, kPage));
    SharedPage *page = m_page.load(std::memory_order_acquire);
    if (page != nullptr && page->Name().number == name.number && page->IsSound()) {
        return page;
    }
    int error = 0;
    page = SharedPage::Map(name, m_facts, m_place.page, true, &error);
    if (error != 0) {
        throw StoreFailure{code_of_errno(error)};
    }
    if (page != nullptr) {
        m_page.store(page, std::memory_order_release);
        return page;
    }
    run(m_writer, Sql::kRollback);
    page = ReplacePage(name);
    run(m_writer, Sql::kBeginWrite);
    return page;
}

SharedPage *Store::BeginWrite() {
    const std::int64_t now = coarse_milliseconds();
    run(m_writer, Sql::kBeginWrite);
    try {
        SharedPage *const page = WritersPage();
        if (m_filesCheckAt.load(std::memory_order_relaxed) > now) {
            m_checkAt.store(now + kCheckPeriod, std::memory_order_relaxed);
        }
        if (page != nullptr && page->IsLeftChanging()) {
            page->RepairChanges();
        }
        return page;
    } catch (...) {
        CancelWrite();
        throw;
    }
}

bool Store::Commit(SharedPage *page, const Changes &changes) {
    const std::vector<std::uint32_t> &buckets = changes.m_buckets;
    if (page == nullptr) {
        run(m_writer, Sql::kCommit);
        return true;
    }
    page->BeginChanges(buckets);
    if (!page->IsSound()) {
        run(m_writer, Sql::kRollback);
        return false;
    }
    try {
        run(m_writer, Sql::kCommit);
    } catch (...) {
        roll_back(m_writer);
        page->EndChanges(buckets, {});
        throw;
    }
    page->EndChanges(buckets, changes.m_changes);
    if (!page->IsSound()) {
        try {
            ReplacePage(page->Name());
        } catch (const StoreFailure &) {
            // The commit stands. The next write finds no page, and cannot go on without a new one.
            CancelWrite();
        } catch (const std::bad_alloc &) {
            CancelWrite();  // the same
        }
        return true;
    }
    CheckpointWhenDue(page);
    return true;
}

void Store::CancelWrite() noexcept {
    roll_back(m_writer);
}

void Store::CheckpointWhenDue(SharedPage *page) noexcept {
    const std::int64_t now = coarse_milliseconds();
    const std::int64_t last = page->LastCheckpoint().load(std::memory_order_relaxed);
    if (m_logPages < kCheckpointPages && now >= last && now < last + kCheckpointPeriod) {
        return;
    }
    page->LastCheckpoint().store(now, std::memory_order_relaxed);
    set_shm_locks(m_shm.Get(), m_logPages * kPageSize, page);
    sqlite3_wal_checkpoint_v2(m_writer.Get(), "main", SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
}

void Store::Flush() {
    {
        const std::lock_guard lock(m_readMutex);
        EnsureReader();
        if (m_isAlone) {
            return;
        }
    }
    // SQLite holds no lock on the log, so another descriptor may come and go.
    const HostDescriptor log = open_host(m_place.log.c_str(), O_RDONLY);
    if (!log || fdatasync(log.Get()) != 0) {
        throw StoreFailure{code_of_errno(errno)};
    }
    if (const int error = sync_folder_of(m_place.database)) {
        throw StoreFailure{code_of_errno(error)};
    }
}

void Store::Compact() {
    const WriteTurn turn(*this);
    m_writer.Run("VACUUM");
    set_shm_locks(m_shm.Get(), m_logPages * kPageSize, m_page.load(std::memory_order_acquire));
    constexpr int kReaderWait = 1000;  // milliseconds
    sqlite3_busy_timeout(m_writer.Get(), kReaderWait);
    sqlite3_wal_checkpoint_v2(m_writer.Get(), "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    sqlite3_busy_timeout(m_writer.Get(), static_cast<int>(kMaxLockWait));
}

// ---- forks

void Store::CloseFiles() noexcept {
    m_reader.Close();
    CloseWriter();
    m_shm = HostDescriptor();
    m_identity = {};
}

void Store::LockForFork() noexcept {
    m_writeLock.Lock();
    m_readMutex.lock();
    CloseFiles();
}

void Store::UnlockForFork() noexcept {
    m_readMutex.unlock();
    m_writeLock.Unlock();
}

void Store::RenewAfterFork() noexcept {
    std::construct_at(&m_readMutex);
    std::construct_at(&m_writeLock);
}

}  // namespace ostrel_platform
