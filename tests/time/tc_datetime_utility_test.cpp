#include "ostrel/time/tc_datetime_utility.h"

#include <bit>
#include <climits>

#include "support/test.h"
#include "support/zone_scope.h"

namespace {

using OS::CTime;
using OS::CTimeException;
using OS::CTimeSpan;

// "2019-06-04 08:11:57 w2 d154 +1": the fields as they are read.
std::string shown(const CTime &time) {
    const std::tm &fields = time;
    OS::x_astring text;
    text.Format("%i-%i-%i %i:%i:%i w%i d%i %+i", time.GetYear(), time.GetMonth(), time.GetDay(),
                time.GetHour(), time.GetMinute(), time.GetSecond(), time.GetWeek(), fields.tm_yday,
                fields.tm_isdst);
    return text.c_str();
}

TEST(TcDatetimeUtility, KeepsTheFieldsThatItIsGiven) {
    const std::pair<CTime, const char *> cases[] = {
        {CTime(), "1900-1-0 0:0:0 w0 d0 +0"},
        {CTime(2019, 6, 4, 8, 11, 57), "2019-6-4 8:11:57 w0 d0 -1"},
        {CTime(99, 0, 45, 99, -1, 61), "1999-1-45 99:-1:61 w0 d0 -1"},
        {CTime(1899, 13, 1, 0, 0, 0), "3799-13-1 0:0:0 w0 d0 -1"},
        {CTime(1900, INT_MIN, 1, 0, 0, 0), "1900--2147483647-1 0:0:0 w0 d0 -1"},
        {CTime(8, 30, 0), "1900-1-0 8:30:0 w0 d0 -1"},
        {CTime(FILETIME{}), "3501-1-1 0:0:0 w1 d0 -1"},
        {CTime(std::bit_cast<FILETIME>(132041095171230000)), "2019-6-4 8:11:57 w2 d0 -1"}};
    for (const auto &[time, expected] : cases) {
        EXPECT_EQ(shown(time), expected);
    }
    EXPECT_EQ(CTime(FILETIME{}).GetDayOfWeek(), 2);
    EXPECT_THROW(CTime(std::bit_cast<FILETIME>(1ULL << 63)), OS::CSystemException);
}

TEST(TcDatetimeUtility, ReadsTexts) {
    const std::tuple<const WCHAR *, int, const char *> cases[] = {
        {TEXT(" 6/ 4/2019    8:11:57"), 0, "2019-6-4 8:11:0 w0 d0 -1"},
        {TEXT("6/4/99"), 0, "1999-6-4 0:0:0 w0 d0 -1"},
        {TEXT("2019-06-04 08:11:57"), 1, "2019-6-4 8:11:0 w0 d0 -1"},
        {TEXT("06/04/2019 08:11:57"), 2, "2019-6-4 8:11:57 w0 d0 -1"},
        {TEXT("2019-06-0408:11:57"), 3, "2019-6-4 8:11:57 w0 d0 -1"},
        {TEXT("6/4/2019 08:11:57"), 2, "1900-6-0 0:0:0 w0 d0 -1"},
        {TEXT("20x9-1\u00E4-zz +5:-7:\xD800"), 3, "1920-1-0 5:-7:0 w0 d0 -1"},
        {TEXT("2019-06-04 08:11:57"), 7, "1900-1-0 0:0:0 w0 d0 -1"},
        {TEXT(""), 3, "1900-1-0 0:0:0 w0 d0 -1"}};
    for (const auto &[text, spec, expected] : cases) {
        EXPECT_EQ(shown(CTime(text, static_cast<CTime::DATETIME_SPEC>(spec))), expected)
            << PrintToString(text) << spec;
    }
}

TEST(TcDatetimeUtility, ComparesWhatTheFieldsStandFor) {
    const ZoneScope zone("UTC");
    const CTime day32(2019, 1, 32, 0, 0, 0), first(2019, 1, 32, 0, 0, 0),
        later(2019, 2, 1, 0, 0, 1);
    EXPECT_TRUE(day32 == first);
    EXPECT_EQ(shown(day32), "2019-1-32 0:0:0 w0 d0 -1");  // the left side of == is not rewritten
    EXPECT_EQ(shown(first), "2019-2-1 0:0:0 w5 d31 +0");
    EXPECT_FALSE(day32 != first);
    EXPECT_EQ(shown(day32), shown(first));
    EXPECT_TRUE(first < later && later > first && first <= later && !(first >= later));
    EXPECT_TRUE(CTime() == CTime(1900, 1, 1, 0, 0, 0) && CTime(1960, 5, 5, 0, 0, 0) == CTime());
    EXPECT_TRUE(CTime(2019, 1, 1, 8, 11, 5).compareToMinute(CTime(2019, 1, 1, 8, 11, 57)));
    EXPECT_FALSE(CTime(2019, 1, 1, 25, 0, 0).compareToMinute(CTime(2019, 1, 2, 1, 0, 0)));
    EXPECT_EQ(CTime(1970, 1, 1, 0, 0, 7).GetTime(), 7);
    EXPECT_EQ(CTime(2019, 1, 1, 0, 0, 0).DiffTime(CTime(2019, 1, 2, 0, 0, 1)), -86401.0);
}

TEST(TcDatetimeUtility, AddsAndSubtracts) {
    for (const char *const name : {"UTC", "Europe/Berlin", "Australia/Sydney", "Asia/Kolkata"}) {
        SCOPED_TRACE(name);
        const ZoneScope zone(name);
        const CTime a(2019, 6, 4, 10, 0, 0);
        EXPECT_EQ(shown(a - CTime(2019, 6, 5, 11, 1, 2)), "1900-1--1 -1:-1:-2 w0 d0 -1");
        EXPECT_EQ((a + CTimeSpan(86400 * 30)).GetTime(), a.GetTime() + 86400 * 30);
        EXPECT_EQ((a - CTimeSpan(1)).GetTime(), a.GetTime() - 1);
        EXPECT_THROW((void)(a - CTimeSpan(a.GetTime() + 1)), CTimeException);
        EXPECT_THROW((void)(a + CTimeSpan(INT64_MAX)), CTimeException);
        EXPECT_THROW((void)(CTime() + CTime(1, 0, 0)), CTimeException);
    }
    // The sum is read as standard time: an hour later on the clock where daylight time applies.
    const ZoneScope zone("Europe/Berlin");
    EXPECT_EQ(shown(CTime(2019, 1, 31, 22, 59, 59) + CTime(1, 0, 1)), "2019-2-1 0:0:0 w5 d31 +0");
    EXPECT_EQ(shown(CTime(2019, 6, 4, 8, 0, 0) + CTime(1, 0, 0)), "2019-6-4 10:0:0 w2 d154 +1");
}

TEST(TcDatetimeUtility, ChangesZones) {
    const std::tuple<const char *, CTime, const char *> cases[] = {
        {"Europe/Berlin", CTime(2019, 6, 4, 8, 0, 0), "2019-6-4 10:0:0 w2 d154 +1"},
        {"America/New_York", CTime(2019, 3, 10, 7, 0, 0), "2019-3-10 3:0:0 w0 d68 +1"},
        {"Asia/Tokyo", CTime(3000, 12, 31, 14, 59, 59), "3000-12-31 23:59:59 w3 d364 +0"}};
    for (const auto &[name, utc, expected] : cases) {
        const ZoneScope zone(name);
        CTime local = utc;
        EXPECT_EQ(shown(local.ToLocalTime()), expected) << name;
        EXPECT_TRUE(local.ToGMTime().compareToMinute(utc)) << name << shown(local);
    }
    const ZoneScope zone("Europe/Berlin");
    const CTime winter(2019, 1, 1, 12, 0, 0);
    EXPECT_EQ(shown(winter.ConvertTimeZoneTime(0, -90)), "2019-1-1 13:30:0 w2 d0 +0");
    EXPECT_EQ(shown(winter.ConvertTimeZoneTime(-90, 0)), "2019-1-1 10:30:0 w2 d0 +0");
    EXPECT_EQ(shown(winter.ConvertTimeZoneTime(INT_MIN, INT_MAX)), "1900-1-1 0:0:0 w0 d0 -1");
    EXPECT_EQ(shown(CTime(3001, 1, 1, 0, 30, 0).ToLocalTime()), "1900-1-1 0:0:0 w0 d0 -1");
    EXPECT_THROW(CTime(1969, 12, 31, 0, 0, 0).ToGMTime(), CTimeException);
}

TEST(TcDatetimeUtility, ComesFromTheClockAndFromCounts) {
    const ZoneScope zone("Asia/Tokyo");
    EXPECT_EQ(shown(CTime(std::int64_t{0})), "1970-1-1 9:0:0 w4 d0 +0");
    CTime time;
    time = std::int64_t{32535215999};
    EXPECT_EQ(shown(time), "3001-1-1 8:59:59 w4 d0 +0");
    try {
        (void)CTime(std::int64_t{-1});
        ADD_FAILURE();
    } catch (const CTimeException &failure) {
        EXPECT_EQ(failure.GetErrorCode(), 0);
        EXPECT_NE(failure.GetErrorMsgEx().find(TEXT("tc_datetime_utility")), std::u16string::npos);
    }
    EXPECT_THROW(time = std::int64_t{32535216000}, CTimeException);
    const std::int64_t now = std::time(nullptr);
    EXPECT_LE(CTime::GetCurTime().GetTime() - now, 60);
    EXPECT_LE(CTime::GetCurGMTime().DiffTime(CTime(now - 9 * 3600)), 60.0);
}

TEST(TcDatetimeUtility, KnowsTheLastDayOfAMonth) {
    const ZoneScope zone("Europe/Berlin");
    const std::tuple<int, int, int> cases[] = {{2019, 2, 28},  {2100, 2, 28}, {2000, 2, 29},
                                               {2019, 12, 31}, {2019, 0, 31}, {2019, 13, 28}};
    for (const auto &[year, month, days] : cases) {
        EXPECT_EQ(CTime::GetLastDayOfMonth(year, month), days) << year << ' ' << month;
    }
    EXPECT_TRUE(CTime(2019, 2, 28, 7, 0, 0).IsLastDayOfMonth());
    EXPECT_THROW(CTime::GetLastDayOfMonth(1900, 2), CTimeException);
    EXPECT_EQ((ZoneScope("Antarctica/Troll"), CTime::GetLastDayOfMonth(2019, 1)), 31);
}

TEST(TcDatetimeUtility, Prints) {
    const CTime time(2019, 6, 4, 8, 1, 7);
    EXPECT_EQ(time.GetDBTimeString(), TEXT("2019-06-04 08:01:07"));
    EXPECT_EQ(CTime().GetDBTimeString(), TEXT("1900-01-00 00:00:00"));
    EXPECT_EQ(time.GetTimeString(TEXT("%Y/%#m %H:%M %a %j")), TEXT("2019/6 08:01 Sun 001"));
    EXPECT_EQ(time.Format(nullptr), TEXT("Sun Jun  4 08:01:07 2019"));
    EXPECT_EQ(time.GetLongTimeString(nullptr), TEXT("Sunday, June 04, 2019 08:01:07"));
    EXPECT_TRUE(CTime().GetTimeString(nullptr).empty());
    const OS::x_wstring format(std::u16string(1024, u'x'));
    EXPECT_TRUE(time.GetTimeString(format.c_str()).empty());
    EXPECT_EQ(time.GetTimeString(format.c_str() + 1).GetLength(), 1023u);
    FILETIME count;
    time.GetTimeStruct(count);
    EXPECT_EQ(shown(count), "2019-6-4 8:1:7 w2 d0 -1");
    EXPECT_THROW(CTime(2019, 13, 1, 0, 0, 0).GetTimeStruct(count), OS::CSystemException);
    EXPECT_EQ(CTime(2019, 13, 1, 25, 0, 0).GetLocaleDateTimeString(), TEXT(" "));
}

std::string parts(const CTimeSpan &span) {
    OS::x_astring text;
    text.Format("%i %i %i %i of %i %i %i", span.GetDays(), span.GetHours(), span.GetMinutes(),
                span.GetSeconds(), span.GetTotalHours(), span.GetTotalMinutes(),
                span.GetTotalSeconds());
    return text.c_str();
}

TEST(TcDatetimeUtility, SpansDivideTowardZeroInThirtyTwoBits) {
    const CTimeSpan span(1, 2, 3, 4);
    EXPECT_EQ(parts(span), "1 2 3 4 of 26 1563 93784");
    const CTimeSpan negative(-90);
    EXPECT_EQ(parts(negative), "0 0 -1 -30 of 0 -1 -90");
    EXPECT_EQ(parts(std::int64_t{1} << 40), "12725829 0 36 16 of 305419896 1145324612 0");
    CTimeSpan sum = span + negative;
    EXPECT_TRUE((sum += CTimeSpan(90)) == span && (sum -= span) == CTimeSpan());
    EXPECT_TRUE(negative < sum && sum > negative && span != sum && span >= sum && sum <= span);
    (void)(CTimeSpan(INT64_MAX) + CTimeSpan(1));
}

}  // namespace
