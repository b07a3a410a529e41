#include <sys/stat.h>

#include "ostrel/file/Std_Utils_File.h"

#include <cstring>

#include "support/file_calls.h"
#include "support/trace_capture.h"

namespace {

using namespace NS_FileUtils;

TEST(StdUtilsFile, CreateDirectoryMakesWhatIsMissingAndPassesAttributesDown) {
    constexpr DWORD kAll = kHidden | kSystem | kArchive | kDirectory;
    // The attributes in each row: of h\p, h\p\q, h\p\q\r.
    const std::tuple<std::u16string, bool, bool, bool, bool, std::vector<DWORD>> cases[] = {
        // The ancestor of a path without a separator at its end is two levels up.
        {u"h\\p\\q\\r", false, false, false, true, {kDirectory, kAll, kDirectory}},
        {u"h\\p\\q\\", false, false, true, true, {kDirectory, kAll & ~kSystem}},
        {u"h\\p\\f.txt", true, true, true, true, {kDirectory | kArchive}},
        {u"h/p/q/r", false, false, false, false, {}}};
    for (const auto &[path, has_file, no_hidden, no_system, result, expected] : cases) {
        SCOPED_TRACE(PrintToString(path));
        const Planted dir("h/");
        set(TEXT("h"), kAll);
        EXPECT_EQ(createDirectory(path.c_str(), has_file, no_hidden, no_system), result);
        std::vector<DWORD> made;
        for (const WCHAR *each : {TEXT("h\\p"), TEXT("h\\p\\q"), TEXT("h\\p\\q\\r")}) {
            made.push_back(GetFileAttributesW(each));
        }
        made.erase(std::find(made.begin(), made.end(), INVALID_FILE_ATTRIBUTES), made.end());
        EXPECT_EQ(made, expected);
        EXPECT_EQ(lines_of().size(), 1 + made.size());
    }
    const TempDir dir;
    const std::u16string top = platform_path(dir.Path());
    EXPECT_TRUE(createDirectory((top.substr(2) + u"\\a\\b").c_str(), false, false, false));
    EXPECT_TRUE(createDirectory((top + u"\\a\\c\\").c_str(), false, false, false));
    EXPECT_EQ(tree(), "a/ a/b/ a/c/ ");
}

TEST(StdUtilsFile, CopyFileExCopiesContentTimesAndAttributesUnlessUpToDate) {
    const TempDir dir;
    dir.Write("source", std::string(16384, 'x'));
    dir.Write("copy", std::string(20000, 'y'));
    FILETIME times[3] = {{10, 0x01C0'0000}, {20, 0x01C1'0000}, {30, 0x01C2'0000}}, copied[3] = {};
    ASSERT_TRUE(setFileTime(TEXT("source"), &times[0], &times[1], &times[2]));
    set(TEXT("source"), kHidden | kReadOnly);
    EXPECT_TRUE(copyFileEx(TEXT("source"), TEXT("copy"), false));
    EXPECT_TRUE(getFileTime(TEXT("copy"), &copied[0], &copied[1], &copied[2]));
    EXPECT_EQ(memcmp(copied, times, sizeof times), 0);
    EXPECT_EQ(GetFileAttributesW(TEXT("copy")), kHidden | kReadOnly);
    EXPECT_TRUE(content_of("copy") == content_of("source"));
    set(TEXT("copy"), 0);
    dir.Write("copy", "other");
    ASSERT_TRUE(setFileTime(TEXT("copy"), nullptr, nullptr, &times[2]));
    EXPECT_TRUE(copyFileEx(TEXT("source"), TEXT("copy"), false));
    EXPECT_EQ(content_of("copy"), "other");
}

// The host's permissions of the file that a call leaves at "t/f".
mode_t mode_after(int (*call)(), mode_t source, mode_t mask, const char *planted) {
    const Planted dir(planted);
    EXPECT_EQ(chmod("s/f", source), 0);
    const mode_t before = umask(mask);
    EXPECT_EQ(call(), 1);
    umask(before);
    return host_facts("t/f").st_mode & 07777;
}

TEST(StdUtilsFile, ACopyIsNoMoreOpenThanItsSource) {
    // Whether a call takes the mode of the source, whatever the umask and the target are.
    const std::tuple<const char *, int (*)(), bool> calls[] = {
        {CALL(int{copyFileEx(TEXT("s/f"), TEXT("t/f"), false)}), false},
        {CALL(copyDirectory(TEXT("s"), TEXT("t"), 0, 0, 0)), false},
        {CALL(CopyFileW(TEXT("s/f"), TEXT("t/f"), FALSE)), true},
        {CALL(moveDirectory(TEXT("s"), TEXT("t"), 0, 0)), true},
        {CALL(int{moveFiles(TEXT("s"), TEXT("t"), TEXT("*"), 3, 0)}), true}};
    for (const auto &[text, call, takes_mode] : calls) {
        for (const mode_t source : {0600u, 0640u, 0604u, 0666u}) {
            for (const mode_t mask : {0u, 022u}) {
                SCOPED_TRACE(PrintToString(std::tuple(text, source, mask)));
                EXPECT_EQ(mode_after(call, source, mask, "s/f=new t/"),
                          takes_mode ? source : source & ~mask);
                EXPECT_EQ(mode_after(call, source, mask, "s/f=new t/f=old"),
                          takes_mode ? source : 0644u);
            }
        }
    }
}

TEST(StdUtilsFile, ANewDirectoryIsNoMoreOpenThanItsSource) {
    const std::pair<const char *, int (*)()> calls[] = {
        {CALL(copyDirectory(TEXT("s"), TEXT("t"), 1, 0, 0))},
        {CALL(moveDirectory(TEXT("s"), TEXT("t"), 1, 0))}};
    for (const auto &[text, call] : calls) {
        SCOPED_TRACE(text);
        const Planted dir("s/d/f=");
        chmod("s", 0750), chmod("s/d", 0700);
        EXPECT_EQ(call(), 1);
        EXPECT_EQ(host_facts("t").st_mode & 07777, 0750u);
        EXPECT_EQ(host_facts("t/d").st_mode & 07777, 0700u);
    }
}

TEST(StdUtilsFile, CopyFileExRefusesOrMovesAsideWhatIsInTheWay) {
    const std::tuple<const WCHAR *, const WCHAR *, bool, DWORD, std::size_t> cases[] = {
        {TEXT("busy"), TEXT("t"), true, ERROR_SHARING_VIOLATION, 0},
        {TEXT("s"), TEXT("d/open"), false, ERROR_SHARING_VIOLATION, 0},
        {TEXT("s"), TEXT("d/open"), true, 0, 1},
        {TEXT("s"), TEXT("d/ro"), true, 0, 1},
        {TEXT("s"), TEXT("s"), true, 0, 0}};
    for (const auto &[source, target, aside, error, added] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(source, target, aside)));
        const Planted dir("s=new busy=w d/open=b d/ro=r");
        const Lines before = lines_of();
        set(TEXT("d\\ro"), kReadOnly);
        const Opened read(TEXT("d\\open"), GENERIC_READ, FILE_SHARE_READ);
        const Opened written(TEXT("busy"), GENERIC_WRITE, FILE_SHARE_READ);
        EXPECT_EQ(error_of(copyFileEx(source, target, aside)), error);
        EXPECT_EQ(lines_of().size(), before.size() + added);
        EXPECT_TRUE(error != 0 ? lines_of() == before : content_of(target) == "new");
    }
}

TEST(StdUtilsFile, CopyFileExRefusesWhatHasNoEnd) {
    const Planted dir("zero->/dev/zero");
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    std::FILE *const idle_writer = std::fopen("fifo", "r+");
    EXPECT_FALSE(copyFileEx(TEXT("zero"), TEXT("t"), false));
    EXPECT_FALSE(copyFileEx(TEXT("fifo"), TEXT("t"), false));
    EXPECT_FALSE(fs::exists("t"));
    std::fclose(idle_writer);
}

TEST(StdUtilsFile, MoveFileExClearsAttributesWhenAskedTo) {
    const std::tuple<DWORD, const WCHAR *, int, DWORD, DWORD> cases[] = {
        {kHidden | kReadOnly | kArchive, TEXT("new"), 1, 0, kNormal},
        {kArchive, TEXT("new"), 1, 0, kArchive},
        {kHidden | kReadOnly, TEXT("new"), 0, 0, kHidden | kReadOnly},
        {kHidden, TEXT("there"), 1, ERROR_ALREADY_EXISTS, kNormal}};
    for (const auto &[attributes, target, ignore, error, after] : cases) {
        SCOPED_TRACE(attributes);
        const Planted dir("file=x there=y");
        set(TEXT("file"), attributes);
        EXPECT_EQ(error_of(moveFileEx(TEXT("file"), target, 0, ignore)), error);
        EXPECT_EQ(GetFileAttributesW(error == 0 ? target : TEXT("file")), after);
    }
    const TraceCapture trace;
    moveFileEx(TEXT("none"), nullptr, 0xAB, -1);
    copyFileEx(TEXT("none"), TEXT("x"), true);
    EXPECT_EQ(trace.Lines(),
              R"(272 .\Std_Utils_File.cpp NS_FileUtils::moveFileEx(pszExistingFile = none, )"
              R"(pszNewFile = (null), dwFlag = AB, fIgnoreAttribute = -1)
272 .\Std_Utils_File.cpp NS_FileUtils::copyFileEx(const TCHAR* pszExisting = none, )"
              "const TCHAR* pszNew = x)\n");
}

}  // namespace
