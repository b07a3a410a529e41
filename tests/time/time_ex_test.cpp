#include "ostrel/time/time_ex.h"

#include "support/test.h"
#include "support/zone_scope.h"

namespace {

using OS::CTimeEx;

const char *const kEmpty = "0-00-00 (0) 00:00:00.000";

TEST(TimeEx, KeepsWhatItIsGiven) {
    const SYSTEMTIME odd = {2019, 14, 9, 77, 1, 2, 3, 4567};
    SYSTEMTIME back = {};
    CTimeEx copy;
    copy = CTimeEx::FromUniversalTime(odd);
    CTimeEx(copy).GetUniversalTime(back);
    EXPECT_EQ(text(back), text(odd));
    EXPECT_GE(CTimeEx::Now().GetUniversalTime().wYear, 2024);
}

TEST(TimeEx, GoesToTheLocalClockAndBack) {
    const std::tuple<const char *, SYSTEMTIME, const char *, bool> cases[] = {
        {"America/New_York", {2026, 7, 3, 1, 12, 0, 5, 678}, "2026-07-01 (3) 08:00:05.678", true},
        {"America/New_York", {2026, 1, 4, 1, 2, 0, 0, 0}, "2025-12-31 (3) 21:00:00.000", false},
        {"Australia/Lord_Howe", {2026, 1, 4, 1, 0, 0, 0, 0}, "2026-01-01 (4) 11:00:00.000", true},
        {"Australia/Lord_Howe", {2026, 7, 3, 1, 0, 0, 0, 0}, "2026-07-01 (3) 10:30:00.000", false},
        {"America/Sao_Paulo", {2010, 1, 5, 1, 12, 0, 0, 0}, "2010-01-01 (5) 09:00:00.000", false}};
    for (const auto &[name, utc, expected, is_daylight] : cases) {
        SCOPED_TRACE(name + text(utc));
        const ZoneScope zone(name);
        const CTimeEx time = CTimeEx::FromUniversalTime(utc);
        bool daylight = !is_daylight;
        const SYSTEMTIME local = time.GetLocalTime(&daylight);
        EXPECT_EQ(text(local), expected);
        EXPECT_EQ(daylight, is_daylight);
        EXPECT_EQ(text(time.GetLocalTime(nullptr)), expected);
        EXPECT_EQ(text(CTimeEx::FromLocalTime(local).GetUniversalTime()), text(utc));
        std::tm fields = {};
        time.GetLocalTime(fields);
        EXPECT_EQ(fields.tm_isdst, is_daylight ? 1 : 0);
        EXPECT_EQ(fields.tm_hour, local.wHour);
    }
}

TEST(TimeEx, ResolvesTheHoursOfAChange) {
    const ZoneScope zone("Europe/Berlin");
    const std::pair<SYSTEMTIME, const char *> cases[] = {
        {{2026, 10, 0, 25, 2, 30, 0, 0},
         "2026-10-25 (0) 00:30:00.000"},          // comes twice: daylight time
        {{2026, 3, 0, 29, 2, 30, 0, 0}, kEmpty},  // is skipped
        {{2026, 2, 0, 30, 3, 0, 0, 0}, kEmpty}};
    for (const auto &[local, utc] : cases) {
        EXPECT_EQ(text(CTimeEx::FromLocalTime(local).GetUniversalTime()), utc) << text(local);
    }
    bool daylight = true;
    SYSTEMTIME local = {1, 1, 0, 1, 1, 1, 0, 0};
    CTimeEx().GetLocalTime(local, daylight);
    EXPECT_EQ(text(local), kEmpty);
    EXPECT_FALSE(daylight);
}

}  // namespace
