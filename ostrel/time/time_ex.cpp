#include "ostrel/time/time_ex.h"

#include <cstdint>
#include <cstring>

#include "ostrel/platform/time.h"
#include "ostrel/platform/timezone.h"
#include "ostrel/time/system_fields.h"
#include "ostrel/time/wrapping.h"

namespace OS {

class CTimeEx::CTimeExImp {
public:
    SYSTEMTIME m_utc = {};
};

namespace {

using detail::wrapping_add;

constexpr std::int64_t kTicksPerSecond = 10'000'000;  // of 100 ns
constexpr std::int64_t kTicksPerMinute = 60 * kTicksPerSecond;

// Stores all fields but tm_yday.
void to_tm(const SYSTEMTIME &time, bool daylight, std::tm *fields) {
    fields->tm_year = time.wYear - 1900;
    fields->tm_mon = time.wMonth - 1;
    fields->tm_wday = time.wDayOfWeek;
    fields->tm_mday = time.wDay;
    fields->tm_hour = time.wHour;
    fields->tm_min = time.wMinute;
    fields->tm_sec = time.wSecond;
    fields->tm_isdst = daylight ? 1 : 0;
}

std::int64_t ticks_of(const FILETIME &count) {
    return static_cast<std::int64_t>(std::uint64_t{count.dwHighDateTime} << 32 |
                                     count.dwLowDateTime);
}

// Returns the count of a time, or 0 for fields that are not a valid time.
std::int64_t ticks_of(const SYSTEMTIME &time) {
    FILETIME count = {};
    SystemTimeToFileTime(&time, &count);
    return ticks_of(count);
}

// Compares all fields but the weekdays.
bool is_same_clock(SYSTEMTIME left, const SYSTEMTIME &right) {
    left.wDayOfWeek = right.wDayOfWeek;
    return std::memcmp(&left, &right, sizeof left) == 0;
}

// Returns the fields of a count, or the empty time for a count that FileTimeToSystemTime refuses.
SYSTEMTIME time_of(std::int64_t ticks) {
    const FILETIME count = {static_cast<DWORD>(ticks),
                            static_cast<DWORD>(static_cast<std::uint64_t>(ticks) >> 32)};
    SYSTEMTIME time = {};
    FileTimeToSystemTime(&count, &time);
    return time;
}

bool read_zone(TIME_ZONE_INFORMATION *zone) {
    return GetTimeZoneInformation(zone) != TIME_ZONE_ID_INVALID;
}

std::int64_t standard_offset(const TIME_ZONE_INFORMATION &zone) {
    return wrapping_add(zone.Bias, zone.StandardBias);
}

std::int64_t daylight_offset(const TIME_ZONE_INFORMATION &zone) {
    return wrapping_add(zone.Bias, zone.DaylightBias);
}

}  // namespace

CTimeEx::CTimeEx() : m_imp(std::make_unique<CTimeExImp>()) {}

CTimeEx::CTimeEx(const CTimeEx &other) : m_imp(std::make_unique<CTimeExImp>(*other.m_imp)) {}

CTimeEx &CTimeEx::operator=(const CTimeEx &other) {
    *m_imp = *other.m_imp;
    return *this;
}

CTimeEx::~CTimeEx() = default;

CTimeEx CTimeEx::Now() {
    CTimeEx now;
    GetSystemTime(&now.m_imp->m_utc);
    return now;
}

CTimeEx CTimeEx::FromUniversalTime(const SYSTEMTIME &time) {
    CTimeEx result;
    result.m_imp->m_utc = time;
    return result;
}

CTimeEx CTimeEx::FromUniversalTime(const std::tm &time) {
    return FromUniversalTime(detail::system_fields(time));
}

CTimeEx CTimeEx::FromLocalTime(const SYSTEMTIME &time) {
    CTimeEx result;
    TIME_ZONE_INFORMATION zone = {};
    FILETIME clock = {};
    if (!read_zone(&zone) || !SystemTimeToFileTime(&time, &clock)) {
        return result;
    }
    for (const std::int64_t offset : {daylight_offset(zone), standard_offset(zone)}) {
        const SYSTEMTIME candidate =
            time_of(wrapping_add(ticks_of(clock), offset * kTicksPerMinute));
        SYSTEMTIME local = {};
        SystemTimeToTzSpecificLocalTime(&zone, &candidate, &local);
        if (is_same_clock(local, time)) {
            result.m_imp->m_utc = candidate;
            break;
        }
    }
    return result;
}

CTimeEx CTimeEx::FromLocalTime(const std::tm &time) {
    return FromLocalTime(detail::system_fields(time));
}

SYSTEMTIME CTimeEx::GetUniversalTime() const {
    return m_imp->m_utc;
}

void CTimeEx::GetUniversalTime(SYSTEMTIME &time) const {
    time = m_imp->m_utc;
}

void CTimeEx::GetUniversalTime(std::tm &time) const {
    to_tm(m_imp->m_utc, false, &time);
}

void CTimeEx::GetLocalTime(SYSTEMTIME &time, bool &daylight) const {
    const SYSTEMTIME utc = m_imp->m_utc;  // a copy: the arguments may overlap it
    time = {};
    daylight = false;
    TIME_ZONE_INFORMATION zone = {};
    if (!read_zone(&zone) || !SystemTimeToTzSpecificLocalTime(&zone, &utc, &time)) {
        return;
    }
    const std::int64_t offset = (ticks_of(utc) - ticks_of(time)) / kTicksPerSecond / 60;
    daylight = offset != standard_offset(zone) && offset == daylight_offset(zone);
}

SYSTEMTIME CTimeEx::GetLocalTime(bool *daylight) const {
    SYSTEMTIME time = {};
    bool flag = false;
    GetLocalTime(time, flag);
    if (daylight != nullptr) {
        *daylight = flag;
    }
    return time;
}

void CTimeEx::GetLocalTime(std::tm &time) const {
    SYSTEMTIME clock = {};
    bool daylight = false;
    GetLocalTime(clock, daylight);
    to_tm(clock, daylight, &time);
}

}  // namespace OS
