#ifndef OSTREL_PLATFORM_TIME_SYSTEM_TIME_H
#define OSTREL_PLATFORM_TIME_SYSTEM_TIME_H

// Internal. Converts between SYSTEMTIME, FILETIME and plain counts.

#include <cstdint>
#include <optional>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

inline constexpr std::int64_t kMillisecondsTo1970 = 11'644'473'600'000;  // from 1601
inline constexpr std::int64_t kTicksOfSecond = 10'000'000;

// Returns the milliseconds from 1601-01-01 00:00:00, or nothing when `time` is not a valid date and
// time of the years 1601 to 30827. Ignores wDayOfWeek.
std::optional<std::int64_t> milliseconds_of(const SYSTEMTIME &time);

// Converts milliseconds from 1601-01-01 00:00:00 to fields, wDayOfWeek included. The year must be 0
// to 65535.
SYSTEMTIME fields_of(std::int64_t milliseconds);

// Whether milliseconds_of can return the number.
bool is_year_of_fields(std::int64_t milliseconds);

// Convert between a FILETIME and a number of 100 ns. ticks_of returns nothing from 2^63 on.
std::optional<std::int64_t> ticks_of(const FILETIME &count);
FILETIME count_of(std::int64_t ticks);

// Sets the last error to ERROR_INVALID_PARAMETER. Returns false.
bool fail_with_invalid_parameter() noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_SYSTEM_TIME_H
