#include "ostrel/platform/file/no_attribute_cache.h"

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

// 8 MiB of address space. A page uses memory only after one of its slots is used. Files created
// together have consecutive inodes, and so use consecutive slots of a row.
constexpr std::size_t kSlots = std::size_t{1} << 20;
constexpr std::size_t kRow = 64;

std::uint64_t known[kSlots];  // accessed only through atomic_ref

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

// Returns the hash of a file. The hash is never 0, the value of a free slot.
std::uint64_t mark_of(const struct statx &file) {
    const auto seconds = static_cast<std::uint64_t>(file.stx_ctime.tv_sec);
    std::uint64_t mark = mix(file.stx_ino + 0x9E3779B97F4A7C15 * device_of(file));
    mark = mix(mark + seconds * 1'000'000'000 + file.stx_ctime.tv_nsec);
    return mark | 1;
}

std::atomic_ref<std::uint64_t> slot_of(const struct statx &file) {
    const std::uint64_t row = mix(file.stx_ino / kRow + 0x9E3779B97F4A7C15 * device_of(file));
    return std::atomic_ref(known[row % (kSlots / kRow) * kRow + file.stx_ino % kRow]);
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

bool is_known_without_attributes(const struct statx &file) noexcept {
    return slot_of(file).load(std::memory_order_relaxed) == mark_of(file);
}

void remember_without_attributes(const struct statx &file, const FileRef &ref) noexcept {
    if (ref.directory != AT_FDCWD && has_aged(file.stx_ctime) && is_trusted(device_of(file), ref)) {
        slot_of(file).store(mark_of(file), std::memory_order_relaxed);
    }
}

}  // namespace ostrel_platform
