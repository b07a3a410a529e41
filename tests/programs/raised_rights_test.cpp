// A program that has rights which its caller lacks ignores where the caller's variables lead.

#include <sys/stat.h>
#include <unistd.h>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/module.h"
#include "ostrel/platform/system.h"
#include "ostrel/platform/timezone.h"
#include "support/child.h"
#include "support/file_calls.h"
#include "wexlog/wexlog.h"

namespace {

constexpr char kName[] = "--gtest_filter=RaisedRights.IgnoresThePlacesOfTheCaller";

LONG seconds_west(const char *zone) {
    setenv("TZ", zone, 1);
    return _timezone;
}

TEST(RaisedRights, IgnoresThePlacesOfTheCaller) {
    if (getuid() == geteuid()) {
        if (geteuid() != 0) {
            GTEST_SKIP() << "cannot start a program with the rights of another user";
        }
        // The user is another one than the one whose rights the program has, as in a set-user-ID
        // program.
        EXPECT_EQ(exit_of_child([] {
                      setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // which needs tracing
                      return setresuid(65534, 0, 0) == 0
                                 ? execl("/proc/self/exe", "raised_rights_test", kName, nullptr)
                                 : 1;
                  }),
                  0);
        return;
    }
    const Planted dir("drive/");
    const std::string path = dir.Path();
    for (const char *variable : {"TMP", "TEMP", "USERPROFILE", "TMPDIR", "OSTREL_DRIVE_X"}) {
        setenv(variable, path.c_str(), 1);
    }
    setenv("WEXLOG_LEVEL", "all", 1);
    setenv("WEXLOG_FILE", (path + "/log").c_str(), 1);

    DBG::DebugLogEx(nullptr, DBG::kLevelValue, TEXT("x.cpp"), 1, TEXT("text"));
    EXPECT_EQ(CreateFileW(TEXT("X:\\f"), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr),
              INVALID_HANDLE_VALUE);
    WCHAR folder[MAX_PATH];
    EXPECT_EQ(GetTempPathW(MAX_PATH, folder), 7u);
    EXPECT_EQ(std::u16string(folder), u"C:\\tmp\\");
    EXPECT_EQ(_wgetenv(TEXT("Temp")), nullptr);
    EXPECT_EQ(std::u16string(NS_FileUtils::getTempPath()), u"C:\\tmp\\");
    EXPECT_EQ(std::u16string(NS_FileUtils::getTempFile(nullptr, TEXT("p"))).substr(0, 3), u".\\p");
    plant("raised.so=x");
    for (const WCHAR *module : {TEXT("raised"), TEXT("raised_rights_test.")}) {
        EXPECT_EQ(LoadLibraryExW(module, nullptr, LOAD_LIBRARY_AS_DATAFILE), nullptr);
        EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    }
    EXPECT_EQ(seconds_west("Asia/Tokyo"), -9 * 3600);
    EXPECT_EQ(seconds_west("/usr/share/zoneinfo/Asia/Tokyo"), 0);
    EXPECT_EQ(seconds_west(":/usr/share/zoneinfo/Asia/Tokyo"), 0);
    EXPECT_EQ(tree("."), "drive/ raised.so=x ");
}

}  // namespace
