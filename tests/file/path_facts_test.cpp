#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/platform/file.h"
#include "support/temp_dir.h"
#include "support/text.h"
#include "support/zone_scope.h"

namespace {

namespace fs = std::filesystem;
using namespace NS_FileUtils;

std::u16string told(const fs::path &host) {
    std::u16string path = host.u16string();
    std::replace(path.begin(), path.end(), u'/', u'\\');
    return u"C:" + path;
}

FILETIME file_time(std::int64_t secondsSince1970, std::int64_t ticks = 0) {
    const std::int64_t time = (secondsSince1970 + 11'644'473'600) * 10'000'000 + ticks;
    return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

std::int64_t ticks(const FILETIME &time) {
    return std::int64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

TEST(PathPieces, AreCutAtTheLastSeparatorAndTheLastDot) {
    // drive | path | name | name with extension | extension | parent | the one above
    const std::u16string n(256, u'n');
    const struct {
        std::u16string path, pieces;
    } cases[] = {
        {u"C:\\a\\b\\c.tar.gz", u"C|C:\\a\\b\\|c.tar|c.tar.gz|.gz|C:\\a\\b|C:\\a"},
        {u"C:\\a\\b\\", u"C|C:\\a\\b\\||||C:\\a\\b|C:\\a"},
        {u"d:\\x", u"d|d:\\|x|x||d:|d:"},
        {u"C:x.txt", u"C|C:|x|x.txt|.txt|C:|C:"},
        {u"a\\b\\c", u"0|a\\b\\|c|c||a\\b|a"},
        {u"a/b\\c/d.e", u"0|a/b\\c/|d|d.e|.e|a/b\\c/|a/b"},
        {u"\\\\host\\\\share\\x", u"0|\\\\host\\\\share\\|x|x||host\\share|host"},
        {u"name.", u"0||name|name.|.||"},
        {u".profile", u"0|||.profile|.profile||"},
        {u"c:\\dir\\" + n, u"0||||||"},
        {u"c:\\" + n + u"\\x", u"0||||||"},
    };
    for (const auto &c : cases) {
        const WCHAR *const path = c.path.c_str();
        std::u16string pieces(1, getDriveLetter(path) != 0 ? getDriveLetter(path) : u'0');
        for (const OS::x_wstring &piece :
             {getFilePath(path), getFilename(path), getFilenameWithExt(path), getFileExt(path),
              getParentDirectory(path, false), getParentDirectory(path, true)}) {
            pieces += u'|' + whole(piece);
        }
        EXPECT_EQ(pieces, c.pieces) << fs::path(path);
    }
    EXPECT_EQ(getFilePath(nullptr) + getParentDirectory(nullptr, true), TEXT(""));
}

TEST(ModulePath, IsThatOfTheProgramOrOfALibrary) {
    Dl_info library;
    ASSERT_NE(dladdr(reinterpret_cast<const void *>(&getAppPath), &library), 0);
    const fs::path program = fs::read_symlink("/proc/self/exe");
    const fs::path file = fs::canonical(library.dli_fname);
    const auto module = static_cast<HINSTANCE>(library.dli_fbase);
    EXPECT_EQ(whole(getAppFullPathName(nullptr)), told(program));
    EXPECT_EQ(whole(getAppPath(nullptr)), told(program.parent_path()) + u'\\');
    EXPECT_EQ(whole(getAppFilename(module)), file.stem().u16string());
    EXPECT_EQ(whole(getAppFilenameWithExt(module)), file.filename().u16string());
    EXPECT_EQ(getAppPath(reinterpret_cast<HINSTANCE>(&library)), TEXT(""));
}

// Null takes the variable away.
void set(const char *variable, const char *value) {
    value != nullptr ? setenv(variable, value, 1) : unsetenv(variable);
}

TEST(TemporaryNames, TakeTheFirstVariableThatNamesSomething) {
    const TempDir dir;
    fs::create_directory("sub");
    fs::create_directory("other");
    std::string roundabout = "sub";
    while (roundabout.size() < 260) {
        roundabout.insert(0, "./");
    }
    const struct {
        const char *tmp, *temp, *host;
        const WCHAR *path;
    } cases[] = {
        {"sub", "other", nullptr, TEXT("sub")},
        {"none", "other/", nullptr, TEXT("other/")},
        {nullptr, "sub\\", nullptr, TEXT("sub\\")},
        {"none", nullptr, nullptr, TEXT("none\\")},
        {roundabout.c_str(), "other", nullptr, TEXT("other")},
        {nullptr, nullptr, "/var/tmp", TEXT("C:\\var\\tmp\\")},
    };
    for (const auto &c : cases) {
        set("TMP", c.tmp);
        set("TEMP", c.temp);
        set("TMPDIR", c.host);
        EXPECT_EQ(getTempPath(), c.path);
    }
    set("TMPDIR", nullptr);
    EXPECT_EQ(whole(getTempFile(TEXT("sub"), TEXT("pre"))).rfind(u"sub\\pre", 0), 0u);
    EXPECT_TRUE(fs::is_empty("sub"));
    set("TMP", "none");
    EXPECT_EQ(getTempFile(TEXT("none"), TEXT("pre")), TEXT(""));
    set("TMP", nullptr);
}

TEST(FileFacts, AreThoseOfTheFileOrOfTheFirstMatch) {
    const TempDir dir;
    dir.Write("file", "12345");
    dir.Write("big", "");
    ASSERT_EQ(truncate("big", 0x1'0000'000A), 0);
    fs::create_directory("sub");
    fs::create_symlink("file", "toFile");
    fs::create_symlink("sub", "toSub");
    fs::create_symlink("none", "toNone");
    const struct {
        const WCHAR *path;
        bool exists, isDirectory, isFound;
        DWORD size;
    } cases[] = {
        {TEXT("file"), true, false, true, 5},    {TEXT("sub"), true, true, true, 0},
        {TEXT("big"), true, false, true, 10},    {TEXT("b*g"), false, false, true, 10},
        {TEXT("toFile"), true, false, true, 5},  {TEXT("toSub"), true, true, true, 0},
        {TEXT("toNone"), true, false, true, 0},  {TEXT("sub\\"), true, true, false, 77},
        {TEXT("none"), false, false, false, 77}, {TEXT("x*"), false, false, false, 77},
        {TEXT(""), false, false, false, 77},     {nullptr, false, false, false, 77},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path != nullptr ? fs::path(c.path) : "null");
        DWORD size = 77;
        EXPECT_EQ(isFileExist(c.path), c.exists);
        EXPECT_EQ(isDirectoryExist(c.path), c.isDirectory);
        EXPECT_EQ(getFileSize(c.path, size), c.isFound);
        EXPECT_EQ(size, c.size);
        EXPECT_EQ(getFileTime(c.path, nullptr, nullptr, nullptr), c.isFound);
    }
}

TEST(FileTimes, AreReadAndSetOneByOne) {
    const TempDir dir;
    dir.Write("file", "");
    dir.Write("read-only", "");
    ASSERT_TRUE(SetFileAttributesW(TEXT("file"), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_TRUE(SetFileAttributesW(TEXT("read-only"), FILE_ATTRIBUTE_READONLY));
    const auto told_times = [] {
        FILETIME times[3] = {};
        EXPECT_TRUE(getFileTime(TEXT("f*"), &times[0], &times[1], &times[2]));
        return std::vector{ticks(times[0]), ticks(times[1]), ticks(times[2])};
    };
    FILETIME a = file_time(900'000'000, 7), b = file_time(950'000'000, 8), c = file_time(1, 9);
    EXPECT_TRUE(setFileTime(TEXT("file"), &a, &b, &c));
    EXPECT_EQ(told_times(), (std::vector{ticks(a), ticks(b), ticks(c)}));
    EXPECT_TRUE(setFileTime(TEXT("file"), nullptr, nullptr, &b));
    EXPECT_TRUE(setFileTime(TEXT("file"), &c, nullptr, nullptr));
    EXPECT_EQ(told_times(), (std::vector{ticks(c), ticks(b), ticks(b)}));
    struct stat host;
    ASSERT_EQ(stat("file", &host), 0);
    EXPECT_EQ(host.st_mtim.tv_sec * 10'000'000 + host.st_mtim.tv_nsec / 100, 9'500'000'000'000'008);
    EXPECT_EQ(GetFileAttributesW(TEXT("file")), FILE_ATTRIBUTE_HIDDEN);
    EXPECT_FALSE(setFileTime(TEXT("read-only"), &a, nullptr, nullptr));
    EXPECT_FALSE(setFileTime(TEXT("none"), nullptr, nullptr, nullptr));
    EXPECT_FALSE(getFileTime(TEXT("none"), &a, &a, &a));
    EXPECT_EQ(ticks(a), ticks(file_time(900'000'000, 7)));
}

TEST(ConvertTime, ReadsFourteenDigitsAndFillsUp) {
    const ZoneScope zone("Asia/Tokyo");
    constexpr std::int64_t kMoment = 1'559'635'917;  // 2019-06-04 08:11:57
    const std::int64_t none = ticks(file_time(-11'644'473'600));
    const struct {
        const WCHAR *text;
        int utc;
        std::int64_t time;
    } cases[] = {
        {TEXT("20190604081157"), 1, ticks(file_time(kMoment))},
        {TEXT("20190604081157"), 0, ticks(file_time(kMoment + 9 * 3600))},
        {TEXT("20190604081157999"), -1, ticks(file_time(kMoment))},
        {TEXT("2019 6 4 81157"), 1, ticks(file_time(kMoment))},
        {TEXT("2019060408"), 1, ticks(file_time(kMoment - 11 * 60 - 57))},
        {TEXT("2019"), 1, none},  // month 0
        {TEXT("20190632081157"), 0, none},
        {TEXT(""), 1, none},
        {nullptr, 1, none},
    };
    for (const auto &c : cases) {
        FILETIME time = {77, 77};
        convertTime(c.text, c.utc, &time);
        EXPECT_EQ(ticks(time), c.time) << testing::PrintToString(c.text);
    }
}

}  // namespace
