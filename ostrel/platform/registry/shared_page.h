#ifndef OSTREL_PLATFORM_REGISTRY_SHARED_PAGE_H
#define OSTREL_PLATFORM_REGISTRY_SHARED_PAGE_H

// Internal. The memory that the processes share for one store: it tells a process which of its
// cached answers still hold, and watchers which keys have changed.
//
// Each key belongs to a bucket, and each bucket has a counter. A writer makes the counter odd
// before its commit and even after it. A process that reads the database notes the even counter
// first; the answer holds while the counter stays. So a writer that dies within a commit leaves
// readers that ask the database each time, and none that answers from before the commit. Counters
// begin with random numbers, so that zeros or rubbish in the page match no noted counter.
//
// A page is a file on /dev/shm with a random name, which the database holds (table meta, 'page').
// Without /dev/shm, and when a page was lost that the processes of this boot used, the file lies
// beside the database. The header has the same random number, and the inode of the database: a page
// without them is not used. So a copy of a database, which names the same page, has another one.
//
// Who may not write the database maps the page for reading alone.

#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

inline constexpr std::uint32_t kBuckets = 8192;

inline std::uint32_t bucket_of(std::int64_t key) {
    return static_cast<std::uint32_t>(key) % kBuckets;
}

// A change of a key, as watchers see it.
struct Change {
    // Kinds, as a mask.
    static constexpr std::uint32_t kSubkeys = 1;  // REG_NOTIFY_CHANGE_NAME
    static constexpr std::uint32_t kValues = 4;   // REG_NOTIFY_CHANGE_LAST_SET
    static constexpr std::uint32_t kDeleted = 8;  // the key itself is gone
    // Concerns every watcher: what changed is not known.
    static constexpr std::uint32_t kAnything = 0x80;

    std::uint32_t kind = 0;
    std::int64_t key = 0;
    std::vector<std::int64_t> ancestors;  // from the root to the parent
};

// How the database names its page.
struct PageName {
    std::string boot;
    std::uint64_t number = 0;
    bool is_beside_database = false;

    std::string Text() const;
    static PageName Parse(std::string_view text);  // number 0 for a text that is none
};

// A mapped page. Threads: any. Once mapped, a page stays mapped until the process ends, so that a
// reader needs no lock.
class SharedPage {
public:
    // Creates a page with a new name, owned and readable as `database` is. Tries /dev/shm unless
    // `beside`. Returns null when there is no place for it.
    static SharedPage *Create(const struct stat &database, const std::string &path_beside,
                              bool beside);
    // Maps a page by its name. Returns null with `error` 0 when the page does not exist, is not
    // sound or not trusted, and with an errno when this process cannot map it now.
    static SharedPage *Map(const PageName &name, const struct stat &database,
                           const std::string &path_beside, bool may_write, int *error);

    static constexpr std::size_t kMaxAncestors = 12;  // of a change

    const PageName &Name() const { return m_name; }
    bool MayWrite() const { return m_mayWrite; }
    bool IsOf(const struct stat &database) const {
        return m_memory->database.load(std::memory_order_relaxed) == database.st_ino;
    }
    // Whether header and mapping are as they were made.
    bool IsSound() const {
        return m_memory->number.load(std::memory_order_acquire) == m_name.number &&
               m_memory->magic.load(std::memory_order_relaxed) == kMagic;
    }
    // Makes the page unsound for all processes, and removes its name.
    void Discard(const std::string &path_beside) noexcept;
    // Removes the file of a page, which may be gone.
    static void Remove(const PageName &name, const std::string &path_beside) noexcept;

    std::uint64_t Counter(std::uint32_t bucket) const {
        return m_memory->counters[bucket].load(std::memory_order_acquire);
    }
    static bool IsAtRest(std::uint64_t counter) { return counter % 2 == 0; }

    // For the writer that holds the lock. BeginChanges before the commit, EndChanges after it.
    void BeginChanges(const std::vector<std::uint32_t> &buckets) noexcept;
    void EndChanges(const std::vector<std::uint32_t> &buckets,
                    const std::vector<Change> &changes) noexcept;
    // Whether a writer died between the two, and the end of what it left.
    bool IsLeftChanging() const { return Writing() != 0; }
    void RepairChanges() noexcept;
    // Not 0 while a writer is between the two; another number each time.
    std::uint32_t Writing() const { return m_memory->writing.load(std::memory_order_acquire); }

    // How many times a writer has begun, or kNotAtRest while one is at work. The same number before
    // and after means that no counter has changed in between.
    static constexpr std::uint64_t kNotAtRest = UINT64_MAX;
    std::uint64_t WritesAtRest() const {
        // In the order opposite to that of BeginChanges.
        const std::uint64_t writes = m_memory->writes.load(std::memory_order_acquire);
        return Writing() != 0 ? kNotAtRest : writes;
    }

    // Changes are numbered from 0 on. Head is the number of the next one.
    std::uint64_t Head() const { return m_memory->head.load(std::memory_order_acquire); }
    // Stores a change by its number. Returns false when the page does not hold it any more.
    bool ReadChange(std::uint64_t number, Change *change) const;
    // The word on which watchers wait.
    const std::atomic<std::uint32_t> &ChangeWord() const { return m_memory->change_word; }

    // A counter of snapshots that a checkpoint has overwritten while someone might read them.
    std::uint64_t LostSnapshots() const {
        return m_memory->lost_snapshots.load(std::memory_order_acquire);
    }
    void LoseSnapshots() noexcept {
        m_memory->lost_snapshots.fetch_add(1, std::memory_order_acq_rel);
    }

    // When somebody last wrote the log back to the database: milliseconds of a clock.
    std::atomic<std::int64_t> &LastCheckpoint() { return m_memory->last_checkpoint; }

    // What writers wait on, and whether one waits.
    std::atomic<std::uint32_t> &ReleaseWord() { return m_memory->release_word; }
    std::atomic<std::uint32_t> &Wanted() { return m_memory->wanted; }

private:
    static constexpr std::uint64_t kMagic = 0x3147455254534F;  // "OSTREG1"
    static constexpr std::size_t kChanges = 1024;
    struct Entry {
        std::atomic<std::uint64_t> number;  // plus 1; 0 while it is being written
        std::atomic<std::uint32_t> kind;
        std::atomic<std::uint32_t> ancestor_count;
        std::atomic<std::int64_t> key;
        std::atomic<std::int64_t> ancestors[kMaxAncestors];
    };

    struct Memory {
        std::atomic<std::uint64_t> magic;
        std::atomic<std::uint64_t> number;
        std::atomic<std::uint64_t> database;  // its inode
        alignas(64) std::atomic<std::uint32_t> writing;
        std::atomic<std::uint32_t> writes;
        alignas(64) std::atomic<std::uint32_t> change_word;
        std::atomic<std::uint64_t> head;
        std::atomic<std::uint64_t> lost_snapshots;
        std::atomic<std::int64_t> last_checkpoint;
        alignas(64) std::atomic<std::uint32_t> release_word;
        std::atomic<std::uint32_t> wanted;
        alignas(64) Entry changes[kChanges];
        std::atomic<std::uint64_t> counters[kBuckets];
    };

    SharedPage(Memory *memory, PageName name, bool may_write)
        : m_memory(memory), m_name(std::move(name)), m_mayWrite(may_write) {}

    static Memory *MapFile(int file, bool may_write) noexcept;
    void Append(const Change &change) noexcept;

    Memory *m_memory;
    PageName m_name;
    bool m_mayWrite;
};

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_REGISTRY_SHARED_PAGE_H
