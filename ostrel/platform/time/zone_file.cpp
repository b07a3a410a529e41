#include "ostrel/platform/time/zone_file.h"

#include <algorithm>
#include <utility>

#include "ostrel/platform/time/calendar.h"

namespace ostrel_platform {
namespace {

// Takes pieces from the front of the content. A piece beyond the end is empty, a number 0, and
// Failed returns true from then on.
class Bytes {
public:
    explicit Bytes(std::string_view content) : m_rest(content) {}

    bool Failed() const { return m_failed; }

    std::string_view Take(std::uint64_t count) {
        if (count > m_rest.size()) {
            m_failed = true;
            count = m_rest.size();
        }
        const std::string_view taken = m_rest.substr(0, count);
        m_rest.remove_prefix(count);
        return m_failed ? std::string_view() : taken;
    }

    // Takes the bytes up to the next line feed. Fails when there is none.
    std::string_view TakeLine() {
        const std::size_t length = m_rest.find('\n');
        return Take(length == std::string_view::npos ? m_rest.size() + 1 : length);
    }

    // Takes a number of `width` bytes, big-endian in two's complement.
    std::int64_t Number(std::size_t width) {
        const std::string_view bytes = Take(width);
        const bool negative = !bytes.empty() && (bytes.front() & 0x80) != 0;
        std::uint64_t number = negative ? ~std::uint64_t{0} : 0;
        for (const char c : bytes) {
            number = number << 8 | static_cast<unsigned char>(c);
        }
        return static_cast<std::int64_t>(number);
    }

private:
    std::string_view m_rest;
    bool m_failed = false;
};

struct Header {
    char version = 0;
    std::uint64_t ut_flags = 0, standard_flags = 0, leaps = 0, times = 0, types = 0, name_bytes = 0;

    // Returns the bytes of the block behind the header, with times of `width` bytes.
    std::uint64_t Size(std::uint64_t width) const {
        return times * (width + 1) + types * 6 + name_bytes + leaps * (width + 4) + standard_flags +
               ut_flags;
    }
};

// Returns false when there is no header, or one without types.
bool read_header(Bytes *bytes, Header *header) {
    const bool magic = bytes->Take(4) == "TZif";
    header->version = static_cast<char>(bytes->Number(1));
    bytes->Take(15);
    for (std::uint64_t *const count : {&header->ut_flags, &header->standard_flags, &header->leaps,
                                       &header->times, &header->types, &header->name_bytes}) {
        *count = static_cast<std::uint64_t>(bytes->Number(4)) & 0xFFFFFFFF;
    }
    return magic && !bytes->Failed() && header->types != 0;
}

// Reads the clocks of a file. Returns false when an offset or a name is out of range.
bool read_types(Bytes bytes, const Header &header, const std::string &names,
                std::vector<ZoneInterval> *types) {
    for (std::uint64_t i = 0; i < header.types; ++i) {
        ZoneInterval type;
        type.offset = bytes.Number(4);
        type.daylight = bytes.Number(1) != 0;
        const std::int64_t name = bytes.Number(1) & 0xFF;
        if (type.offset <= -kMaxOffset || type.offset >= kMaxOffset ||
            static_cast<std::uint64_t>(name) >= names.size()) {
            return false;
        }
        type.name = names.c_str() + name;
        types->push_back(type);
    }
    return true;
}

// Reads the intervals between the changes. The first type holds before the first change. Returns
// false when the changes do not ascend or one names a type that does not exist.
bool read_intervals(Bytes times, Bytes indices, const Header &header, std::size_t width,
                    const std::vector<ZoneInterval> &types, std::vector<ZoneInterval> *intervals) {
    intervals->push_back(types.front());
    std::int64_t before = INT64_MIN;
    for (std::uint64_t i = 0; i < header.times; ++i) {
        const std::int64_t time = times.Number(width);
        const auto index = static_cast<std::uint64_t>(indices.Number(1) & 0xFF);
        if ((i != 0 && time <= before) || index >= types.size()) {
            return false;
        }
        before = time;
        if (time <= kTimeBegin) {
            intervals->back() = types[index];
        } else if (time < kTimeEnd) {
            intervals->back().end = time;
            intervals->push_back(types[index]);
            intervals->back().begin = time;
        }
    }
    return true;
}

// Swaps the two kinds where daylight time is behind the standard time on both sides: the daylight
// interval becomes standard time, and the standard intervals beside it become daylight time unless
// they last 366 days or more.
void swap_negative_dst(std::vector<ZoneInterval> *intervals) {
    const std::vector<ZoneInterval> given = *intervals;
    const auto is_behind = [&](std::size_t i) {
        const auto ahead = [&](std::size_t k) {
            return !given[k].daylight && given[k].offset > given[i].offset;
        };
        return given[i].daylight && (i == 0 || ahead(i - 1)) &&
               (i + 1 == given.size() || ahead(i + 1)) && given.size() > 1;
    };
    for (std::size_t i = 0; i < given.size(); ++i) {
        if (is_behind(i)) {
            (*intervals)[i].daylight = false;
        } else if (!given[i].daylight && given[i].end - given[i].begin < 366 * kSecondsOfDay) {
            (*intervals)[i].daylight =
                (i != 0 && is_behind(i - 1)) || (i + 1 < given.size() && is_behind(i + 1));
        }
    }
}

// Returns for each interval the offset of the last standard time up to it, in the order of the
// iterators; `start` where there is none.
template <class Iterator>
std::vector<std::optional<std::int64_t>> nearest_standard(Iterator first, Iterator last,
                                                          std::optional<std::int64_t> start) {
    std::vector<std::optional<std::int64_t>> nearest;
    for (; first != last; ++first) {
        if (!first->daylight) {
            start = first->offset;
        }
        nearest.push_back(start);
    }
    return nearest;
}

// Sets the standard offset of each interval. A file does not state the standard offset of daylight
// time. It is the greater of the nearest standard offsets before and after, among those below the
// interval's own offset; without one, it is the own offset less one hour. The rule follows the last
// interval.
void find_standard(std::vector<ZoneInterval> *intervals, const std::optional<ZoneRule> &rule) {
    const auto in_front = nearest_standard(intervals->begin(), intervals->end(), std::nullopt);
    auto behind = nearest_standard(intervals->rbegin(), intervals->rend(),
                                   rule ? std::optional(rule->standard) : std::nullopt);
    std::reverse(behind.begin(), behind.end());
    for (std::size_t i = 0; i < intervals->size(); ++i) {
        ZoneInterval &interval = (*intervals)[i];
        std::optional<std::int64_t> standard;
        for (const std::optional<std::int64_t> &near : {in_front[i], behind[i]}) {
            if (near && *near < interval.offset && (!standard || *near > *standard)) {
                standard = near;
            }
        }
        interval.standard =
            !interval.daylight ? interval.offset : standard.value_or(interval.offset - 3600);
    }
}

}  // namespace

std::unique_ptr<const Zone> read_zone_file(std::string_view content) {
    Bytes bytes(content);
    Header header;
    if (!read_header(&bytes, &header)) {
        return nullptr;
    }
    std::size_t width = 4;
    if (header.version != 0) {  // the same data follows with 64-bit times
        width = 8;
        bytes.Take(header.Size(4));
        if (!read_header(&bytes, &header)) {
            return nullptr;
        }
    }
    const std::string_view times = bytes.Take(header.times * width);
    const std::string_view indices = bytes.Take(header.times);
    const std::string_view type_bytes = bytes.Take(header.types * 6);
    auto names = std::make_unique<const std::string>(bytes.Take(header.name_bytes));
    bytes.Take(header.leaps * (width + 4) + header.standard_flags + header.ut_flags);
    std::vector<ZoneInterval> types;
    std::vector<ZoneInterval> intervals;
    if (bytes.Failed() || !read_types(Bytes(type_bytes), header, *names, &types) ||
        !read_intervals(Bytes(times), Bytes(indices), header, width, types, &intervals)) {
        return nullptr;
    }
    std::optional<ZoneRule> rule;
    if (header.version != 0 && bytes.Take(1) == "\n") {
        rule = parse_zone_rule(bytes.TakeLine());
    }
    swap_negative_dst(&intervals);
    find_standard(&intervals, rule);
    return std::make_unique<const Zone>(std::move(intervals), std::move(names), std::move(rule));
}

}  // namespace ostrel_platform
