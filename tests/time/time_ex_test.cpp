#include "ostrel/time/time_ex.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ostrel/core/x_string.h"
#include "support/zone_scope.h"

namespace {

using OS::CTimeEx;

SYSTEMTIME at(int year, int month, int day, int hour, int minute, int second = 0,
              int milliseconds = 0) {
    const auto word = [](int value) { return static_cast<WORD>(value); };
    return {word(year), word(month),  word(0),      word(day),
            word(hour), word(minute), word(second), word(milliseconds)};
}

std::string shown(const SYSTEMTIME &time) {
    OS::x_astring text;
    text.Format("%i-%02i-%02i %02i:%02i:%02i.%03i", int{time.wYear}, int{time.wMonth},
                int{time.wDay}, int{time.wHour}, int{time.wMinute}, int{time.wSecond},
                int{time.wMilliseconds});
    return text.c_str();
}

const char *const kEmpty = "0-00-00 00:00:00.000";

TEST(TimeEx, KeepsWhatItIsGiven) {
    EXPECT_EQ(shown(CTimeEx().GetUniversalTime()), kEmpty);
    SYSTEMTIME odd = at(2019, 14, 77, 1, 2, 3, 4567);
    odd.wDayOfWeek = 9;
    SYSTEMTIME back = {};
    CTimeEx copy;
    copy = CTimeEx::FromUniversalTime(odd);
    CTimeEx(copy).GetUniversalTime(back);
    EXPECT_EQ(std::memcmp(&odd, &back, sizeof odd), 0);

    std::tm fields = {};
    fields.tm_yday = 77;
    fields.tm_isdst = 5;
    CTimeEx().GetUniversalTime(fields);
    EXPECT_EQ((std::tuple{fields.tm_year, fields.tm_mon, fields.tm_yday, fields.tm_isdst}),
              (std::tuple{-1900, -1, 77, 0}));
    fields.tm_year = 119;
    fields.tm_mon = 5;
    EXPECT_EQ(shown(CTimeEx::FromUniversalTime(fields).GetUniversalTime()),
              "2019-06-00 00:00:00.000");
    const SYSTEMTIME now = CTimeEx::Now().GetUniversalTime();
    EXPECT_GE(now.wYear, 2024);
}

TEST(TimeEx, GoesToTheLocalClockAndBack) {
    const struct {
        const char *zone;
        SYSTEMTIME utc;
        const char *local;
        bool daylight;
    } cases[] = {
        {"UTC", at(2026, 7, 1, 12, 0), "2026-07-01 12:00:00.000", false},
        {"America/New_York", at(2026, 7, 1, 12, 0, 5, 678), "2026-07-01 08:00:05.678", true},
        {"America/New_York", at(2026, 1, 1, 2, 0), "2025-12-31 21:00:00.000", false},
        {"Australia/Sydney", at(2026, 1, 1, 0, 0), "2026-01-01 11:00:00.000", true},
        {"Australia/Lord_Howe", at(2026, 1, 1, 0, 0), "2026-01-01 11:00:00.000", true},
        {"Australia/Lord_Howe", at(2026, 7, 1, 0, 0), "2026-07-01 10:30:00.000", false},
        {"Asia/Kolkata", at(2026, 7, 1, 12, 0), "2026-07-01 17:30:00.000", false},
        {"Pacific/Apia", at(2026, 7, 1, 12, 0), "2026-07-02 01:00:00.000", false},
        {"America/Sao_Paulo", at(2010, 1, 1, 12, 0), "2010-01-01 09:00:00.000", false},
    };
    for (const auto &c : cases) {
        const ZoneScope zone(c.zone);
        const CTimeEx time = CTimeEx::FromUniversalTime(c.utc);
        bool daylight = !c.daylight;
        const SYSTEMTIME local = time.GetLocalTime(&daylight);
        EXPECT_EQ(shown(local), c.local) << c.zone;
        EXPECT_EQ(daylight, c.daylight) << c.zone;
        EXPECT_EQ(shown(time.GetLocalTime(nullptr)), c.local);
        EXPECT_EQ(shown(CTimeEx::FromLocalTime(local).GetUniversalTime()), shown(c.utc)) << c.zone;
        std::tm fields = {};
        time.GetLocalTime(fields);
        EXPECT_EQ(fields.tm_isdst, c.daylight ? 1 : 0);
        EXPECT_EQ(fields.tm_hour, local.wHour);
    }
}

TEST(TimeEx, ResolvesTheHoursOfAChange) {
    const ZoneScope zone("Europe/Berlin");
    const std::pair<SYSTEMTIME, const char *> cases[] = {
        {at(2026, 10, 25, 2, 30), "2026-10-25 00:30:00.000"},  // comes twice: daylight time
        {at(2026, 10, 25, 3, 0), "2026-10-25 02:00:00.000"},
        {at(2026, 3, 29, 2, 30), kEmpty},  // is skipped
        {at(2026, 3, 29, 3, 0), "2026-03-29 01:00:00.000"},
        {at(2026, 2, 30, 3, 0), kEmpty},
        {SYSTEMTIME{}, kEmpty},
    };
    for (const auto &[local, utc] : cases) {
        EXPECT_EQ(shown(CTimeEx::FromLocalTime(local).GetUniversalTime()), utc);
    }
    bool daylight = true;
    SYSTEMTIME local = at(1, 1, 1, 1, 1);
    CTimeEx().GetLocalTime(local, daylight);
    EXPECT_EQ(shown(local), kEmpty);
    EXPECT_FALSE(daylight);
}

}  // namespace
