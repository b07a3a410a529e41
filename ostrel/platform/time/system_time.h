#ifndef OSTREL_PLATFORM_TIME_SYSTEM_TIME_H
#define OSTREL_PLATFORM_TIME_SYSTEM_TIME_H

// Internal. What the calls on SYSTEMTIME and FILETIME have in common.

#include <cstdint>
#include <optional>

#include "ostrel/platform/types.h"

namespace ostrel_platform {

inline constexpr std::int64_t kMillisecondsTo1970 = 11'644'473'600'000;  // from 1601
inline constexpr std::int64_t kTicksOfSecond = 10'000'000;

// Milliseconds from 1601-01-01 00:00:00; nothing for what is no time of the years 1601 to 30827.
std::optional<std::int64_t> milliseconds_of(const SYSTEMTIME &time);

// The way back, the day of the week included. No year before 0 or beyond 65535.
SYSTEMTIME fields_of(std::int64_t milliseconds);

// Whether milliseconds_of gives such a number.
bool is_year_of_fields(std::int64_t milliseconds);

// The 100 ns of a count; nothing from 2^63 on.
std::optional<std::int64_t> ticks_of(const FILETIME &count);
FILETIME count_of(std::int64_t ticks);

// Sets the last error. Result: false.
bool fail_with_invalid_parameter() noexcept;

}  // namespace ostrel_platform

#endif  // OSTREL_PLATFORM_TIME_SYSTEM_TIME_H
