#ifndef OSTREL_PLATFORM_TIME_ZONE_FILE_H
#define OSTREL_PLATFORM_TIME_ZONE_FILE_H

// Internal. Reads the files of the host's zone database.

#include <memory>
#include <string_view>

#include "ostrel/platform/time/zone.h"

namespace ostrel_platform {

// The zone that the bytes of a TZif file (RFC 8536) describe, of any version; null when they do
// not hold together. Leap seconds are passed over: the times of a file that counts them ("right/")
// are taken as they stand.
std::unique_ptr<const Zone> read_zone_file(std::string_view content);

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_ZONE_FILE_H
