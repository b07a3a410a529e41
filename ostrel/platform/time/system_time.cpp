// Times as fields, and as counts of 100 ns.

#include "ostrel/platform/time/system_time.h"

#include <ctime>

#include "ostrel/platform/error.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/time/calendar.h"

namespace ostrel_platform {
namespace {

constexpr std::int64_t kTicksOfMillisecond = 10'000;
constexpr std::int64_t kMillisecondsOfDay = 1000 * kSecondsOfDay;
constexpr std::int64_t kFirstDay = days_from_civil(1601, 1, 1);
constexpr int kFirstYear = 1601;
constexpr int kLastYear = 30827;  // the last year that ends at a count below 2^63

}  // namespace

bool fail_with_invalid_parameter() noexcept {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
}

std::optional<std::int64_t> milliseconds_of(const SYSTEMTIME &time) {
    if (time.wYear < kFirstYear || time.wYear > kLastYear || time.wMonth < 1 || time.wMonth > 12 ||
        time.wDay < 1 || (time.wDay > 28 && time.wDay > days_in_month(time.wYear, time.wMonth)) ||
        time.wHour > 23 || time.wMinute > 59 || time.wSecond > 59 || time.wMilliseconds > 999) {
        return std::nullopt;
    }
    const std::int64_t days = days_from_civil(time.wYear, time.wMonth, time.wDay) - kFirstDay;
    const int seconds = (time.wHour * 60 + time.wMinute) * 60 + time.wSecond;
    return days * kMillisecondsOfDay + std::int64_t{seconds} * 1000 + time.wMilliseconds;
}

SYSTEMTIME fields_of(std::int64_t milliseconds) {
    const std::int64_t days = floor_quotient(milliseconds, kMillisecondsOfDay);
    const auto rest = static_cast<unsigned>(milliseconds - days * kMillisecondsOfDay);
    const CivilDay date = civil_from_days(days + kFirstDay);
    return {static_cast<WORD>(date.year),
            static_cast<WORD>(date.month),
            static_cast<WORD>(weekday_of(days + kFirstDay)),
            static_cast<WORD>(date.day),
            static_cast<WORD>(rest / 3'600'000),
            static_cast<WORD>(rest / 60'000 % 60),
            static_cast<WORD>(rest / 1000 % 60),
            static_cast<WORD>(rest % 1000)};
}

bool is_year_of_fields(std::int64_t milliseconds) {
    constexpr std::int64_t kEnd =
        (days_from_civil(kLastYear + 1, 1, 1) - kFirstDay) * kMillisecondsOfDay;
    return milliseconds >= 0 && milliseconds < kEnd;
}

std::optional<std::int64_t> ticks_of(const FILETIME &count) {
    const std::uint64_t ticks = std::uint64_t{count.dwHighDateTime} << 32 | count.dwLowDateTime;
    return ticks <= INT64_MAX ? std::optional(static_cast<std::int64_t>(ticks)) : std::nullopt;
}

FILETIME count_of(std::int64_t ticks) {
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

}  // namespace ostrel_platform

void GetSystemTime(SYSTEMTIME *time) noexcept {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t since_1601 =
        now.tv_sec - ostrel_platform::kFirstDay * ostrel_platform::kSecondsOfDay;
    *time = ostrel_platform::fields_of(since_1601 * 1000 + now.tv_nsec / 1'000'000);
}

DWORD GetTickCount() noexcept {
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);  // includes the time asleep
    return static_cast<DWORD>(now.tv_sec * 1000 + now.tv_nsec / 1'000'000);
}

LONG CompareFileTime(const FILETIME *left, const FILETIME *right) noexcept {
    const auto ticks = [](const FILETIME &count) {
        return std::uint64_t{count.dwHighDateTime} << 32 | count.dwLowDateTime;
    };
    return (ticks(*left) > ticks(*right)) - (ticks(*left) < ticks(*right));
}

BOOL SystemTimeToFileTime(const SYSTEMTIME *time, FILETIME *count) noexcept {
    const auto milliseconds =
        time != nullptr ? ostrel_platform::milliseconds_of(*time) : std::nullopt;
    if (!milliseconds || count == nullptr) {
        return ostrel_platform::fail_with_invalid_parameter();
    }
    *count = ostrel_platform::count_of(*milliseconds * ostrel_platform::kTicksOfMillisecond);
    return TRUE;
}

BOOL FileTimeToSystemTime(const FILETIME *count, SYSTEMTIME *time) noexcept {
    const auto ticks = count != nullptr ? ostrel_platform::ticks_of(*count) : std::nullopt;
    if (!ticks || time == nullptr) {
        return ostrel_platform::fail_with_invalid_parameter();
    }
    *time = ostrel_platform::fields_of(*ticks / ostrel_platform::kTicksOfMillisecond);
    return TRUE;
}
