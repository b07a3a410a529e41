#ifndef OSTREL_PLATFORM_TIME_ZONE_FILE_H
#define OSTREL_PLATFORM_TIME_ZONE_FILE_H

// Internal. Reads the files of the host's zone database, in the TZif format of RFC 8536.

#include <memory>
#include <string_view>

#include "ostrel/platform/time/zone.h"

namespace ostrel_platform {

// Returns the zone that the bytes of a TZif file describe, or null when the content is damaged.
// Reads every version of the format. Ignores the leap seconds: the times of a file that counts them
// ("right/") are used unchanged. Throws std::bad_alloc.
std::unique_ptr<const Zone> read_zone_file(std::string_view content);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_ZONE_FILE_H
