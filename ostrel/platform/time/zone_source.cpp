#include "ostrel/platform/time/zone_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "ostrel/platform/base/fork_lock.h"
#include "ostrel/platform/base/never_destroyed.h"
#include "ostrel/platform/base/no_cancellation.h"
#include "ostrel/platform/time/zone_file.h"

namespace ostrel_platform {
namespace {

constexpr char kSystemZone[] = "/etc/localtime";
constexpr char kDatabase[] = "/usr/share/zoneinfo/";

constexpr off_t kLargestFile = 1 << 20;  // files of the database have some thousand bytes at most

const Zone &utc() {
    static NeverDestroyed<Zone> zone;
    return *zone;
}

ZoneFileIdentity identity_of(const struct stat &status) {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
            status.st_mtim.tv_nsec};
}

ZoneFileIdentity system_identity() {
    struct stat status;
    return stat(kSystemZone, &status) == 0 ? identity_of(status) : ZoneFileIdentity();
}

// Returns null when the path leads to no valid zone file; a device and a FIFO are none. Stores the
// identity of the file that was opened; leaves `*identity` unchanged when none was.
std::unique_ptr<const Zone> load_zone(const std::string &path, ZoneFileIdentity *identity) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0) {
        return nullptr;
    }
    const struct Closer {
        int descriptor;
        ~Closer() { close(descriptor); }
    } closer{file};
    struct stat status;
    if (fstat(file, &status) != 0) {
        return nullptr;
    }
    *identity = identity_of(status);
    if (!S_ISREG(status.st_mode) || status.st_size > kLargestFile) {
        return nullptr;
    }
    std::string content(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t size = 0;
    for (ssize_t count = 1; count > 0 && size < content.size();) {
        count = read(file, &content[size], content.size() - size);
        size += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    content.resize(size);
    return read_zone_file(content);
}

// Whether a name is not empty and stays within the database.
bool is_database_name(std::string_view name) {
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t end = std::min(name.find('/', begin), name.size());
        if (name.substr(begin, end - begin) == "..") {
            return false;
        }
        begin = end + 1;
    }
    return !name.empty();
}

// Returns the zone that the text of TZ stands for, or null.
std::unique_ptr<const Zone> make_zone(std::string text) {
    if (!text.empty() && text.front() == ':') {
        text.erase(0, 1);
    }
    ZoneFileIdentity identity;
    if (!text.empty() && text.front() == '/') {
        return is_callers_environment() ? nullptr : load_zone(text, &identity);
    }
    std::unique_ptr<const Zone> zone;
    if (is_database_name(text)) {
        zone = load_zone(kDatabase + text, &identity);
    }
    if (zone == nullptr) {
        if (std::optional<ZoneRule> rule = parse_zone_rule(text)) {
            zone = std::make_unique<const Zone>(std::move(*rule));
        }
    }
    return zone;
}

// All zones that have been the local one. Threads keep pointers to them until the process ends.
class ZoneTable {
public:
    static ZoneTable &Instance() {
        static NeverDestroyed<ZoneTable> table;
        return *table;
    }

    ZoneTable() { register_fork_lock(ForkOrder::kZones, &m_mutex); }

    const Zone &Named(const std::string &text) {
        const std::lock_guard lock(m_mutex);
        auto entry = m_named.find(text);
        if (entry == m_named.end()) {
            entry = m_named.emplace(text, make_zone(text)).first;
        }
        return Known(entry->second);
    }

    // Returns the zone of /etc/localtime, and the identity of the file that was read.
    const Zone &Systems(ZoneFileIdentity *identity) {
        const std::lock_guard lock(m_mutex);
        *identity = system_identity();
        auto entry = m_systems.find(*identity);
        if (entry == m_systems.end()) {
            // The file may have been replaced since; load_zone stores the identity of the new one.
            auto zone = load_zone(kSystemZone, identity);
            entry = m_systems.try_emplace(*identity, std::move(zone)).first;
        }
        return Known(entry->second);
    }

private:
    static const Zone &Known(const std::unique_ptr<const Zone> &zone) {
        return zone != nullptr ? *zone : utc();
    }

    std::mutex m_mutex;
    std::map<std::string, std::unique_ptr<const Zone>> m_named;
    std::map<ZoneFileIdentity, std::unique_ptr<const Zone>> m_systems;
};

constinit thread_local LocalZone t_zone;

}  // namespace

std::int64_t coarse_time() noexcept {
    timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec;
}

LocalZone &LocalZone::Current() noexcept {
    LocalZone &zone = t_zone;
    if (!zone.IsUnchanged()) {
        zone.Choose();
    }
    return zone;
}

bool LocalZone::IsUnchanged() noexcept {
    if (m_zone == nullptr || !m_variable.IsUnchanged()) {
        return false;
    }
    if (!m_isSystems) {
        return true;
    }
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    if (now.tv_nsec == m_checked.tv_nsec && now.tv_sec == m_checked.tv_sec) {
        return true;
    }
    m_checked = now;
    return std::getenv("TZ") == nullptr && system_identity() == m_identity;
}

void LocalZone::Choose() noexcept {
    const NoCancellation uncancelled;
    const Zone *zone = &utc();
    try {
        const std::optional<std::string> text = m_variable.Read("TZ=");
        m_isSystems = !text;
        zone = text ? &ZoneTable::Instance().Named(*text)
                    : &ZoneTable::Instance().Systems(&m_identity);
    } catch (const std::exception &) {  // memory is missing: UTC, and the next call tries again
        m_variable = WatchedVariable();
    }
    m_zone = zone;
    m_recent[0] = m_recent[1] = {0, 0};
    m_present = Present();
}

const LocalZone::Present &LocalZone::GetPresent() noexcept {
    const std::int64_t now = coarse_time();
    if (now < m_present.begin || now >= m_present.end) {
        const ZoneYear year = year_of_zone(*m_zone, now);
        m_present = {std::max(year.begin, year.now.begin),
                     std::min(year.end, year.now.end),
                     year.now.offset,
                     year.now.standard,
                     year.daylight ? year.daylight->offset - year.daylight->standard : 0,
                     year.daylight.has_value()};
    }
    return m_present;
}

}  // namespace ostrel_platform
