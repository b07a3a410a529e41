#include "ostrel/platform/file/attribute_cache.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <atomic>
#include <cstdint>
#include <ctime>

#include "ostrel/platform/base/host_descriptor.h"
#include "ostrel/platform/file/device_set.h"

namespace ostrel_platform {
namespace {

// 24 MiB of address space. A page uses memory only after one of its slots is used. Files created
// together have consecutive inodes, and so use consecutive slots of a row.
constexpr std::size_t kSlots = std::size_t{1} << 20;
constexpr std::size_t kRow = 64;

// Several threads may write one slot at the same time: `check` tells whether the words belong
// together.
struct Slot {
    std::uint64_t check;  // the mark of the file, xor the two words
    std::uint64_t bits;   // with kHasCreation
    std::uint64_t creation;
};
constexpr std::uint64_t kHasCreation = std::uint64_t{1} << 32;

Slot known[kSlots];  // accessed only through load and store

constinit DeviceSet trusted;
constinit DeviceSet untrusted;

constexpr std::uint64_t mix(std::uint64_t value) {
    value = (value ^ value >> 32) * 0xD6E8FEB86659FD93;
    value = (value ^ value >> 32) * 0xD6E8FEB86659FD93;
    return value ^ value >> 32;
}

dev_t device_of(const struct statx &file) {
    return makedev(file.stx_dev_major, file.stx_dev_minor);
}

// Returns the hash of a file. The hash is never 0, the check of a free slot.
std::uint64_t mark_of(const struct statx &file) {
    const auto seconds = static_cast<std::uint64_t>(file.stx_ctime.tv_sec);
    std::uint64_t mark = mix(file.stx_ino + 0x9E3779B97F4A7C15 * device_of(file));
    mark = mix(mark + seconds * 1'000'000'000 + file.stx_ctime.tv_nsec);
    return mark | 1;
}

Slot &slot_of(const struct statx &file) {
    const std::uint64_t row = mix(file.stx_ino / kRow + 0x9E3779B97F4A7C15 * device_of(file));
    return known[row % (kSlots / kRow) * kRow + file.stx_ino % kRow];
}

std::uint64_t load(std::uint64_t &word) {
    return std::atomic_ref(word).load(std::memory_order_relaxed);
}

void store(std::uint64_t &word, std::uint64_t value) {
    std::atomic_ref(word).store(value, std::memory_order_relaxed);
}

// Trusts the host's own file systems only: a file server or a daemon may set ctime from a clock of
// its own.
bool keeps_change_times(const FileRef &ref) {
    HostDescriptor named;
    if (*ref.name != '\0') {
        named = HostDescriptor(openat(ref.directory, ref.name, O_PATH | O_CLOEXEC));
        if (!named) {
            return false;
        }
    }
    struct statfs facts;
    if (fstatfs(named ? named.Get() : ref.directory, &facts) != 0) {
        return false;
    }
    switch (facts.f_type) {
        case EXT4_SUPER_MAGIC:
        case XFS_SUPER_MAGIC:
        case BTRFS_SUPER_MAGIC:
        case TMPFS_MAGIC:
        case OVERLAYFS_SUPER_MAGIC:
            return true;
        default:
            return false;
    }
}

bool is_trusted(dev_t device, const FileRef &ref) {
    if (trusted.Has(device) || untrusted.Has(device)) {
        return trusted.Has(device);
    }
    const bool trust = keeps_change_times(ref);
    (trust ? trusted : untrusted).Add(device);
    return trust;
}

bool has_aged(const statx_timestamp &changed) {
    constexpr std::int64_t kSeconds = 2;
    timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec - changed.tv_sec > kSeconds;
}

}  // namespace

std::optional<StoredAttributes> find_cached_attributes(const struct statx &file) noexcept {
    Slot &slot = slot_of(file);
    const std::uint64_t bits = load(slot.bits);
    const std::uint64_t creation = load(slot.creation);
    if (load(slot.check) != (mark_of(file) ^ bits ^ creation)) {
        return std::nullopt;
    }
    StoredAttributes stored = {static_cast<DWORD>(bits), std::nullopt};
    if ((bits & kHasCreation) != 0) {
        stored.creation = static_cast<std::int64_t>(creation);
    }
    return stored;
}

void cache_attributes(const struct statx &file, const FileRef &ref,
                      const StoredAttributes &stored) noexcept {
    if (ref.directory == AT_FDCWD || !has_aged(file.stx_ctime) ||
        !is_trusted(device_of(file), ref)) {
        return;
    }
    Slot &slot = slot_of(file);
    const std::uint64_t bits = stored.bits | (stored.creation ? kHasCreation : 0);
    const auto creation = static_cast<std::uint64_t>(stored.creation.value_or(0));
    store(slot.check, mark_of(file) ^ bits ^ creation);
    store(slot.bits, bits);
    store(slot.creation, creation);
}

}  // namespace ostrel_platform
