#include <dlfcn.h>

#include "ostrel/file/Std_Utils_File.h"
#include "support/file_calls.h"
#include "support/text.h"
#include "support/zone_scope.h"

namespace {

using namespace NS_FileUtils;

std::int64_t ticks(const FILETIME &time) {
    return std::int64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

TEST(PathFacts, PiecesAreCutAtTheLastSeparatorAndTheLastDot) {
    // drive | path | name | name with extension | extension | parent | the one above
    const std::u16string n(256, u'n');
    const std::pair<std::u16string, std::u16string> cases[] = {
        {u"C:\\a\\b\\c.tar.gz", u"C|C:\\a\\b\\|c.tar|c.tar.gz|.gz|C:\\a\\b|C:\\a"},
        {u"C:\\a\\b\\", u"C|C:\\a\\b\\||||C:\\a\\b|C:\\a"},
        {u"C:x.txt", u"C|C:|x|x.txt|.txt|C:|C:"},
        {u"a/b\\c/d.e", u"0|a/b\\c/|d|d.e|.e|a/b\\c/|a/b"},
        {u"\\\\host\\\\share\\x", u"0|\\\\host\\\\share\\|x|x||host\\share|host"},
        {u".profile", u"0|||.profile|.profile||"},
        {u"c:\\dir\\" + n, u"0||||||"}};
    for (const auto &[text, expected] : cases) {
        const WCHAR *const path = text.c_str();
        std::u16string pieces(1, getDriveLetter(path) != 0 ? getDriveLetter(path) : u'0');
        for (const OS::x_wstring &piece :
             {getFilePath(path), getFilename(path), getFilenameWithExt(path), getFileExt(path),
              getParentDirectory(path, false), getParentDirectory(path, true)}) {
            pieces += u'|' + whole(piece);
        }
        EXPECT_EQ(pieces, expected);
    }
}

TEST(PathFacts, APathOfAModuleIsThatOfTheProgramOrOfALibrary) {
    Dl_info library;
    ASSERT_NE(dladdr(reinterpret_cast<const void *>(&getAppPath), &library), 0);
    const fs::path name = fs::canonical(library.dli_fname).filename();
    const auto module = static_cast<HINSTANCE>(library.dli_fbase);
    EXPECT_EQ(getAppPath(module) + getAppFilenameWithExt(module), getAppFullPathName(module));
    EXPECT_EQ(whole(getAppFilenameWithExt(module)), name.u16string());
    EXPECT_EQ(whole(getAppFilename(module)), name.stem().u16string());
}

TEST(PathFacts, TemporaryNamesTakeTheFirstVariableThatNamesSomething) {
    const Planted dir("sub/ other/");
    const std::tuple<const char *, const char *, const WCHAR *> cases[] = {
        {"sub", "other", TEXT("sub")},
        {"none", "other/", TEXT("other/")},
        {"none", "", TEXT("none\\")}};  // as the platform has it
    for (const auto &[tmp, temp, path] : cases) {
        setenv("TMP", tmp, 1);
        setenv("TEMP", temp, 1);
        EXPECT_EQ(getTempPath(), path) << tmp;
    }
    EXPECT_EQ(getTempFile(TEXT("none"), TEXT("pre")), TEXT(""));
    EXPECT_EQ(whole(getTempFile(TEXT("sub"), TEXT("pre"))).rfind(u"sub\\pre", 0), 0u);
    unsetenv("TMP");
    unsetenv("TEMP");
}

TEST(PathFacts, AreThoseOfTheFileOrOfTheFirstMatch) {
    const Planted dir(
        "file=12345 big= sub/ toNone->none ax=four cx=four ?x=1 *=22 d/*=22 d/other=333");
    fs::resize_file("big", 0x1'0000'000A);
    const std::tuple<const WCHAR *, bool, bool, bool, DWORD> cases[] = {
        {TEXT("file"), true, false, true, 5},    {TEXT("sub"), true, true, true, 0},
        {TEXT("big"), true, false, true, 10},    {TEXT("b*g"), false, false, true, 10},
        {TEXT("toNone"), true, false, true, 0},  {TEXT("sub\\"), true, true, false, 77},
        {TEXT("none"), false, false, false, 77}, {nullptr, false, false, false, 77},
        {TEXT("?x"), true, false, true, 1},      {TEXT(".\\*"), true, false, true, 2}};
    for (const auto &[path, exists, is_directory, is_found, expected] : cases) {
        SCOPED_TRACE(PrintToString(path));
        DWORD size = 77;
        EXPECT_EQ(isFileExist(path), exists);
        EXPECT_EQ(isDirectoryExist(path), is_directory);
        EXPECT_EQ(getFileSize(path, size), is_found);
        EXPECT_EQ(size, expected);
        EXPECT_EQ(getFileTime(path, nullptr, nullptr, nullptr), is_found);
    }
    EXPECT_EQ(calcFileSize(TEXT("d"), TEXT("*"), 0, nullptr, false, nullptr), 5u);
    EXPECT_TRUE(isDiskExist(TEXT("C:\\x")) && !isDiskExist(TEXT("X:\\x")));
    EXPECT_TRUE(isEnoughFreeDiskSpace(u'C', 1) && !isEnoughFreeDiskSpace(u'X', 0));
}

TEST(PathFacts, TimesAreReadAndSetOneByOne) {
    const Planted dir("file=");
    set(TEXT("file"), kHidden);
    FILETIME a = {7, 0x01C1'0000}, b = {8, 0x01C2'0000}, c = {9, 0x019D'B1DF}, told[3] = {};
    EXPECT_TRUE(setFileTime(TEXT("file"), &a, &b, &c));
    EXPECT_TRUE(setFileTime(TEXT("file"), nullptr, nullptr, &a));
    EXPECT_TRUE(setFileTime(TEXT("file"), &c, nullptr, nullptr));
    EXPECT_TRUE(getFileTime(TEXT("f*"), &told[0], &told[1], &told[2]));
    EXPECT_EQ(ticks(told[0]), ticks(c));
    EXPECT_EQ(ticks(told[1]), ticks(b));
    EXPECT_EQ(ticks(told[2]), ticks(a));
    EXPECT_EQ(GetFileAttributesW(TEXT("file")), kHidden);
    set(TEXT("file"), kReadOnly);
    EXPECT_FALSE(setFileTime(TEXT("file"), &a, nullptr, nullptr));
}

TEST(PathFacts, ConvertTimeReadsFourteenDigitsAndFillsUp) {
    const ZoneScope zone("Asia/Tokyo");
    constexpr std::int64_t kMoment = 1'559'635'917;  // 2019-06-04 08:11:57
    constexpr std::int64_t kNone = -11'644'473'600;
    const std::tuple<const WCHAR *, int, std::int64_t> cases[] = {
        // in seconds since 1970
        {TEXT("20190604081157"), 1, kMoment},
        {TEXT("20190604081157"), 0, kMoment + 9 * 3600},
        {TEXT("2019 6 4 81157"), -1, kMoment},
        {TEXT("2019060408"), 1, kMoment - 11 * 60 - 57},
        {TEXT("20190604081157999"), 1, kMoment},
        {TEXT("2019"), 0, kNone},  // month 0
        {nullptr, 1, kNone}};
    for (const auto &[text, utc, expected] : cases) {
        FILETIME time = {77, 77};
        convertTime(text, utc, &time);
        EXPECT_EQ(ticks(time), (expected - kNone) * 10'000'000) << PrintToString(text) << utc;
    }
}

}  // namespace
