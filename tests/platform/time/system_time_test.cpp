#include "ostrel/platform/time.h"

#include <bit>

#include "ostrel/platform/timezone.h"
#include "support/file_calls.h"
#include "support/zone_scope.h"

namespace {

TEST(SystemTime, EndsWhereItsRangeEnds) {
    const SYSTEMTIME wrong[] = {{1600, 12, 0, 31, 0, 0, 0, 0}, {30828, 1, 0, 1, 0, 0, 0, 0},
                                {2023, 2, 0, 29, 0, 0, 0, 0},  {2023, 0, 0, 1, 0, 0, 0, 0},
                                {2023, 13, 0, 1, 0, 0, 0, 0},  {2023, 1, 0, 1, 24, 0, 0, 0},
                                {2023, 1, 0, 0, 0, 0, 0, 0},   {2023, 1, 0, 1, 0, 0, 0, 1000}};
    FILETIME to{};
    SYSTEMTIME back{};
    for (const SYSTEMTIME &fields : wrong) {
        EXPECT_EQ(error_of(SystemTimeToFileTime(&fields, &to)), ERROR_INVALID_PARAMETER)
            << text(fields);
        EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, &fields, &back)) << text(fields);
    }
    const auto beyond = std::bit_cast<FILETIME>(std::uint64_t{1} << 63);
    EXPECT_FALSE(FileTimeToSystemTime(&beyond, &back));
    constexpr std::uint64_t kEnd = 9'223'149'888'000'000'000;  // of the year 30827
    const auto last = std::bit_cast<FILETIME>(kEnd - 1);
    EXPECT_TRUE(FileTimeToSystemTime(&last, &back));
    EXPECT_EQ(text(back), "30827-12-31 (5) 23:59:59.999");
    back.wDayOfWeek = 9;  // is not read
    EXPECT_TRUE(SystemTimeToFileTime(&back, &to));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(to), kEnd - 10'000);
}

TEST(SystemTime, ComparesCountsWithoutASign) {
    const FILETIME less = {0xFFFFFFFF, 0x7FFFFFFF}, more = {0, 0x80000000};
    EXPECT_EQ(CompareFileTime(&less, &more), -1);
    EXPECT_EQ(CompareFileTime(&more, &less), 1);
    EXPECT_EQ(CompareFileTime(&more, &more), 0);
}

}  // namespace
