// Times and fields in many zones, and on SYSTEMTIME: what the host makes of the same is the
// measure. Input: a byte for the zone, eight for a time, then six fields of a tm.

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string>

#include "fuzz/check.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/timezone.h"

namespace {

constexpr std::int64_t kLast = 32535215999;
constexpr std::int64_t kFrom1601 = 11'644'473'600;

std::string text(const std::tm &of, const char *format = "%F %T %w %j %z %Z ") {
    char buffer[200];
    std::strftime(buffer, sizeof buffer, format, &of);
    return buffer + std::to_string(of.tm_isdst);
}

std::string text(const SYSTEMTIME &of) {
    char buffer[80];
    std::snprintf(buffer, sizeof buffer, "%u-%02u-%02u %u %02u:%02u:%02u", of.wYear, of.wMonth,
                  of.wDay, of.wDayOfWeek, of.wHour, of.wMinute, of.wSecond);
    return buffer;
}

// The local clock of a time, and back by the flag and without it.
void check_local(std::int64_t time, bool turned) {
    std::tm host{};
    localtime_r(&time, &host);
    const std::tm ours = *_localtime64(&time);
    host.tm_isdst = turned ? ours.tm_isdst : host.tm_isdst;
    check(text(ours) == text(host));
    // Clocks of one kind come twice where that kind itself falls back.
    std::tm again = ours;
    const std::int64_t error = std::abs(_mktime64(&again) - time);
    check(error == 0 || ((ours.tm_isdst == 0 || text(again) == text(ours)) && error <= 3600));
    again = ours;
    again.tm_isdst = -1;
    _mktime64(&again);
    check(text(again, "%F %T ").substr(0, 20) == text(ours, "%F %T ").substr(0, 20));
}

void check_system_time(std::uint64_t ticks) {
    const auto given = std::bit_cast<FILETIME>(ticks);
    SYSTEMTIME ours{};
    check(FileTimeToSystemTime(&given, &ours));
    const std::int64_t time = static_cast<std::int64_t>(ticks / 10'000'000) - kFrom1601;
    std::tm host{};
    char buffer[80];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %w %T", gmtime_r(&time, &host));
    check(text(ours) == buffer && ours.wMilliseconds == ticks / 10'000 % 1000);
    FILETIME back{};
    check(SystemTimeToFileTime(&ours, &back));
    check(std::bit_cast<std::uint64_t>(back) == ticks - ticks % 10'000);
}

// The rule that is told of a zone gives the zone's own clock, in a year that has it.
void check_rule(std::uint64_t ticks) {
    const auto given = std::bit_cast<FILETIME>(ticks);
    TIME_ZONE_INFORMATION zone;
    SYSTEMTIME utc{}, by_zone{}, by_rule{};
    check(GetTimeZoneInformation(&zone) != TIME_ZONE_ID_INVALID &&
          FileTimeToSystemTime(&given, &utc) &&
          SystemTimeToTzSpecificLocalTime(&zone, &utc, &by_rule) &&
          SystemTimeToTzSpecificLocalTime(nullptr, &utc, &by_zone));
    check(text(by_rule) == text(by_zone));
}

// Fields may hold anything; the host's timegm is exact over all of it.
void check_fields(const std::tm &given) {
    std::tm host = given;
    const std::int64_t expected = timegm(&host);
    const bool good = expected >= 0 && expected <= kLast;
    std::tm ours = given;
    check(_mkgmtime64(&ours) == (good ? expected : -1));
    check(text(ours, "%F %T %w %j ") == text(good ? host : given, "%F %T %w %j "));
    ours = given;
    check(std::abs(_mktime64(&ours) - (good ? expected : -1)) <= 86400);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static constexpr struct {
        const char *name;
        bool turned;           // the database says daylight time the other way round
        bool steady;           // its rule holds for some years
        bool compared = true;  // the host errs where the new year of UTC lies between changes
    } kZones[] = {
        {"UTC", false, true},
        {"America/New_York", false, true},
        {"Europe/Berlin", false, true},
        {"Asia/Kolkata", false, true},
        {"Asia/Tokyo", false, true},
        {"Australia/Lord_Howe", false, true},
        {"Africa/Casablanca", true, false},
        {"America/Sao_Paulo", false, false},
        {"Pacific/Apia", false, false},
        {"Europe/Dublin", true, true},
        {"Europe/Moscow", false, false},
        {"Asia/Tehran", false, false},
        {"Asia/Jerusalem", false, false},
        {"America/St_Johns", false, true},
        {"America/Nuuk", false, false},
        {"Africa/Cairo", false, false},
        {"Africa/Windhoek", true, false},
        {"Pacific/Chatham", false, true},
        {"Antarctica/Troll", false, false},
        {"America/Argentina/San_Luis", false, false},
        {"<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", false, true},
        {"EST5EDT,M3.2.0,M11.1.0", false, true},
        {"AAA11BBB,M12.5.0/23,M1.2.4/0", false, true, false},
        {"AAA0BBB,59,J300/1:2:3", false, false},
        {"AAA0BBB,J60,299", false, false},
    };
    struct Input {
        std::uint64_t number;
        std::int32_t fields[6];
    };
    if (size < 1 + sizeof(Input)) {
        return 0;
    }
    const auto &zone = kZones[data[0] % std::size(kZones)];
    setenv("TZ", zone.name, 1);
    tzset();
    Input input;
    std::memcpy(&input, data + 1, sizeof input);

    if (zone.compared) {
        check_local(static_cast<std::int64_t>(input.number % (kLast + 1)), zone.turned);
        check_local(static_cast<std::int64_t>(input.number % (70 * 365 * 86400ULL)), zone.turned);
    }
    constexpr std::uint64_t kEnd = 9'223'149'888'000'000'000;  // of the year 30827
    check_system_time(input.number % kEnd);
    constexpr std::uint64_t kIn2021 = 132'800'000'000'000'000;
    if (zone.steady) {
        check_rule(kIn2021 + input.number % kIn2021);
    }

    std::tm fields{};
    int *const places[] = {&fields.tm_sec,  &fields.tm_min, &fields.tm_hour,
                           &fields.tm_mday, &fields.tm_mon, &fields.tm_year};
    for (std::size_t i = 0; i < std::size(places); ++i) {
        const int near = input.fields[i] % 200;  // mostly near the ends of the ranges
        *places[i] = data[0] % 3 == 0 ? input.fields[i] : near;
    }
    check_fields(fields);
    return 0;
}
