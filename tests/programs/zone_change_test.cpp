// The zone changes while the program runs. The database and the system's zone are files of this
// test where it says so, and so is the date.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <thread>

#include "ostrel/platform/time.h"
#include "ostrel/platform/timezone.h"
#include "support/failing_memory.h"
#include "support/temp_dir.h"

namespace {

// Where /etc/localtime and the database are, when they are elsewhere.
std::string g_system;
std::string g_database;

// The time in seconds from 1970, when it is another than it is.
std::int64_t g_now = 0;

std::string placed(const std::string &path) {
    const std::string database = "/usr/share/zoneinfo/";
    if (path == "/etc/localtime" && !g_system.empty()) {
        return g_system;
    }
    if (path.starts_with(database) && !g_database.empty()) {
        return g_database + path.substr(database.size());
    }
    return path;
}

}  // namespace

extern "C" int stat(const char *path, struct stat *status) noexcept {
    return fstatat(AT_FDCWD, placed(path).c_str(), status, 0);
}

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
    const long result = syscall(SYS_clock_gettime, clock, time);
    if (g_now != 0 && clock == CLOCK_REALTIME_COARSE) {
        time->tv_sec = g_now;
    }
    return static_cast<int>(result);
}

extern "C" int open(const char *path, int flags, ...) {
    std::va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return openat(AT_FDCWD, placed(path).c_str(), flags, mode);
}

namespace {

// The local clock at noon in UTC of 1 July 2024.
std::string noon() {
    const std::int64_t time = 1719835200;
    const std::tm *const fields = _localtime64(&time);
    return std::to_string(fields->tm_hour) + ':' + std::to_string(fields->tm_min);
}

void use_system_zone(const std::filesystem::path &zone) {
    const std::filesystem::path copy = "copy";
    std::filesystem::copy_file("/usr/share/zoneinfo" / zone, copy);
    std::filesystem::rename(copy, "localtime");
}

TEST(ZoneChange, IsNoticedInTheEnvironment) {
    const TempDir dir;
    g_system = dir.Path() / "localtime";
    use_system_zone("Asia/Kolkata");
    const auto set = [](const char *name, const char *value) { setenv(name, value, 1); };
    char text[] = "TZ=Asia/Tokyo";
    EXPECT_EQ((unsetenv("TZ"), noon()), "17:30");
    EXPECT_EQ((set("TZ", "Asia/Tokyo"), noon()), "21:0");
    EXPECT_EQ((set("TZ", "AAA1"), noon()), "11:0");
    EXPECT_EQ((set("TZ", "Asia/Tokyo"), noon()), "21:0");
    EXPECT_EQ((set("TZ", ""), noon()), "12:0");
    EXPECT_EQ((unsetenv("TZ"), noon()), "17:30");
    // The place of an entry that is removed is taken by another.
    set("FIRST", "1");
    EXPECT_EQ(noon(), "17:30");
    unsetenv("FIRST");
    set("TZ", "AAA1");
    EXPECT_EQ(noon(), "11:0");
    set("FIRST", "1");
    EXPECT_EQ((unsetenv("TZ"), noon()), "17:30");
    EXPECT_EQ((putenv(text), noon()), "21:0");
    EXPECT_EQ((clearenv(), noon()), "17:30");
    EXPECT_EQ((set("TZ", "AAA1"), noon()), "11:0");
    char *none = nullptr;
    environ = &none;
    EXPECT_EQ(noon(), "17:30");
    EXPECT_EQ((set("TZ", "AAA2"), noon()), "10:0");
    unsetenv("TZ");
    g_system.clear();
}

TEST(ZoneChange, IsMadeByPutenv) {
    const auto value = [](const char *name) {
        const char *const text = std::getenv(name);
        return std::string(text != nullptr ? text : "none");
    };
    EXPECT_EQ(setenv("BEFORE", "b", 1) + _putenv_s("TZ", "AAA1"), 0);
    EXPECT_EQ(noon() + value("TZ"), "11:0AAA1");
    // Many more variables than there were, and both ways of setting them by turns.
    for (int i = 0; i < 300; ++i) {
        const std::string name = "OSTREL_" + std::to_string(i);
        EXPECT_EQ(
            i < 100 && i % 3 == 0 ? setenv(name.c_str(), "v", 1) : _putenv_s(name.c_str(), "v"), 0);
    }
    EXPECT_EQ(noon() + value("TZ") + value("BEFORE"), "11:0AAA1b");
    for (int i = 0; i < 300; ++i) {
        const std::string name = "OSTREL_" + std::to_string(i);
        EXPECT_EQ(value(name.c_str()), "v");
        EXPECT_EQ(i % 2 == 0 ? unsetenv(name.c_str()) : _putenv_s(name.c_str(), ""), 0);
        EXPECT_EQ(value(name.c_str()), "none");
    }
    EXPECT_EQ(_putenv_s("TZ", "AAA2"), 0);
    EXPECT_EQ(noon() + value("BEFORE"), "10:0b");
    EXPECT_EQ(_putenv_s("TZ", "") + _putenv_s("TZ", ""), 0);
    // The longer name is another one.
    EXPECT_EQ(_putenv_s("TZX", "AAA4") + _putenv_s("TZ", "AAA5"), 0);
    EXPECT_EQ(noon() + value("TZX"), "7:0AAA4");
    for (const char *const name : {"", "=TZ", "TZ=", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(_putenv_s(name, "AAA6"), EINVAL);
    }
    EXPECT_EQ(_putenv_s("TZ", nullptr), EINVAL);
    EXPECT_EQ(noon(), "7:0");
    unsetenv("TZ");
}

// Waits until the clock at noon is `wanted`, which takes some hundredths of a second.
bool comes(const std::string &wanted) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (noon() != wanted) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

TEST(ZoneChange, IsNoticedInTheSystem) {
    const TempDir dir;
    unsetenv("TZ");
    g_system = dir.Path() / "localtime";
    EXPECT_TRUE(comes("12:0"));  // no file
    use_system_zone("Asia/Tokyo");
    EXPECT_TRUE(comes("21:0"));
    EXPECT_EQ(_timezone, -9 * 3600);
    use_system_zone("America/New_York");
    EXPECT_TRUE(comes("8:0"));
    EXPECT_EQ(_timezone, 5 * 3600);
    std::filesystem::remove("localtime");
    std::filesystem::create_symlink("/usr/share/zoneinfo/Asia/Kolkata", "localtime");
    EXPECT_TRUE(comes("17:30"));
    std::filesystem::remove("localtime");
    EXPECT_TRUE(comes("12:0"));
    g_system.clear();
}

// What holds at present, of a zone that has had its last daylight time in 2019.
TEST(ZoneChange, ComesWithTheDate) {
    setenv("TZ", "America/Sao_Paulo", 1);
    const struct {
        std::int64_t now;
        int daylight;
        DWORD kind;
    } cases[] = {{1543622400, 1, TIME_ZONE_ID_DAYLIGHT},   // 2018-12-01
                 {1550368799, 1, TIME_ZONE_ID_DAYLIGHT},   // 2019-02-16 23:59:59
                 {1550368800, 1, TIME_ZONE_ID_STANDARD},   // a second later
                 {1577847599, 1, TIME_ZONE_ID_STANDARD},   // 2019-12-31 23:59:59
                 {1577847600, 0, TIME_ZONE_ID_UNKNOWN},    // a second later
                 {1527811200, 1, TIME_ZONE_ID_STANDARD}};  // 2018-06-01
    for (const auto &c : cases) {
        g_now = c.now;
        TIME_ZONE_INFORMATION zone;
        EXPECT_EQ(GetTimeZoneInformation(&zone), c.kind) << c.now;
        EXPECT_EQ(zone.DaylightBias, -60 * c.daylight) << c.now;
        EXPECT_EQ(_daylight, c.daylight) << c.now;
        EXPECT_EQ(_timezone, 3 * 3600) << c.now;
        std::tm flagged{};
        flagged.tm_year = 110;
        flagged.tm_mday = 1;
        flagged.tm_isdst = 1;
        EXPECT_EQ(_mktime64(&flagged), 1262314800 - 3600 * c.daylight) << c.now;
    }
    g_now = 0;
    unsetenv("TZ");
}

TEST(ZoneChange, NeedsNoDatabase) {
    const TempDir dir;
    g_database = dir.Path() / "nothing/";
    setenv("TZ", "Pacific/Auckland", 1);
    EXPECT_EQ(noon(), "12:0");
    setenv("TZ", "PST8PDT", 1);  // a rule that is complete without
    EXPECT_EQ(noon(), "5:0");
    g_database.clear();
    unsetenv("TZ");
}

TEST(ZoneChange, SurvivesALackOfMemory) {
    std::string zone = "/usr/share/zoneinfo/Asia/Tokyo";
    for (int left = 0, failed = 1; failed != 0; ++left) {
        zone.insert(0, "/");  // the same file, and a zone that is not known yet
        setenv("TZ", zone.c_str(), 1);
        failing_memory::fail_after(left);
        const std::int64_t time = 1719835200;
        const int hour = _localtime64(&time)->tm_hour;
        failed = failing_memory::has_failed();
        failing_memory::fail_after(-1);
        EXPECT_EQ(hour, failed ? 12 : 21) << left;
        EXPECT_EQ(noon(), "21:0") << left;
    }
    for (int left = 0, failed = 1; failed != 0; ++left) {
        const std::string name = "OSTREL_MEMORY_AND_A_LONG_NAME_" + std::to_string(left);
        failing_memory::fail_after(left);
        const int result = _putenv_s(name.c_str(), "v");
        failed = failing_memory::has_failed();
        failing_memory::fail_after(-1);
        EXPECT_EQ(result, failed ? ENOMEM : 0);
        EXPECT_EQ(std::getenv(name.c_str()) == nullptr, failed != 0);
    }
    unsetenv("TZ");
}

// Every conversion is by one of the zones that are set, however the calls meet.
TEST(ZoneChange, MeetsConversionsOnOtherThreads) {
    const TempDir dir;
    g_system = dir.Path() / "localtime";
    use_system_zone("Asia/Kolkata");
    EXPECT_EQ(_putenv_s("TZ", ""), 0);
    std::atomic<bool> over = false;
    std::atomic<int> wrong = 0;
    std::atomic<int> done = 0;
    const auto convert = [&] {
        for (; !over; ++done) {
            const std::string clock = noon();
            std::tm fields{};
            fields.tm_year = 124;
            fields.tm_mon = 6;
            fields.tm_mday = 1;
            fields.tm_isdst = -1;
            const std::int64_t ahead = 1719792000 - _mktime64(&fields);
            TIME_ZONE_INFORMATION zone;
            wrong += clock != "17:30" && clock != "21:0" && clock != "14:0" && clock != "8:0";
            wrong += ahead != 19800 && ahead != 32400 && ahead != 7200 && ahead != -14400;
            wrong += GetTimeZoneInformation(&zone) == TIME_ZONE_ID_INVALID;
            const LONG behind = _timezone;
            wrong += behind != -19800 && behind != -32400 && behind != -3600 && behind != 18000;
        }
    };
    std::thread threads[4];
    for (std::thread &thread : threads) {
        thread = std::thread(convert);
    }
    const char *const zones[] = {"Asia/Tokyo", "Europe/Berlin", "", "America/New_York"};
    for (int i = 0; i < 2000 || done < 2000; ++i) {
        const std::string name = "OSTREL_THREADS_" + std::to_string(i % 50);
        wrong += _putenv_s("TZ", zones[i % 4]) != 0;
        wrong += _putenv_s(name.c_str(), i % 3 == 0 ? "" : "v") != 0;
    }
    over = true;
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(_putenv_s("TZ", ""), 0);
    g_system.clear();
}

}  // namespace
