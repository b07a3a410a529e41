#include "ostrel/platform/file/file_facts.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>

#include "ostrel/platform/file.h"
#include "ostrel/platform/file/attribute_cache.h"
#include "ostrel/platform/file/stored_attributes.h"
#include "ostrel/platform/time/calendar.h"
#include "ostrel/platform/time/system_time.h"

namespace ostrel_platform {
namespace {

constexpr DWORD kStoredOfFile =
    FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE;
constexpr DWORD kStoredOfDirectory = kStoredOfFile | FILE_ATTRIBUTE_READONLY;

constexpr mode_t kAllMayWrite = S_IWUSR | S_IWGRP | S_IWOTH;

constexpr std::int64_t kSecondsTo1970 = kMillisecondsTo1970 / 1000;
constexpr std::int64_t kLastTicks = std::numeric_limits<std::int64_t>::max();

// The fields that statx must return.
constexpr unsigned kFields = STATX_BASIC_STATS | STATX_BTIME;

// FIFOs, sockets and devices have no attributes, so no host call reads or writes any.
bool has_attributes(mode_t mode) {
    return S_ISREG(mode) || S_ISDIR(mode);
}

// Returns 0 for a time before 1601, and 2^63-1 for a time that does not fit.
FILETIME time_from_host(const statx_timestamp &time) {
    if (time.tv_sec < -kSecondsTo1970) {
        return count_of(0);
    }
    if (time.tv_sec >= kLastTicks / kTicksOfSecond - kSecondsTo1970) {
        return count_of(kLastTicks);
    }
    return count_of((time.tv_sec + kSecondsTo1970) * kTicksOfSecond + time.tv_nsec / 100);
}

bool is_earlier(const statx_timestamp &left, const statx_timestamp &right) {
    return left.tv_sec != right.tv_sec ? left.tv_sec < right.tv_sec : left.tv_nsec < right.tv_nsec;
}

// Returns the time of birth. Without one, returns the earliest time at which the file is known to
// have existed.
const statx_timestamp &host_creation(const struct statx &host) {
    if ((host.stx_mask & STATX_BTIME) != 0) {
        return host.stx_btime;
    }
    return is_earlier(host.stx_mtime, host.stx_ctime) ? host.stx_mtime : host.stx_ctime;
}

dev_t device_of(const struct statx &host) {
    return makedev(host.stx_dev_major, host.stx_dev_minor);
}

// Returns the facts that the host knows, without NORMAL and REPARSE_POINT.
FileFacts facts_of(const struct statx &host) {
    FileFacts facts;
    facts.attributes = 0;
    facts.creation = time_from_host(host_creation(host));
    facts.access = time_from_host(host.stx_atime);
    facts.write = time_from_host(host.stx_mtime);
    facts.size = S_ISREG(host.stx_mode) ? host.stx_size : 0;
    facts.volume = device_of(host);
    facts.index = host.stx_ino;
    facts.links = host.stx_nlink;
    if (S_ISDIR(host.stx_mode)) {
        facts.attributes = FILE_ATTRIBUTE_DIRECTORY;
    } else if (S_ISREG(host.stx_mode) && (host.stx_mode & S_IWUSR) == 0) {
        facts.attributes = FILE_ATTRIBUTE_READONLY;
    }
    return facts;
}

// Reads the layer's extended attributes of the file of `host`, which `ref` names, directly or
// through a link.
StoredAttributes read_stored(const struct statx &host, const FileRef &ref, DWORD link) {
    if (const auto cached = find_cached_attributes(host)) {
        return *cached;
    }
    StoredAttributes stored;
    errno = 0;
    const auto bits = read_stored_bits(ref, device_of(host));
    bool known = bits || errno == ENODATA;
    if (bits) {
        stored.bits = *bits;
        errno = 0;
        stored.creation = read_stored_creation(ref, device_of(host));
        known = stored.creation || errno == ENODATA;
    }
    if (known && link == 0) {
        cache_attributes(host, ref, stored);
    }
    return stored;
}

// Adds the facts of the layer's extended attributes, as above.
void add_stored_facts(const struct statx &host, const FileRef &ref, DWORD link, FileFacts *facts) {
    if (!has_attributes(host.stx_mode)) {
        return;
    }
    const StoredAttributes stored = read_stored(host, ref, link);
    facts->attributes |=
        stored.bits & (S_ISDIR(host.stx_mode) ? kStoredOfDirectory : kStoredOfFile);
    if (stored.creation) {
        facts->creation = count_of(*stored.creation);
    }
}

void add_kind(DWORD link, FileFacts *facts) {
    facts->attributes |= link;
    if (facts->attributes == 0) {
        facts->attributes = FILE_ATTRIBUTE_NORMAL;
    }
}

int ask_host(const FileRef &ref, int flags, struct statx *host) {
    return statx(ref.directory, ref.name, flags, kFields, host) == 0 ? 0 : errno;
}

// Overloads for a path and for an open file.

int change_mode(const char *path, mode_t mode) {
    return chmod(path, mode) == 0 ? 0 : errno;
}

int change_mode(int file, mode_t mode) {
    return fchmod(file, mode) == 0 ? 0 : errno;
}

FileRef ref_of(const char *path) {
    return {AT_FDCWD, path};
}

FileRef ref_of(int file) {
    return {file, ""};
}

int ask_host(const FileRef &ref, struct stat *host) {
    return error_of(fstatat(ref.directory, ref.name, host, AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW));
}

int ask_target(const FileRef &ref, struct stat *host) {
    return error_of(fstatat(ref.directory, ref.name, host, AT_EMPTY_PATH));
}

// Runs `store`. Extended attributes need read and write permission, even for the owner. On EACCES
// gives the owner both permissions, runs `store` again and restores the mode.
template <class Target, class Store>
int with_permission(Target target, mode_t mode, Store store) {
    constexpr mode_t kNeeded = S_IRUSR | S_IWUSR;
    const int error = store();
    if (error != EACCES || (mode & kNeeded) == kNeeded ||
        change_mode(target, mode | kNeeded) != 0) {
        return error;
    }
    const int result = store();
    const int restored = change_mode(target, mode);
    return result != 0 ? result : restored;
}

// Replaces the bits of `mask` by those of `bits`. Keeps the other bits, which a file server may
// have stored.
template <class Target>
int change_stored_bits(Target target, DWORD mask, DWORD bits) {
    const FileRef ref = ref_of(target);
    errno = 0;
    const std::optional<DWORD> kept = read_stored_bits(ref, kAnyDevice);
    if (!kept && errno != 0 && errno != ENODATA) {
        return errno;
    }
    const DWORD before = kept.value_or(0);
    const DWORD after = (before & ~mask) | bits;
    if (after == before) {
        return 0;
    }
    if (after == 0 && !read_stored_creation(ref, kAnyDevice)) {
        return remove_bits(target);
    }
    return store_bits(target, after);
}

// The mode of a file with these attributes.
mode_t wanted_mode(mode_t mode, DWORD attributes) {
    const bool read_only = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    return read_only ? mode & ~kAllMayWrite : mode | S_IWUSR;
}

template <class Target>
int write_attributes_of(Target target, DWORD attributes) {
    struct stat host;
    if (const int error = ask_target(ref_of(target), &host)) {
        return error;
    }
    if (!has_attributes(host.st_mode)) {
        return 0;
    }
    // For a file the mode alone decides READONLY, so this clears a READONLY bit of a file server.
    const bool is_directory = S_ISDIR(host.st_mode);
    const DWORD bits = attributes & (is_directory ? kStoredOfDirectory : kStoredOfFile);
    const mode_t mode = host.st_mode & 07777;
    const int error = with_permission(
        target, mode, [&] { return change_stored_bits(target, kStoredOfDirectory, bits); });
    if (error != 0 && (error != EOPNOTSUPP || (bits & FILE_ATTRIBUTE_READONLY) != 0)) {
        return error;
    }
    if (is_directory) {
        return 0;
    }
    const mode_t wanted = wanted_mode(mode, attributes);
    return wanted == mode ? 0 : change_mode(target, wanted);
}

// Whether a call sets the time: null, 0 and all bits set keep it.
bool is_given(const FILETIME *time) {
    constexpr DWORD kAllBits = 0xFFFFFFFF;
    return time != nullptr && (time->dwLowDateTime != 0 || time->dwHighDateTime != 0) &&
           (time->dwLowDateTime != kAllBits || time->dwHighDateTime != kAllBits);
}

// Returns false for a FILETIME of 2^63 or more. A time that is not given becomes UTIME_OMIT.
bool put_time(const FILETIME *time, timespec *host) {
    *host = {0, UTIME_OMIT};
    if (!is_given(time)) {
        return true;
    }
    const auto ticks = ticks_of(*time);
    if (ticks) {
        host->tv_sec = *ticks / kTicksOfSecond - kSecondsTo1970;
        host->tv_nsec = *ticks % kTicksOfSecond * 100;
    }
    return ticks.has_value();
}

// Whether every file system can store a time: those from 1980 to 2037.
bool every_host_keeps(const timespec &wanted) {
    constexpr std::int64_t k1980 = 315'532'800;
    constexpr std::int64_t k2038 = 2'145'916'800;
    return wanted.tv_nsec == UTIME_OMIT || (wanted.tv_sec >= k1980 && wanted.tv_sec < k2038);
}

// Whether the file system has stored the wanted time. A difference of up to a day comes from a
// coarse resolution.
bool is_kept(const timespec &wanted, const timespec &kept) {
    return every_host_keeps(wanted) || std::abs(wanted.tv_sec - kept.tv_sec) <= kSecondsOfDay;
}

// Returns 0 or errno. A file system silently replaces a time out of its range by the nearest one;
// the call then restores the old times and returns EINVAL.
int write_host_times(int file, const struct stat &before, const timespec (&times)[2]) {
    struct stat after;
    if (futimens(file, times) != 0) {
        return errno;
    }
    if (every_host_keeps(times[0]) && every_host_keeps(times[1])) {
        return 0;
    }
    if (fstat(file, &after) != 0) {
        return errno;
    }
    if (is_kept(times[0], after.st_atim) && is_kept(times[1], after.st_mtim)) {
        return 0;
    }
    const timespec old[] = {before.st_atim, before.st_mtim};
    return futimens(file, old) == 0 ? EINVAL : errno;
}

int write_creation_time(int file, const struct stat &host, std::int64_t ticks) {
    const int error = with_permission(file, host.st_mode & 07777, [&] {
        const int result = store_creation(file, ticks);
        if (result != 0 || read_stored_bits(ref_of(file), host.st_dev)) {
            return result;
        }
        return store_bits(file, 0);
    });
    return error == EOPNOTSUPP ? 0 : error;
}

// Stores what the host knows of a name, which for a link is what it knows of the target, and in
// `*link` whether the name is a link (REPARSE_POINT or 0). Returns 0 or errno.
int ask_host_of_entry(const FileRef &ref, unsigned char type, struct statx *host, DWORD *link) {
    *link = type == DT_LNK ? FILE_ATTRIBUTE_REPARSE_POINT : 0;
    if (*link == 0) {
        if (const int error = ask_host(ref, AT_SYMLINK_NOFOLLOW, host)) {
            return error;
        }
        *link = S_ISLNK(host->stx_mode) ? FILE_ATTRIBUTE_REPARSE_POINT : 0;
    }
    // When the target cannot be reached for any reason, the facts are the link's own.
    return *link != 0 && ask_host(ref, 0, host) != 0 ? ask_host(ref, AT_SYMLINK_NOFOLLOW, host) : 0;
}

// Whether a file has other attributes than these.
bool would_change(const FileRef &name, const struct stat &host, DWORD attributes) {
    const bool is_directory = S_ISDIR(host.st_mode);
    const DWORD bits = attributes & (is_directory ? kStoredOfDirectory : kStoredOfFile);
    errno = 0;
    const std::optional<DWORD> kept = read_stored_bits(name, host.st_dev);
    const bool unknown = !kept && errno != 0 && errno != ENODATA && errno != EOPNOTSUPP;
    if (unknown || (kept.value_or(0) & kStoredOfDirectory) != bits) {
        return true;
    }
    return !is_directory && wanted_mode(host.st_mode & 07777, attributes) != (host.st_mode & 07777);
}

}  // namespace

int read_facts(int directory, const char *name, unsigned char type, FileFacts *facts) noexcept {
    const FileRef ref = {directory, name};
    struct statx host;
    DWORD link;
    if (const int error = ask_host_of_entry(ref, type, &host, &link)) {
        return error;
    }
    *facts = facts_of(host);
    add_stored_facts(host, ref, link, facts);
    add_kind(link, facts);
    return 0;
}

int read_host_facts(int directory, const char *name, unsigned char type,
                    FileFacts *facts) noexcept {
    struct statx host;
    DWORD link;
    if (const int error = ask_host_of_entry({directory, name}, type, &host, &link)) {
        return error;
    }
    *facts = facts_of(host);
    add_kind(link, facts);
    return 0;
}

int read_facts(int directory, const char *name, FileFacts *facts) noexcept {
    return read_facts(directory, name, DT_UNKNOWN, facts);
}

int read_facts(int file, FileFacts *facts) noexcept {
    const FileRef ref = ref_of(file);
    struct statx host;
    if (const int error = ask_host(ref, AT_EMPTY_PATH, &host)) {
        return error;
    }
    const DWORD link = S_ISLNK(host.stx_mode) ? FILE_ATTRIBUTE_REPARSE_POINT : 0;
    *facts = facts_of(host);
    add_stored_facts(host, ref, link, facts);
    add_kind(link, facts);
    return 0;
}

// Changes the file through a descriptor of it, so that a link put under the name meanwhile is left
// alone. A file that may not be read is reached by O_PATH, which needs no permission of the file,
// but /proc.
int write_attributes(const FileRef &name, DWORD attributes) noexcept {
    struct stat host;
    if (const int error = ask_host(name, &host)) {
        return error;
    }
    if (!has_attributes(host.st_mode) || !would_change(name, host, attributes)) {
        return 0;
    }
    HostDescriptor file = open_host(name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (file) {
        return write_attributes_of(file.Get(), attributes);
    }
    if (errno != EACCES && errno != EPERM) {
        return errno == ELOOP ? 0 : errno;
    }
    file = open_host(name, O_PATH | O_NOFOLLOW);
    if (!file || fstat(file.Get(), &host) != 0) {
        return errno;
    }
    if (!has_attributes(host.st_mode)) {
        return 0;
    }
    char path[sizeof "/proc/self/fd/2147483647"];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", file.Get());
    return write_attributes_of(static_cast<const char *>(path), attributes);
}

int write_attributes(int file, DWORD attributes) noexcept {
    return write_attributes_of(file, attributes);
}

int write_new_attributes(int file, DWORD attributes) noexcept {
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        return write_attributes(file, attributes);
    }
    const int error = store_new_bits(file, attributes & kStoredOfFile);
    return error == EOPNOTSUPP ? 0 : error;
}

int write_times(int file, const FILETIME *creation, const FILETIME *access,
                const FILETIME *write) noexcept {
    timespec times[2];
    timespec unused;
    if (!put_time(access, &times[0]) || !put_time(write, &times[1]) ||
        !put_time(creation, &unused)) {
        return EINVAL;
    }
    struct stat host;
    if (fstat(file, &host) != 0) {
        return errno;
    }
    if (is_given(access) || is_given(write)) {
        if (const int error = write_host_times(file, host, times)) {
            return error;
        }
    }
    if (is_given(creation) && has_attributes(host.st_mode)) {
        return write_creation_time(file, host, *ticks_of(*creation));
    }
    return 0;
}

}  // namespace ostrel_platform
