// The text forms of times: texts as the platform has them, numbers against the host's, and names
// and forms of other locales.

#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <optional>

#include "ostrel/platform/error.h"
#include "ostrel/platform/time.h"
#include "support/bytes.h"
#include "support/test.h"

static const char *g_locale = "C";

// Takes the place of the host's, which knows only the locales that the machine has.
extern "C" char *setlocale(int category, const char *) noexcept {
    return const_cast<char *>(category == LC_TIME ? g_locale : "C");
}

namespace {

constexpr std::tm kMorning = {7, 5, 9, 2, 2, 95, 4, 60, 0, 0, nullptr};   // 1995-03-02 09:05:07
constexpr std::tm kFirst = {60, 0, 0, 1, 0, -1900, 6, 0, 0, 0, nullptr};  // of year 0

// The text of a format; nothing when it is refused, with an empty text and EINVAL.
std::optional<std::u16string> text_of(const std::u16string &format, const std::tm &time) {
    WCHAR text[300] = u"#";
    errno = 0;
    const std::size_t length = wcsftime(text, std::size(text), format.c_str(), &time);
    EXPECT_EQ(text, std::u16string(text, length));
    EXPECT_EQ(errno, length == 0 && !format.empty() ? EINVAL : 0);
    return errno == 0 ? std::optional(text) : std::nullopt;
}

TEST(TimeFormat, HasTheFormsOfTheCLocale) {
    const std::tuple<const WCHAR *, const WCHAR *> cases[] = {
        {u"", u""},
        {u"%a %A %b %B %h %p|%D %F|%R %T",
         u"Thu Thursday Mar March Mar AM|03/02/95 1995-03-02|09:05 09:05:07"},
        {u"%C %d %e %H %I %j %m %M %S %u %w %y %Y", u"19 02  2 09 09 061 03 05 07 4 4 95 1995"},
        {u"%#C %#d %#e %#H %#I %#j %#m %#M %#S %#y %#Y", u"19 2 2 9 9 61 3 5 7 95 1995"},
        {u"%c|%x|%X|%r", u"Thu Mar  2 09:05:07 1995|03/02/95|09:05:07|09:05:07 AM"},
        {u"%#c|%#x", u"Thursday, March 02, 1995 09:05:07|Thursday, March 02, 1995"},
        {u"%#X|%#D %#F|%#R %#T %#r", u"09:05:07|3/2/95 1995-3-2|9:5 9:5:7 9:5:7 AM"},
        {u"%g %G %#g %#G %#U %#W %#V|%n%t%%%#n%#t%#%", u"95 1995 95 1995 9 9 9|\n\t%\n\t%"},
        {u"%Ed %Od %#Ed %EY|%d\xD800\u00E4%%d", u"02 02 2 1995|02\xD800\u00E4%d"}};
    for (const auto &[format, text] : cases) {
        EXPECT_EQ(text_of(format, kMorning), text) << PrintToString(format);
    }
    EXPECT_EQ(text_of(u"%Y %#Y %#y %#C %p %#S", kFirst), u"0000 0 0 0 AM 60");
    // Noon and midnight of days whose week belongs to another year, by one count or another.
    const std::pair<std::int64_t, const WCHAR *> weeks[] = {
        {1104580800, u"2005-01-01 12PM 2004 04 00 53 00 6"},
        {1230508800, u"2008-12-29 12AM 2009 09 52 01 52 1"}};
    for (const auto &[seconds, text] : weeks) {
        EXPECT_EQ(text_of(u"%F %I%p %G %g %U %V %W %u", *_gmtime64(&seconds)), text) << seconds;
    }
    setenv("TZ", "EST5EDT,M3.2.0,M11.1.0", 1);
    std::tm time = kMorning;
    for (const int daylight : {INT_MIN, 0, INT_MAX}) {
        time.tm_isdst = daylight;
        EXPECT_EQ(text_of(u"%z %#Z", time), daylight > 0 ? u"-0400 EDT" : u"-0500 EST") << daylight;
    }
    unsetenv("TZ");
}

TEST(TimeFormat, ChecksTheFieldsThatItReads) {
    const std::tuple<int std::tm::*, int, int, const WCHAR *> cases[] = {
        {&std::tm::tm_sec, 0, 60, u"%T"},  {&std::tm::tm_min, 0, 59, u"%R"},
        {&std::tm::tm_hour, 0, 23, u"%I"}, {&std::tm::tm_mday, 1, 31, u"%e"},
        {&std::tm::tm_mon, 0, 11, u"%b"},  {&std::tm::tm_year, -1900, 8099, u"%y"},
        {&std::tm::tm_wday, 0, 6, u"%a"},  {&std::tm::tm_yday, 0, 365, u"%j"}};
    for (const auto &[field, first, last, format] : cases) {
        for (const int value : {first, last, first - 1, last + 1, INT_MIN, INT_MAX}) {
            std::tm time = kMorning;
            time.*field = value;
            EXPECT_EQ(text_of(format, time).has_value(), value >= first && value <= last)
                << PrintToString(format) << value;
        }
    }
    EXPECT_FALSE(text_of(u"%G", kFirst));  // in a week of year -1
}

TEST(TimeFormat, RefusesWhatIsNoFormat) {
    for (const WCHAR *const format : {u"%", u"x%", u"%#", u"%##d", u"%d%E", u"%EEd", u"%O#d", u"%f",
                                      u"%Q", u"% d", u"%\u0164"}) {
        EXPECT_FALSE(text_of(format, kMorning)) << PrintToString(format);
    }
    WCHAR text[4];
    EXPECT_EQ(wcsftime(text, 3, u"%a", &kMorning) + wcsftime(text, 3, u"xxx", &kMorning), 0U);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(wcsftime(text, 4, u"%a", &kMorning), 3U);
}

TEST(TimeFormat, HasNamesAndFormsOfTheProcessLocale) {
    const std::tuple<const char *, const WCHAR *, const WCHAR *> cases[] = {
        {"en_US.UTF-8", u"%c|%X|%#r", u"3/2/1995 9:05:07 AM|9:05:07 AM|9:5:7 AM"},
        {"de_DE.ISO-8859-15@euro", u"%a %b %h|%#x",
         u"Do. M\u00E4rz M\u00E4rz|Donnerstag, 2. M\u00E4rz 1995"},
        {"ja_JP.eucJP", u"%x %p", u"1995/03/02 \u5348\u524D"},
        {"fa_IR.UTF-8", u"%x", u"1995/3/2"},  // not the calendar and not the digits of the country
    };
    for (const auto &[locale, format, text] : cases) {
        g_locale = locale;
        EXPECT_EQ(text_of(format, kMorning), text) << locale;
    }
    g_locale = "C";
}

constexpr SYSTEMTIME kTime = {1995, 3, 9, 2, 9, 5, 7, 999};  // with a weekday that is none
constexpr DWORD kSystem = LOCALE_SYSTEM_DEFAULT;

std::u16string text_of_system() {
    WCHAR text[60];
    const int size = GetDateFormatW(kSystem, 0, &kTime, nullptr, text, 30);
    GetTimeFormatW(kSystem, 0, &kTime, nullptr, text + size, 30);
    text[size - 1] = u' ';
    return text;
}

// Built before the first use of the forms, so destroyed after what was built with it.
struct AtExit {
    ~AtExit() {
        if (expected != nullptr) {
            std::_Exit(text_of_system() == wide(expected) ? 0 : 1);
        }
    }
    const char *expected = nullptr;
} g_atExit;

// The environment is read once: a process for each.
TEST(TimeFormat, OfTheSystemFollowsTheEnvironmentToTheEnd) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const struct {
        const char *all, *time, *lang, *text;
    } cases[] = {{"C.UTF-8", "de_DE", "de_DE", "3/2/1995 9:05:07 AM"},
                 {"", "ja_JP.SJIS", "fr_FR", "1995/03/02 9:05:07"},
                 {"", "", "de_DE", "02.03.1995 09:05:07"}};
    for (const auto &c : cases) {
        const auto tell = [&c] {
            setenv("LC_ALL", c.all, 1);
            setenv("LC_TIME", c.time, 1);
            setenv("LANG", c.lang, 1);
            if (text_of_system() == wide(c.text)) {
                g_atExit.expected = c.text;
            }
            std::exit(1);
        };
        EXPECT_EXIT(tell(), testing::ExitedWithCode(0), "") << c.text;
    }
}

TEST(TimeFormat, OfTheSystemChecksItsArguments) {
    constexpr SYSTEMTIME kWrong = {1900, 2, 0, 29, 24, 0, 0, 0};
    WCHAR text[31] = u"#";
    for (const auto call : {GetDateFormatW, GetTimeFormatW}) {
        EXPECT_EQ(call(kSystem, 2, &kTime, nullptr, text, 31), 0);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_FLAGS);
        EXPECT_EQ(call(kSystem, 0, &kWrong, nullptr, text, 31), 0);
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
        EXPECT_EQ(text[0], u'#');
    }
    const int size = GetDateFormatW(kSystem, DATE_SHORTDATE, &kTime, nullptr, nullptr, 0);
    EXPECT_EQ(GetDateFormatW(kSystem, 0, &kTime, nullptr, text, size - 1), 0);
    EXPECT_EQ(GetDateFormatW(kSystem, 0, &kTime, nullptr, text, size), size);
}

}  // namespace
