// Directories made; files and directories copied, moved and deleted.

#include <cstring>

#include "ostrel/file/Std_Utils_File.h"
#include "support/file_calls.h"
#include "support/file_tree.h"
#include "support/temp_dir.h"
#include "support/trace_capture.h"

namespace {

namespace fs = std::filesystem;
using namespace NS_FileUtils;

TEST(CreateDirectory, MakesWhatIsMissingAndPassesAttributesDown) {
    constexpr DWORD kAll = kHidden | kSystem | kArchive | kDirectory;
    const struct {
        std::u16string path;
        bool hasFile, noHidden, noSystem, result;
        std::vector<DWORD> made;  // attributes of h\p, h\p\q, h\p\q\r
    } cases[] = {
        // The ancestor of a path without a separator at its end is two levels up.
        {u"h\\p\\q\\r", false, false, false, true, {kDirectory, kAll, kDirectory}},
        {u"h\\p\\q\\", false, false, true, true, {kDirectory, kAll & ~kSystem}},
        {u"h\\p\\", false, true, false, true, {kAll & ~kHidden}},
        {u"h\\p\\f.txt", true, true, true, true, {kDirectory | kArchive}},
        {u"h/p/q/r", false, false, false, false, {}},
    };
    for (const auto &c : cases) {
        const TempDir dir;
        plant("h/");
        set(TEXT("h"), kAll);
        EXPECT_EQ(createDirectory(c.path.c_str(), c.hasFile, c.noHidden, c.noSystem), c.result);
        std::vector<DWORD> made;
        for (const WCHAR *path : {TEXT("h\\p"), TEXT("h\\p\\q"), TEXT("h\\p\\q\\r")}) {
            made.push_back(GetFileAttributesW(path));
        }
        made.erase(std::find(made.begin(), made.end(), INVALID_FILE_ATTRIBUTES), made.end());
        EXPECT_EQ(made, c.made) << fs::path(c.path);
        EXPECT_EQ(lines_of().size(), 1 + made.size()) << fs::path(c.path);
    }
    const TempDir dir;
    std::u16string root = dir.Path().u16string();
    std::replace(root.begin(), root.end(), u'/', u'\\');
    EXPECT_TRUE(createDirectory((root + u"\\a\\b").c_str(), false, false, false));
    EXPECT_TRUE(createDirectory((u"C:" + root + u"\\a\\c\\").c_str(), false, false, false));
    EXPECT_EQ(tree(), "a/ a/b/ a/c/ ");
}

TEST(CopyFileEx, CopiesContentTimesAndAttributesUnlessUpToDate) {
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

TEST(CopyFileEx, RefusesOrMovesAsideWhatIsInTheWay) {
    const struct {
        const WCHAR *source, *target;
        bool aside;
        DWORD error;
        std::size_t added;
    } cases[] = {
        {TEXT("busy"), TEXT("t"), true, ERROR_SHARING_VIOLATION, 0},
        {TEXT("s"), TEXT("none/t"), true, ERROR_PATH_NOT_FOUND, 0},
        {TEXT("s"), TEXT("d/open"), false, ERROR_SHARING_VIOLATION, 0},
        {TEXT("s"), TEXT("d/open"), true, 0, 1},
        {TEXT("s"), TEXT("d/ro"), true, 0, 1},
        {TEXT("s"), TEXT("s"), true, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        const TempDir dir;
        plant("s=new busy=w d/open=b d/ro=r");
        const Lines before = lines_of();
        set(TEXT("d\\ro"), kReadOnly);
        const Opened read(TEXT("d\\open"), GENERIC_READ, FILE_SHARE_READ);
        const Opened written(TEXT("busy"), GENERIC_WRITE, FILE_SHARE_READ);
        EXPECT_EQ(error_of(copyFileEx(c.source, c.target, c.aside)), c.error);
        EXPECT_EQ(lines_of().size(), before.size() + c.added);
        EXPECT_TRUE(c.error != 0 ? lines_of() == before : content_of(c.target) == "new");
    }
}

TEST(MoveFileEx, ClearsAttributesWhenAskedTo) {
    const struct {
        DWORD attributes;
        const WCHAR *target;
        int ignore;
        DWORD error, after;
    } cases[] = {
        {kHidden | kReadOnly | kArchive, TEXT("new"), 1, 0, kNormal},
        {kSystem, TEXT("new"), -1, 0, kNormal},
        {kArchive, TEXT("new"), 1, 0, kArchive},
        {kHidden | kReadOnly, TEXT("new"), 0, 0, kHidden | kReadOnly},
        {kHidden, TEXT("there"), 1, ERROR_ALREADY_EXISTS, kNormal},
    };
    for (const auto &c : cases) {
        const TempDir dir;
        plant("file=x there=y");
        set(TEXT("file"), c.attributes);
        EXPECT_EQ(error_of(moveFileEx(TEXT("file"), c.target, 0, c.ignore)), c.error);
        EXPECT_EQ(GetFileAttributesW(c.error == 0 ? c.target : TEXT("file")), c.after);
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

TEST(CopyAndMoveDirectory, TakeFilesAndTheSubdirectoriesWithoutADot) {
    constexpr char kSource[] = "s/.dot=1 s/.hid/x=2 s/d/e/f=3 s/h=5 s/lf->h s/ld->d s/up->..";
    const struct {
        const char *planted;
        int below, result;
        const char *copied, *moved, *left;
    } cases[] = {
        {kSource, 1, 1, ".dot=1 d/ d/e/ d/e/f=3 h=5 ld/ ld/e/ ld/e/f=3 lf=5 ",
         ".dot=1 d/ d/e/ d/e/f=3 h=5 ld->d lf->h up->.. ", "s/ s/.hid/ s/.hid/x=2 "},
        {kSource, 0, 1, ".dot=1 h=5 lf=5 ", ".dot=1 h=5 lf->h ",
         "s/ s/.hid/ s/.hid/x=2 s/d/ s/d/e/ s/d/e/f=3 s/ld->d s/up->.. "},
        // What fails below ends it before the files above are reached.
        {"s/d/f=1 s/g=2 t/d/f/", 1, 0, "d/ d/f/ ", "d/ d/f/ ", "s/ s/d/ s/d/f=1 s/g=2 "},
        {"s=file", 1, 1, "", "", "s=file "},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.planted << ' ' << c.below);
        for (const bool moves : {false, true}) {
            const TempDir dir;
            plant(c.planted);
            const int result = moves ? moveDirectory(TEXT("s"), TEXT("t"), c.below, 0)
                                     : copyDirectory(TEXT("s"), TEXT("t"), c.below, 1, 1);
            EXPECT_EQ(result, c.result);
            EXPECT_EQ(tree("t"), moves ? c.moved : c.copied);
            fs::remove_all("t");
            EXPECT_TRUE(!moves || tree() == c.left) << tree();
        }
    }
}

TEST(CopyAndMoveDirectory, StopAtAFailureOrGoOn) {
    static constexpr WCHAR source[] = TEXT("s\\d"), target[] = TEXT("t\\d");
    const struct {
        int (*change)();
        bool goesOn, moves;
    } cases[] = {
        {[] { return copyDirectory(source, target, 0, 0, 0); }, false, false},
        {[] { return copyDirectory(source, target, 0, 1, 0); }, true, false},
        // Files of subdirectories never end it, nor are they moved aside.
        {[] { return copyDirectory(TEXT("s"), TEXT("t"), 1, 0, 1); }, true, false},
        {[] { return moveDirectory(source, target, 1, 0); }, false, true},
        {[] { return int{moveFiles(source, target, TEXT("f*"), 1, 0)}; }, false, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        const TempDir dir;
        plant("s/d/f1= s/d/f2= s/d/f3= t/d/");
        std::vector<OS::x_wstring> files;  // in the order in which they come
        ASSERT_EQ(collectFiles(files, source, TEXT("*"), 0, nullptr, false, nullptr), 3);
        fs::create_directory(fs::path("t/d") / getFilename(files[1]).c_str());
        EXPECT_EQ(c.change(), 0);
        EXPECT_EQ(lines_of("t/d").size(), c.goesOn ? 3u : 2u);
        EXPECT_EQ(lines_of("s/d").size(), c.moves ? 2u : 3u);
    }
}

TEST(CopyAndMoveDirectory, ReplaceWhatIsInTheWayAndEmptyADrive) {
    const TempDir dir;
    plant("s/f=new t/f=old");
    set(TEXT("t\\f"), kReadOnly);
    EXPECT_EQ(copyDirectory(TEXT("s"), TEXT("t"), 0, 0, 0), 0);
    EXPECT_EQ(copyDirectory(TEXT("s"), TEXT("t"), 0, 0, 1), 1);
    EXPECT_EQ(content_of("t/f"), "new");
    set(TEXT("s\\f"), kReadOnly);
    setenv("OSTREL_DRIVE_Q", (dir.Path() / "s").c_str(), 1);
    EXPECT_EQ(moveDirectory(TEXT("Q:\\"), TEXT("u"), 0, 0), 1);  // a root lists no "."
    unsetenv("OSTREL_DRIVE_Q");
    EXPECT_EQ(GetFileAttributesW(TEXT("u\\f")), kNormal);
}

TEST(MoveFiles, FlattensTheTree) {
    const TempDir dir;
    plant("s/a/f=1 s/b/g=2 s/f=3 s/.profile=4");
    set(TEXT("s\\b\\g"), kHidden | kReadOnly);
    EXPECT_TRUE(moveFiles(TEXT("s"), TEXT("t"), TEXT("g"), 0, 0));
    EXPECT_TRUE(fs::is_empty("t"));
    EXPECT_TRUE(moveFiles(TEXT("s"), TEXT("t"), TEXT("g"), 0, 1));
    EXPECT_EQ(GetFileAttributesW(TEXT("t\\g")), kHidden | kReadOnly);
    EXPECT_FALSE(moveFiles(TEXT("s"), TEXT("t"), TEXT("f"), 0, 1));
    EXPECT_EQ(tree(), "s/ s/.profile=4 s/a/ s/b/ s/f=3 t/ t/f=1 t/g=2 ");
    EXPECT_TRUE(moveFiles(TEXT("s"), TEXT("t"), TEXT("*"), MOVEFILE_REPLACE_EXISTING, 1));
    EXPECT_EQ(tree(), "s/ s/a/ s/b/ t.profile=4 t/ t/f=3 t/g=2 ");
    EXPECT_FALSE(moveFiles(TEXT("s"), TEXT("t\\f\\x"), TEXT("*"), 0, 0));
}

void note(const WCHAR *path, int result, void *context) {
    std::string line;
    for (; *path != 0; ++path) {
        line += *path == u'\\' ? '/' : *path < 0x80 ? static_cast<char>(*path) : '?';
    }
    static_cast<Lines *>(context)->insert(line + (result != 0 ? '+' : '-'));
}

TEST(DeleteTree, TellsEachFileAndEachDirectoryThatStays) {
    const struct {
        const WCHAR *dir;
        int remove, below;
        const WCHAR *spec;
        const char *calls, *gone;
    } cases[] = {
        {TEXT("s"), 1, 1, TEXT("*"), "s- s/busy- s/d/g+ s/f.tmp+ s/lf+ s/x.tmp/i.tmp+ s/x.tmp/j+ ",
         "s/d/ s/d/g=4 s/f.tmp=5 s/ld->../o s/lf->../o/f s/x.tmp/ s/x.tmp/i.tmp=6 s/x.tmp/j=7 "},
        {TEXT("s"), 1, 1, TEXT("*.tmp"), "s- s/f.tmp+ s/x.tmp- s/x.tmp/i.tmp+ ",
         "s/f.tmp=5 s/x.tmp/i.tmp=6 "},
        {TEXT("s\\"), 0, 0, TEXT("*"), "s/busy- s/f.tmp+ s/lf+ ", "s/f.tmp=5 s/lf->../o/f "},
        {TEXT("ls"), 1, 1, TEXT("*"), "", "ls->s "},
        {TEXT("ls\\"), 0, 1, TEXT("*"), "", ""},
        {TEXT("none"), 1, 1, TEXT("*"), "none- ", ""},
    };
    for (const auto &c : cases) {
        const TempDir dir;
        plant(
            "o/f=1 s/.hid/x=2 s/busy=3 s/d/g=4 s/f.tmp=5 s/x.tmp/i.tmp=6 s/x.tmp/j=7 "
            "s/ld->../o s/lf->../o/f ls->s");
        set(TEXT("s\\f.tmp"), kReadOnly);
        set(TEXT("s\\d"), kReadOnly);
        const Opened busy(TEXT("s\\busy"), GENERIC_READ, FILE_SHARE_READ);
        const Lines before = lines_of();
        Lines calls, gone;
        deleteTree(c.dir, note, &calls, c.remove, c.below, c.spec);
        EXPECT_EQ(text(calls), c.calls);
        const Lines after = lines_of();
        std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                            std::inserter(gone, gone.end()));
        EXPECT_EQ(text(gone), c.gone) << fs::path(c.dir);
    }
}

TEST(OddNames, AreListedCopiedMovedAndDeletedUnlessTheyAreTooLong) {
    const TempDir dir;
    const std::string longest(200, 'n');
    for (const std::string &name :
         {std::string("\xFF"), std::string("a\\b"), std::string("end  "), std::string("dot."),
          std::string("*?\xF0\x9F\x98\x80"), longest}) {
        fs::create_directories("s/d" + name);
        std::ofstream("s/" + name) << name;
        std::ofstream("s/d" + name + "/f") << name;
    }
    const Lines before = lines_of("s");
    EXPECT_EQ(copyDirectory(TEXT("s"), TEXT("t"), 1, 0, 0), 1);
    EXPECT_EQ(lines_of("t"), before);
    EXPECT_EQ(moveDirectory(TEXT("t"), TEXT("u"), 1, 0), 1);
    EXPECT_EQ(lines_of("u"), before);
    const std::string tooLong = "u/d" + longest + '/' + std::string(60, 'x');
    std::ofstream(tooLong) << "kept";
    EXPECT_EQ(copyDirectory(TEXT("u"), TEXT("v"), 1, 0, 0), 0);
    Lines calls;
    deleteTree(TEXT("u"), note, &calls, 1, 1, TEXT("*"));
    EXPECT_EQ(calls.size(), 12u + 3u);  // it and two directories stay
    EXPECT_EQ(lines_of("u").size(), 2u);
    EXPECT_EQ(content_of(tooLong), "kept");
}

}  // namespace
