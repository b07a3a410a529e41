// The text forms of times: texts as the platform has them, numbers against the host's, and names
// and forms of other locales.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ostrel/platform/error.h"
#include "ostrel/platform/time.h"

namespace {

thread_local const char *t_locale = "C";

}  // namespace

// Takes the place of the host's, which knows only the locales that the machine has: what the
// process has set for LC_TIME is here what the thread says.
extern "C" char *setlocale(int category, const char *) noexcept {
    return const_cast<char *>(category == LC_TIME ? t_locale : "C");
}

namespace {

constexpr char kDirectives[] = "aAbBcCdDeFgGhHIjmMnprRStTuUVwWxXyYzZ%";

// The fields, and the directives that read each.
const struct {
    int std::tm::*field;
    int first, last;
    const char *readers;
} kFields[] = {
    {&std::tm::tm_sec, 0, 60, "cSrTX"},         {&std::tm::tm_min, 0, 59, "cMrRTX"},
    {&std::tm::tm_hour, 0, 23, "cHIprRTX"},     {&std::tm::tm_mday, 1, 31, "cdDeFx"},
    {&std::tm::tm_mon, 0, 11, "bBcDFhmx"},      {&std::tm::tm_year, -1900, 8099, "cCDFgGVxyY"},
    {&std::tm::tm_wday, 0, 6, "aAcgGuUVwW"},    {&std::tm::tm_yday, 0, 365, "gGjUVW"},
    {&std::tm::tm_isdst, INT_MIN, INT_MAX, ""},
};

std::tm fields(const char *text) {
    std::tm time{};
    EXPECT_NE(strptime(text, "%Y-%m-%d %T", &time), nullptr);
    return time;
}

const std::tm kMorning = fields("1995-03-02 09:05:07");

std::u16string wide(std::string_view text) {
    return {text.begin(), text.end()};
}

// The text of a format; nothing when it is refused, with an empty text and EINVAL.
std::optional<std::u16string> text_of(std::u16string_view format, const std::tm &time) {
    WCHAR text[300] = u"#";
    errno = 0;
    const std::size_t length = wcsftime(text, std::size(text), format.data(), &time);
    EXPECT_EQ(text, std::u16string(text, length));
    if (length == 0 && errno == EINVAL) {
        return std::nullopt;
    }
    EXPECT_EQ(errno, 0);
    return text;
}

TEST(TimeFormat, HasTheFormsOfTheCLocale) {
    const struct {
        const WCHAR *format, *text;
    } cases[] = {
        {u"", u""},
        {u"%#a %#A %#b %#B %#h %#p", u"Thu Thursday Mar March Mar AM"},
        {u"%c|%x|%X|%r", u"Thu Mar  2 09:05:07 1995|03/02/95|09:05:07|09:05:07 AM"},
        {u"%#c", u"Thursday, March 02, 1995 09:05:07"},
        {u"%#x|%#X|%#r", u"Thursday, March 02, 1995|09:05:07|9:5:7 AM"},
        {u"%#C %#d %#e %#H %#I %#j %#m %#M %#S %#y %#Y", u"19 2 2 9 9 61 3 5 7 95 1995"},
        {u"%U %W %V %w %u %g %G|%#U %#W %#V", u"09 09 09 4 4 95 1995|9 9 9"},
        {u"%#D %#F %#R %#T", u"3/2/95 1995-3-2 9:5 9:5:7"},
        {u"%n%t%%%#n%#t%#%", u"\n\t%\n\t%"},
        {u"%Ed %Od %#Ed %EY", u"02 02 2 1995"},
        {u"%d\xD800\u00E4%%d", u"02\xD800\u00E4%d"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(text_of(c.format, kMorning), c.text);
    }
    // The first day of year 0 is in a week of the year before it.
    const std::tm first = fields("0000-01-01 00:00:60");
    EXPECT_EQ(text_of(u"%Y %#Y %y %#y %C %#C %I %p %#S %V", first),
              u"0000 0 00 0 00 0 12 AM 60 52");
    EXPECT_EQ(text_of(u"%G", first), std::nullopt);
    EXPECT_EQ(text_of(u"%I %p %j %#g %#G", fields("2009-12-31 12:00:00")), u"12 PM 365 09 2009");
}

TEST(TimeFormat, ChecksAFieldForTheDirectivesThatReadIt) {
    for (const auto &c : kFields) {
        for (const char directive : std::string_view(kDirectives)) {
            const std::u16string format = wide(std::string("%") + directive);
            const bool reads = std::strchr(c.readers, directive) != nullptr;
            std::tm time = kMorning;
            for (const int good : {c.first, c.last}) {
                time.*c.field = good;
                // The first days of year 0 and the last of 9999 may be in weeks of other years.
                if (std::strchr("gG", directive) == nullptr) {
                    EXPECT_NE(text_of(format, time), std::nullopt) << directive << good;
                }
            }
            for (const long long bad :
                 {c.first - 1LL, c.last + 1LL, INT_MIN + 0LL, INT_MAX + 0LL}) {
                if (bad < c.first || bad > c.last) {
                    time.*c.field = static_cast<int>(bad);
                    EXPECT_EQ(text_of(format, time) == std::nullopt, reads) << directive << bad;
                }
            }
        }
    }
    std::tm time = kMorning;
    time.tm_wday = 7;
    EXPECT_EQ(text_of(u"%#x", time), std::nullopt);
}

TEST(TimeFormat, RefusesWhatIsNoFormat) {
    for (WCHAR letter = 1; letter < 0x180; ++letter) {
        if (letter != u'#' && (letter > 127 || std::strchr(kDirectives, letter) == nullptr)) {
            EXPECT_EQ(text_of(std::u16string(u"ab%") + letter, kMorning), std::nullopt)
                << int{letter};
        }
    }
    for (const WCHAR *const format : {u"%", u"x%", u"%#", u"%##d", u"%d%E", u"%EEd", u"%O#d"}) {
        EXPECT_EQ(text_of(format, kMorning), std::nullopt);
    }
    WCHAR text[] = u"#";
    const auto refused = [](std::size_t length) { return length == 0 && errno == EINVAL; };
    errno = 0;
    EXPECT_TRUE(refused(wcsftime(text, 0, u"x", &kMorning)));
    EXPECT_EQ(text[0], u'#');
    EXPECT_TRUE(refused(wcsftime(nullptr, 2, u"x", &kMorning)));
    EXPECT_TRUE(refused(wcsftime(text, 2, nullptr, &kMorning)));
    EXPECT_EQ(text[0], 0);
    EXPECT_TRUE(refused(wcsftime(text, 2, u"x", nullptr)));
}

TEST(TimeFormat, StaysWithinTheRoom) {
    for (const WCHAR *const format : {u"%c", u"%#c", u"%Y", u"ab%A", u"%z%Z", u"%e", u"%F%%%n"}) {
        const std::u16string full = text_of(format, kMorning).value();
        for (std::size_t room = 1; room <= full.size() + 2; ++room) {
            const auto text = std::make_unique<WCHAR[]>(room);  // its bounds are watched
            errno = 0;
            const bool fits = room > full.size();
            EXPECT_EQ(wcsftime(text.get(), room, format, &kMorning), fits ? full.size() : 0);
            EXPECT_EQ(text.get(), fits ? full : u"");
            EXPECT_EQ(errno, fits ? 0 : ERANGE);
        }
    }
}

TEST(TimeFormat, AgreesWithTheHost) {
    std::mt19937 random(5);
    const auto pick = [&random](int first, int last) {
        return std::uniform_int_distribution<int>(first, last)(random);
    };
    for (int round = 0; round < 20000; ++round) {
        // Weekday and day of the year need not belong to the date.
        std::tm time{};
        for (const auto &c : kFields) {
            time.*c.field = pick(c.first, c.last);
        }
        time.tm_year = std::max(time.tm_year, 1001 - 1900);  // the host writes those before shorter
        std::string format;
        std::string host;
        for (const char directive : std::string_view("aAbBcCdDeFgGhHIjmMnprRStTuUVwWxXyY%")) {
            const bool number = std::strchr("CdeHIjmMSUVWyY", directive) != nullptr;
            const bool shorter = number && pick(0, 1) == 1;
            format += std::string(shorter ? "%#" : "%") + directive + ' ';
            host += std::string(shorter ? "%-" : "%") + directive + ' ';
        }
        char text[400];
        ASSERT_GT(std::strftime(text, sizeof text, host.c_str(), &time), 0U);
        ASSERT_EQ(text_of(wide(format), time), wide(text)) << text;
    }
}

void expect_locale_forms() {
    const struct {
        const char *locale;
        const WCHAR *format, *text;
    } cases[] = {
        {"C", u"%x", u"03/02/95"},
        {"C.UTF-8", u"%x", u"03/02/95"},
        {"xx_YY.UTF-8", u"%A %x", u"Thursday 03/02/95"},
        {"@latin", u"%x", u"03/02/95"},
        {"en_US.UTF-8", u"%c|%X|%r", u"3/2/1995 9:05:07 AM|9:05:07 AM|9:05:07 AM"},
        {"en_US.UTF-8", u"%#c|%#r", u"Thursday, March 2, 1995 9:05:07 AM|9:5:7 AM"},
        {"de_DE.UTF-8", u"%a %A %b %B %h", u"Do. Donnerstag M\u00E4rz M\u00E4rz M\u00E4rz"},
        {"de_DE.UTF-8", u"%c|%r|%F", u"02.03.1995 09:05:07|9:05:07 AM|1995-03-02"},
        {"de_DE.ISO-8859-15@euro", u"%#c", u"Donnerstag, 2. M\u00E4rz 1995 09:05:07"},
        {"ja_JP.eucJP", u"%x %#x %p",
         u"1995/03/02 1995\u5E743\u67082\u65E5\u6728\u66DC\u65E5 \u5348\u524D"},
        {"zh_TW.UTF-8", u"%X", u"\u4E0A\u53489:05:07"},
        {"bg_BG.UTF-8", u"%x", u"2.03.1995 \u0433."},
        {"fi_FI.UTF-8", u"%#x", u"torstai 2. maaliskuuta 1995"},
        {"sr_RS@latin", u"%A", u"\u010Detvrtak"},
        {"sr_RS", u"%A", u"\u0447\u0435\u0442\u0432\u0440\u0442\u0430\u043A"},
        // Not the calendar and not the digits of the country.
        {"th_TH.UTF-8", u"%x %#x",
         u"2/3/1995 \u0E27\u0E31\u0E19\u0E1E\u0E24\u0E2B\u0E31\u0E2A\u0E1A\u0E14\u0E35\u0E17\u0E35"
         u"\u0E48 2 \u0E21\u0E35\u0E19\u0E32\u0E04\u0E21 \u0E04.\u0E28. 1995"},
        {"ar_EG.UTF-8", u"%x", u"2\u200F/3\u200F/1995"},
        {"fa_IR.UTF-8", u"%x %B", u"1995/3/2 \u0645\u0627\u0631\u0633"},
    };
    for (const auto &c : cases) {
        t_locale = c.locale;
        EXPECT_EQ(text_of(c.format, kMorning), c.text) << c.locale;
    }
    t_locale = "C";
}

TEST(TimeFormat, HasNamesAndFormsOfTheProcessLocale) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(expect_locale_forms);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

void expect_zones() {
    const struct {
        const char *zone;
        int daylight;
        const WCHAR *text;
    } cases[] = {
        {"EST5EDT,M3.2.0,M11.1.0", 0, u"-0500 EST"},
        {"EST5EDT,M3.2.0,M11.1.0", 1, u"-0400 EDT"},
        {"EST5EDT,M3.2.0,M11.1.0", -1, u"-0500 EST"},
        {"IST-5:30", 1, u"+0530 IST"},
        {"XST0:05", 0, u"-0005 XST"},
        {"<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", 7, u"+1100 +11"},
    };
    for (const auto &c : cases) {
        setenv("TZ", c.zone, 1);
        std::tm time = kMorning;
        time.tm_isdst = c.daylight;
        EXPECT_EQ(text_of(u"%z %#Z", time), c.text);
    }
}

// Runs a check in a process of its own, which may change the environment and reads it afresh.
template <class Check>
void in_own_process(const Check &check) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [&check] {
        check();
        const auto &result = *testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int i = 0; i < result.total_part_count(); ++i) {
            std::fputs(result.GetTestPartResult(i).message(), stderr);
        }
        std::_Exit(result.Failed());
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(TimeFormat, TellsTheZone) {
    in_own_process(expect_zones);
}

constexpr SYSTEMTIME kTime = {1995, 3, 9, 2, 9, 5, 7, 999};  // with a weekday that is none

using Call = int (*)(DWORD, DWORD, const SYSTEMTIME *, const WCHAR *, WCHAR *, int) noexcept;

// What is stored in a buffer of the size that the call asks for, and none in one that is smaller.
std::u16string system_text(Call call, const SYSTEMTIME &time = kTime) {
    const int size = call(LOCALE_SYSTEM_DEFAULT, 0, &time, nullptr, nullptr, 0);
    if (size == 0) {
        return u"error " + wide(std::to_string(GetLastError()));
    }
    EXPECT_GT(size, 1);
    std::u16string text(static_cast<std::size_t>(size), u'#');
    EXPECT_EQ(call(LOCALE_SYSTEM_DEFAULT, 0, &time, nullptr, text.data(), size - 1), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(text.front(), u'#');
    EXPECT_EQ(call(LOCALE_SYSTEM_DEFAULT, 0, &time, nullptr, text.data(), size), size);
    EXPECT_EQ(text.back(), 0);
    text.pop_back();
    return text;
}

TEST(SystemTimeText, FollowsTheEnvironment) {
    const struct {
        const char *all, *time, *lang;
        const WCHAR *date_text, *time_text;
    } cases[] = {
        {"", "", "", u"3/2/1995", u"9:05:07 AM"},
        {"C.UTF-8", "de_DE", "de_DE", u"3/2/1995", u"9:05:07 AM"},
        {"../de", "", "", u"3/2/1995", u"9:05:07 AM"},
        {"de_DE.UTF-8", "en_US", "fr_FR", u"02.03.1995", u"09:05:07"},
        {"", "ja_JP.SJIS", "fr_FR", u"1995/03/02", u"9:05:07"},
        {"", "", "sv_SE", u"1995-03-02", u"09:05:07"},
    };
    for (const auto &c : cases) {
        in_own_process([&c] {
            setenv("LC_ALL", c.all, 1);
            setenv("LC_TIME", c.time, 1);
            setenv("LANG", c.lang, 1);
            EXPECT_EQ(system_text(GetDateFormatW), c.date_text);
            EXPECT_EQ(system_text(GetTimeFormatW), c.time_text);
            setenv("LC_ALL", "en_GB", 1);  // too late
            EXPECT_EQ(system_text(GetDateFormatW), c.date_text);
        });
    }
}

TEST(SystemTimeText, ChecksItsArguments) {
    const struct {
        SYSTEMTIME time;
        bool date, clock;
    } times[] = {
        {{1601, 1, 0, 1, 0, 0, 0, 0}, true, true},
        {{30827, 12, 0, 31, 23, 59, 59, 999}, true, true},
        {{2000, 2, 0, 29, 24, 0, 0, 0}, true, false},
        {{1900, 2, 0, 29, 0, 60, 0, 0}, false, false},
        {{2023, 2, 0, 28, 0, 0, 60, 0}, true, false},
        {{1995, 4, 0, 31, 0, 0, 0, 1000}, false, false},
        {{1600, 1, 0, 1, 0, 0, 0, 0}, false, true},
        {{30828, 1, 0, 1, 0, 0, 0, 0}, false, true},
        {{1995, 0, 0, 1, 0, 0, 0, 0}, false, true},
        {{1995, 13, 0, 1, 0, 0, 0, 0}, false, true},
        {{1995, 1, 0, 0, 0, 0, 0, 0}, false, true},
    };
    for (const auto &c : times) {
        EXPECT_EQ(system_text(GetDateFormatW, c.time) != u"error 87", c.date) << c.time.wYear;
        EXPECT_EQ(system_text(GetTimeFormatW, c.time) != u"error 87", c.clock) << c.time.wHour;
    }
    WCHAR text[31] = u"#";
    const auto fault = [](int size) { return size == 0 ? GetLastError() : ERROR_SUCCESS; };
    constexpr DWORD kSystem = LOCALE_SYSTEM_DEFAULT;
    for (const Call call : {Call(GetDateFormatW), Call(GetTimeFormatW)}) {
        EXPECT_EQ(fault(call(kSystem, 2, &kTime, nullptr, text, 31)), ERROR_INVALID_FLAGS);
        EXPECT_EQ(fault(call(0x0409, 0, &kTime, nullptr, text, 31)), ERROR_INVALID_PARAMETER);
        SetLastError(0);
        EXPECT_EQ(fault(call(kSystem, 0, nullptr, nullptr, text, 31)), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(fault(call(kSystem, 0, &kTime, u"", text, 31)), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(fault(call(kSystem, 0, &kTime, nullptr, nullptr, 31)), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(fault(call(kSystem, 0, &kTime, nullptr, text, -1)), ERROR_INVALID_PARAMETER);
    }
    EXPECT_EQ(fault(GetTimeFormatW(kSystem, DATE_SHORTDATE, &kTime, nullptr, text, 31)),
              ERROR_INVALID_FLAGS);
    EXPECT_EQ(text[0], u'#');
    EXPECT_GT(GetDateFormatW(kSystem, DATE_SHORTDATE, &kTime, nullptr, text, 31), 1);
}

}  // namespace
