// The zone changes while the program runs. The system's zone and the date are those that the
// test says.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string_view>
#include <thread>

#include "ostrel/platform/system.h"
#include "ostrel/platform/time.h"
#include "ostrel/platform/timezone.h"
#include "support/test.h"

namespace {

const char *g_system = "/usr/share/zoneinfo/Asia/Kolkata";  // where /etc/localtime is
std::int64_t g_now = 0;  // the time in seconds from 1970, when it is another than it is

const char *placed(const char *path) {
    return path == std::string_view("/etc/localtime") ? g_system : path;
}

}  // namespace

extern "C" int stat(const char *path, struct stat *status) noexcept {
    return fstatat(AT_FDCWD, placed(path), status, 0);
}

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (g_now != 0 && clock == CLOCK_REALTIME_COARSE) {
        time->tv_sec = g_now;
    }
    return static_cast<int>(result);
}

extern "C" int open(const char *path, int flags, ...) {
    return openat(AT_FDCWD, placed(path), flags, 0600);
}

namespace {

// The local clock at noon in UTC of 1 July 2024.
std::string noon() {
    const std::int64_t time = 1719835200;
    const std::tm *const fields = _localtime64(&time);
    return std::to_string(fields->tm_hour) + ':' + std::to_string(fields->tm_min);
}

TEST(ZoneChange, IsNoticedInTheEnvironment) {
    const auto set = [](const char *name, const char *value) { setenv(name, value, 1); };
    char text[] = "TZ=Asia/Tokyo";
    EXPECT_EQ((unsetenv("TZ"), noon()), "17:30");
    EXPECT_EQ((set("TZ", "Asia/Tokyo"), noon()), "21:0");
    EXPECT_EQ((set("TZ", "AAA1"), noon()), "11:0");
    EXPECT_EQ((set("TZ", ""), noon()), "12:0");
    // The place of an entry that is removed is taken by another.
    EXPECT_EQ((unsetenv("FIRST"), set("TZ", "AAA1"), noon()), "11:0");
    EXPECT_EQ((set("FIRST", "1"), unsetenv("TZ"), noon()), "17:30");
    EXPECT_EQ((putenv(text), noon()), "21:0");
    EXPECT_EQ((clearenv(), noon()), "17:30");
}

TEST(ZoneChange, IsMadeByPutenv) {
    const auto value = [](const std::string &name) {
        const char *const text = std::getenv(name.c_str());
        return std::string(text != nullptr ? text : "none");
    };
    EXPECT_EQ(_putenv_s("TZ", "AAA1"), 0);
    // Many more variables than there were, by turns from both ways of setting them.
    for (int i = 0; i < 600; ++i) {
        const std::string name = "OSTREL_" + std::to_string(i % 300);
        const char *const text = i < 300 ? "v" : "";
        EXPECT_EQ(i % 3 != 0 ? _putenv_s(name.c_str(), text) : setenv(name.c_str(), text, 1), 0);
        EXPECT_EQ(value(name), i < 300 ? "v" : i % 3 != 0 ? "none" : "");
        EXPECT_EQ(noon() + value("TZ"), "11:0AAA1");
    }
    EXPECT_EQ(_putenv_s("TZ", "") + _putenv_s("TZX", "AAA4") + _putenv_s("TZ", "AAA5"), 0);
    EXPECT_EQ(noon() + value("TZX"), "7:0AAA4");
    unsetenv("TZ");
}

TEST(ZoneChange, IsNoticedInTheSystem) {
    unsetenv("TZ");
    const std::pair<const char *, const char *> systems[] = {
        {"/nowhere", "12:0"}, {"/usr/share/zoneinfo/Asia/Kolkata", "17:30"}};
    for (const auto &[file, clock] : systems) {
        g_system = file;
        for (int i = 0; i < 1000 && noon() != clock; ++i) {  // some hundredths of a second
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_EQ(noon(), clock) << file;
    }
}

std::string text(const WCHAR *name, LONG bias, const SYSTEMTIME &date) {
    char buffer[80];
    std::snprintf(buffer, sizeof buffer, " %d %u-%u-%u/%u %u:%02u:%02u", bias, date.wYear,
                  date.wMonth, date.wDay, date.wDayOfWeek, date.wHour, date.wMinute, date.wSecond);
    return std::string(name, name + std::u16string_view(name).size()) + buffer;
}

// The rule at present: that of the zone or, as weekdays when the next year has the same ones, that
// of this year's changes.
TEST(ZoneChange, ComesWithTheDate) {
    constexpr std::int64_t kJune = 1527811200;  // 2018-06-01
    constexpr char kBrazil[] = "America/Sao_Paulo";
    constexpr char kNone[] = " 0 0-0-0/0 0:00:00";
    const std::tuple<const char *, std::int64_t, DWORD, std::string, std::string> cases[] = {
        {"<+1030>-10:30<+11>-11,M10.1.0,M4.1.0/1:59:30", kJune, 1, "+1030 -630 0-4-1/0 1:59:30",
         "+11 -30 0-10-1/0 2:00:00"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKLMN-5:45:59", kJune, 0,
         "ABCDEFGHIJKLMNOPQRSTUVWXYZABCDE -345 0-0-0/0 0:00:00", kNone},
        {"AAA3BBB,M4.2.0/-1,J300/25", kJune, 2, "AAA 180 2018-10-28/0 1:00:00",
         "BBB -60 2018-4-7/6 23:00:00"},
        {"America/New_York", 1120000000, 2, "EST 300 0-10-5/0 2:00:00", "EDT -60 0-4-1/0 2:00:00"},
        {kBrazil, 499564800, 1, "-03 180 1985-12-31/2 23:59:59", "-02 -60 1985-11-2/6 0:00:00"},
        {kBrazil, 1550368799, 2, "-03 180 2019-2-17/0 0:00:00", "-02 -60 2019-1-1/2 0:00:00"},
        {kBrazil, 1577847600, 0, "-03 180 0-0-0/0 0:00:00", kNone}};
    for (const auto &[name, now, kind, standard, daylight] : cases) {
        SCOPED_TRACE(testing::Message() << name << ' ' << now);
        setenv("TZ", name, 1);
        g_now = now;
        TIME_ZONE_INFORMATION zone;
        EXPECT_EQ(GetTimeZoneInformation(&zone), kind);
        EXPECT_EQ(text(zone.StandardName, zone.Bias, zone.StandardDate), standard);
        EXPECT_EQ(text(zone.DaylightName, zone.DaylightBias, zone.DaylightDate), daylight);
        EXPECT_TRUE(_daylight == (kind != 0) && _timezone / 60 == zone.Bias);
    }
    g_now = 0;
    unsetenv("TZ");
}

// Every conversion is by one of the zones that are set, however the calls meet.
TEST(ZoneChange, MeetsConversionsOnOtherThreads) {
    EXPECT_EQ(_putenv_s("TZ", "Asia/Kolkata"), 0);
    std::atomic<int> wrong = 0;
    std::atomic<int> done = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&](const std::stop_token &over) {
            for (; !over.stop_requested(); ++done) {
                const std::string clock = noon();
                TIME_ZONE_INFORMATION zone;
                wrong += clock != "17:30" && clock != "21:0" && clock != "8:0";
                wrong += GetTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID ||
                         (zone.Bias != -330 && zone.Bias != -540 && zone.Bias != 300);
            }
        });
    }
    const char *const zones[] = {"Asia/Tokyo", "Asia/Kolkata", "America/New_York"};
    for (int i = 0; i < 2000 || done < 2000; ++i) {
        const std::string name = "OSTREL_THREADS_" + std::to_string(i % 50);
        wrong += _putenv_s("TZ", zones[i % 3]) != 0;
        wrong += _putenv_s(name.c_str(), i % 3 == 0 ? "" : "v") != 0;
    }
    threads.clear();
    EXPECT_EQ(wrong + _putenv_s("TZ", ""), 0);
}

}  // namespace
