#include "ostrel/platform/registry/shared_page.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <mutex>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/registry/page_faults.h"
#include "ostrel/platform/registry/shared_futex.h"
#include "ostrel/platform/registry/store_places.h"

namespace ostrel_platform {
namespace {

constexpr char kFolder[] = "/dev/shm";

std::string path_of(const PageName &name, const std::string &path_beside) {
    if (name.is_beside_database) {
        return path_beside;
    }
    char digits[17] = {};
    std::to_chars(digits, digits + 16, name.number, 16);
    return std::string(kFolder) + "/ostrel-registry-" + digits;
}

// SplitMix64 (Steele, Lea, Flood 2014).
std::uint64_t next_number(std::uint64_t *state) noexcept {
    std::uint64_t number = *state += 0x9E3779B97F4A7C15;
    number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9;
    number = (number ^ (number >> 27)) * 0x94D049BB133111EB;
    return number ^ (number >> 31);
}

bool is_on_memory() noexcept {
    struct statfs facts;
    return statfs(kFolder, &facts) == 0 && facts.f_type == TMPFS_MAGIC;
}

// A page of another owner is trusted only where its owner may write the database as well. Only a
// member of a group can give a file to the group.
bool is_trusted(const struct stat &page, const struct stat &database) {
    const mode_t writers = S_IWGRP | S_IWOTH;
    const bool is_of_a_writer =
        page.st_uid == database.st_uid || page.st_uid == 0 || (database.st_mode & S_IWOTH) != 0 ||
        ((database.st_mode & S_IWGRP) != 0 && page.st_gid == database.st_gid);
    return S_ISREG(page.st_mode) && is_of_a_writer &&
           (page.st_mode & writers & ~database.st_mode) == 0;
}

// Gives a new page the owner and group of the database. A member of the group that may write the
// database can give the group alone.
bool give_to_owner(int page, const struct stat &database) {
    struct stat facts;
    return fstat(page, &facts) == 0 &&
           ((facts.st_uid == database.st_uid && facts.st_gid == database.st_gid) ||
            fchown(page, database.st_uid, database.st_gid) == 0 ||
            ((database.st_mode & S_IWGRP) != 0 &&
             fchown(page, static_cast<uid_t>(-1), database.st_gid) == 0) ||
            (database.st_mode & S_IWOTH) != 0);
}

// The pages that this process has mapped, which stay mapped.
class MappedPages {
public:
    static MappedPages &Instance() {
        static auto *const pages = new MappedPages;
        return *pages;
    }

    // Returns a sound page with this number, or null.
    SharedPage *Find(std::uint64_t number, const struct stat &database, bool may_write) {
        const std::lock_guard lock(m_mutex);
        for (SharedPage *const page : m_pages) {
            if (page->Name().number == number && page->MayWrite() == may_write && page->IsSound() &&
                page->IsOf(database)) {
                return page;
            }
        }
        return nullptr;
    }

    SharedPage *Add(std::unique_ptr<SharedPage> page) {
        const std::lock_guard lock(m_mutex);
        m_pages.push_back(page.get());
        return page.release();
    }

private:
    std::mutex m_mutex;
    std::vector<SharedPage *> m_pages;
};

}  // namespace

std::string PageName::Text() const {
    char digits[17] = {};
    std::to_chars(digits, digits + 16, number, 16);
    return boot + ' ' + digits + (is_beside_database ? " beside" : " shm");
}

PageName PageName::Parse(std::string_view text) {
    PageName name;
    const std::size_t place = text.rfind(' ');
    const std::size_t digits = place == text.npos ? text.npos : text.rfind(' ', place - 1);
    if (digits == text.npos || digits + 1 >= place) {
        return name;
    }
    const auto [end, error] =
        std::from_chars(text.data() + digits + 1, text.data() + place, name.number, 16);
    if (error != std::errc() || end != text.data() + place) {
        name.number = 0;
    }
    name.boot = text.substr(0, digits);
    name.is_beside_database = text.substr(place + 1) == "beside";
    return name;
}

SharedPage::Memory *SharedPage::MapFile(int file, bool may_write) noexcept {
    void *const address = mmap(nullptr, sizeof(Memory),
                               may_write ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, file, 0);
    if (address == MAP_FAILED) {
        return nullptr;
    }
    if (!guard_mapping(address, sizeof(Memory))) {
        munmap(address, sizeof(Memory));
        return nullptr;
    }
    return static_cast<Memory *>(address);
}

SharedPage *SharedPage::Create(const struct stat &database, const std::string &path_beside,
                               bool beside) {
    static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
    PageName name{host_boot(), random_number(), beside || !is_on_memory()};
    const std::string path = path_of(name, path_beside);
    if (name.is_beside_database) {
        unlink(path.c_str());
    }
    HostDescriptor file = open_host(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    if (!file) {
        return beside ? nullptr : Create(database, path_beside, true);
    }
    const bool is_ready = posix_fallocate(file.Get(), 0, sizeof(Memory)) == 0 &&
                          give_to_owner(file.Get(), database) &&
                          fchmod(file.Get(), database.st_mode & 0666) == 0;
    Memory *const memory = is_ready ? MapFile(file.Get(), true) : nullptr;
    if (memory == nullptr) {
        unlink(path.c_str());
        return name.is_beside_database ? nullptr : Create(database, path_beside, true);
    }
    std::uint64_t state = random_number();
    for (std::atomic<std::uint64_t> &counter : memory->counters) {
        counter.store(next_number(&state) & ~std::uint64_t{1}, std::memory_order_relaxed);
    }
    memory->last_checkpoint.store(coarse_milliseconds(), std::memory_order_relaxed);
    memory->database.store(database.st_ino, std::memory_order_relaxed);
    memory->number.store(name.number, std::memory_order_relaxed);
    memory->magic.store(kMagic, std::memory_order_release);
    return MappedPages::Instance().Add(
        std::unique_ptr<SharedPage>(new SharedPage(memory, std::move(name), true)));
}

SharedPage *SharedPage::Map(const PageName &name, const struct stat &database,
                            const std::string &path_beside, bool may_write, int *error) {
    *error = 0;
    if (name.number == 0 || name.boot != host_boot()) {
        return nullptr;
    }
    if (SharedPage *const mapped = MappedPages::Instance().Find(name.number, database, may_write)) {
        return mapped;
    }
    // Another user may have put a FIFO in the place of a page that was lost.
    const HostDescriptor file =
        open_host(path_of(name, path_beside).c_str(),
                  (may_write ? O_RDWR : O_RDONLY) | O_NOFOLLOW | O_NONBLOCK);
    if (!file && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) {
        *error = errno;
    }
    struct stat facts;
    if (!file || fstat(file.Get(), &facts) != 0 || !is_trusted(facts, database) ||
        facts.st_size != sizeof(Memory)) {
        return nullptr;
    }
    Memory *const memory = MapFile(file.Get(), may_write);
    if (memory == nullptr) {
        *error = ENOMEM;
        return nullptr;
    }
    std::unique_ptr<SharedPage> page(new SharedPage(memory, name, may_write));
    return page->IsSound() && page->IsOf(database) ? MappedPages::Instance().Add(std::move(page))
                                                   : nullptr;
}

void SharedPage::Discard(const std::string &path_beside) noexcept {
    if (m_mayWrite) {
        m_memory->number.store(0, std::memory_order_seq_cst);
        m_memory->change_word.fetch_add(1, std::memory_order_acq_rel);
        wake_shared(m_memory->change_word);
        Remove(m_name, path_beside);
    }
}

void SharedPage::Remove(const PageName &name, const std::string &path_beside) noexcept {
    try {
        unlink(path_of(name, path_beside).c_str());
    } catch (const std::bad_alloc &) {
        // The file stays, without harm.
    }
}

void SharedPage::BeginChanges(const std::vector<std::uint32_t> &buckets) noexcept {
    const std::uint32_t number = m_memory->writes.load(std::memory_order_relaxed) + 1;
    m_memory->writing.store(number != 0 ? number : 1, std::memory_order_seq_cst);
    m_memory->writes.store(number, std::memory_order_seq_cst);
    for (const std::uint32_t bucket : buckets) {
        std::atomic<std::uint64_t> &counter = m_memory->counters[bucket];
        counter.store(counter.load(std::memory_order_relaxed) | 1, std::memory_order_seq_cst);
    }
}

void SharedPage::EndChanges(const std::vector<std::uint32_t> &buckets,
                            const std::vector<Change> &changes) noexcept {
    for (const std::uint32_t bucket : buckets) {
        std::atomic<std::uint64_t> &counter = m_memory->counters[bucket];
        counter.store((counter.load(std::memory_order_relaxed) | 1) + 1, std::memory_order_release);
    }
    for (const Change &change : changes) {
        Append(change);
    }
    m_memory->writing.store(0, std::memory_order_release);
    if (!changes.empty()) {
        m_memory->change_word.fetch_add(1, std::memory_order_acq_rel);
        wake_shared(m_memory->change_word);
    }
}

void SharedPage::RepairChanges() noexcept {
    for (std::atomic<std::uint64_t> &counter : m_memory->counters) {
        const std::uint64_t value = counter.load(std::memory_order_relaxed);
        if (!IsAtRest(value)) {
            counter.store(value + 1, std::memory_order_release);
        }
    }
    EndChanges({}, {Change{Change::kAnything, 0, {}}});
}

void SharedPage::Append(const Change &change) noexcept {
    const std::uint64_t number = m_memory->head.load(std::memory_order_relaxed);
    Entry &entry = m_memory->changes[number % kChanges];
    entry.number.store(0, std::memory_order_seq_cst);
    const bool fits = change.ancestors.size() <= kMaxAncestors;
    const std::size_t count = fits ? change.ancestors.size() : 0;
    entry.kind.store(fits ? change.kind : change.kind | Change::kAnything,
                     std::memory_order_release);
    entry.key.store(change.key, std::memory_order_release);
    entry.ancestor_count.store(static_cast<std::uint32_t>(count), std::memory_order_release);
    for (std::size_t i = 0; i < count; ++i) {
        entry.ancestors[i].store(change.ancestors[i], std::memory_order_release);
    }
    entry.number.store(number + 1, std::memory_order_release);
    m_memory->head.store(number + 1, std::memory_order_release);
}

bool SharedPage::ReadChange(std::uint64_t number, Change *change) const {
    const Entry &entry = m_memory->changes[number % kChanges];
    if (entry.number.load(std::memory_order_acquire) != number + 1) {
        return false;
    }
    change->kind = entry.kind.load(std::memory_order_acquire);
    change->key = entry.key.load(std::memory_order_acquire);
    const std::size_t count =
        std::min<std::size_t>(entry.ancestor_count.load(std::memory_order_acquire), kMaxAncestors);
    change->ancestors.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        change->ancestors[i] = entry.ancestors[i].load(std::memory_order_acquire);
    }
    return entry.number.load(std::memory_order_acquire) == number + 1;
}

}  // namespace ostrel_platform
