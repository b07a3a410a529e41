#include "ostrel/platform/timezone.h"

#include <bit>

#include "ostrel/platform/error.h"
#include "support/test.h"
#include "support/zone_scope.h"

namespace {

TEST(Timezone, AppliesARule) {
    const SYSTEMTIME april{0, 4, 0, 1, 3, 0, 0, 0};
    const SYSTEMTIME october{0, 10, 0, 5, 2, 0, 0, 0};
    const SYSTEMTIME may_9{2026, 5, 0, 9, 2, 0, 0, 0};
    const SYSTEMTIME new_year{2026, 1, 0, 1, 0, 0, 0, 0};
    const SYSTEMTIME noon{2026, 1, 0, 1, 12, 0, 0, 0};
    const std::tuple<LONG, SYSTEMTIME, SYSTEMTIME, SYSTEMTIME, const char *> cases[] = {
        {0, april, october, {1999, 12, 0, 31, 23, 30, 0, 7}, "2000-01-01 (6) 00:30:00.007"},
        {0, october, april, {2026, 4, 0, 5, 3, 0, 0, 0}, "2026-04-05 (0) 04:00:00.000"},
        // A date with a year is that day of every year.
        {0, october, may_9, {1950, 5, 0, 9, 2, 0, 0, 0}, "1950-05-09 (2) 03:00:00.000"},
        // At noon in the zone, the change of the next year has been made.
        {-720, new_year, april, {2025, 12, 0, 31, 12, 0, 0, 0}, "2026-01-01 (4) 00:00:00.000"},
        {-90, {}, {}, {1601, 1, 0, 1, 0, 0, 0, 0}, "1601-01-01 (1) 01:30:00.000"},
        {1, {}, {}, {1601, 1, 0, 1, 0, 0, 0, 0}, ""},
        {-1, {}, {}, {30827, 12, 0, 31, 23, 59, 0, 0}, ""},
        {0, april, {}, noon, ""},
        {0, {0, 10, 7, 1, 0, 0, 0, 0}, april, noon, ""},
        {0, {0, 10, 0, 1, 24, 0, 0, 0}, april, noon, ""},
        {0, {2026, 2, 0, 29, 0, 0, 0, 0}, april, noon, ""}};
    for (const auto &[bias, standard, daylight, utc, expected] : cases) {
        SCOPED_TRACE(testing::Message() << bias << ", " << text(standard) << ", " << text(daylight)
                                        << ", " << text(utc));
        const TIME_ZONE_INFORMATION zone{bias, {}, standard, 0, {}, daylight, -60};
        SYSTEMTIME local{};
        const bool done = SystemTimeToTzSpecificLocalTime(&zone, &utc, &local);
        EXPECT_EQ(done ? text(local) : "", expected);
        EXPECT_TRUE(done || GetLastError() == ERROR_INVALID_PARAMETER);
    }
}

TEST(Timezone, MakesCountsLocalByTheBiasOfNow) {
    const ZoneScope zone("EST5EDT,0/0,J365/25");  // daylight time all the year
    for (const std::uint64_t ticks : {7ULL, 0ULL, ~0ULL}) {
        SCOPED_TRACE(ticks);
        const auto given = std::bit_cast<FILETIME>(ticks + 4 * 36'000'000'000);
        FILETIME local{};
        EXPECT_EQ(FileTimeToLocalFileTime(&given, &local), ticks <= 7);
        EXPECT_EQ(std::bit_cast<std::uint64_t>(local), ticks <= 7 ? ticks : 0);
        EXPECT_FALSE(FileTimeToLocalFileTime(&local, &local));
    }
}

}  // namespace
