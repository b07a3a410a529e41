// Any bytes as a zone file: what is read has a clock for every time, within its intervals, and ways
// back from it. The last eight bytes are the time.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "fuzz/check.h"
#include "ostrel/platform/time/calendar.h"
#include "ostrel/platform/time/zone_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::uint64_t some = 0;
    if (size < sizeof some) {
        return 0;
    }
    std::memcpy(&some, data + size - sizeof some, sizeof some);
    const auto zone = ostrel_platform::read_zone_file(
        std::string_view(reinterpret_cast<const char *>(data), size - sizeof some));
    if (zone == nullptr) {
        return 0;
    }
    const auto time = static_cast<std::int64_t>(some % (ostrel_platform::kLastTime + 1));
    const ostrel_platform::ZoneInterval clock = zone->At(time);
    check(clock.begin <= time && time < clock.end);
    check(clock.name != nullptr && std::strlen(clock.name) <= size);
    check(std::abs(clock.offset) < ostrel_platform::kMaxOffset);
    for (const auto kind :
         {ostrel_platform::ClockKind::kWall, ostrel_platform::ClockKind::kStandard}) {
        check(std::abs(zone->ToUtc(time, kind) - time) < 2 * ostrel_platform::kMaxOffset);
    }
    const ostrel_platform::ZoneYear year = ostrel_platform::year_of_zone(*zone, time);
    check(year.begin < year.end && year.now.begin == clock.begin);
    return 0;
}
