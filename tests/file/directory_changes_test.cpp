// Directories and sets of files copied, moved and deleted.

#include "ostrel/file/Std_Utils_File.h"
#include "support/file_calls.h"

namespace {

using namespace NS_FileUtils;

TEST(DirectoryChanges, TakeFilesAndTheSubdirectoriesWithoutADot) {
    constexpr char kSource[] = "s/.dot=1 s/.hid/x=2 s/d/e/f=3 s/h=5 s/lf->h s/ld->d s/up->..";
    const std::tuple<const char *, int, int, const char *, const char *, const char *> cases[] = {
        {kSource, 1, 1, ".dot=1 d/ d/e/ d/e/f=3 h=5 ld/ ld/e/ ld/e/f=3 lf=5 ",
         ".dot=1 d/ d/e/ d/e/f=3 h=5 ld->d lf->h up->.. ", "s/ s/.hid/ s/.hid/x=2 "},
        {kSource, 0, 1, ".dot=1 h=5 lf=5 ", ".dot=1 h=5 lf->h ",
         "s/ s/.hid/ s/.hid/x=2 s/d/ s/d/e/ s/d/e/f=3 s/ld->d s/up->.. "},
        // What fails below ends it before the files above are reached.
        {"s/d/f=1 s/g=2 t/d/f/", 1, 0, "d/ d/f/ ", "d/ d/f/ ", "s/ s/d/ s/d/f=1 s/g=2 "},
        {"s=file", 1, 1, "", "", "s=file "}};
    for (const auto &[planted, below, result, copied, moved, left] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(planted, below)));
        for (const bool moves : {false, true}) {
            const Planted dir(planted);
            EXPECT_EQ(moves ? moveDirectory(TEXT("s"), TEXT("t"), below, 0)
                            : copyDirectory(TEXT("s"), TEXT("t"), below, 1, 1),
                      result);
            EXPECT_EQ(tree("t"), moves ? moved : copied);
            fs::remove_all("t");
            EXPECT_TRUE(!moves || tree() == left) << tree();
        }
    }
}

TEST(DirectoryChanges, StopAtAFailureOrGoOn) {
    static constexpr WCHAR source[] = TEXT("s\\d"), target[] = TEXT("t\\d");
    const std::tuple<const char *, int (*)(), bool, bool> cases[] = {
        {CALL(copyDirectory(source, target, 0, 0, 0)), false, false},
        {CALL(copyDirectory(source, target, 0, 1, 0)), true, false},
        // A failure in a subdirectory does not end the copy, and no file there is moved aside.
        {CALL(copyDirectory(TEXT("s"), TEXT("t"), 1, 0, 1)), true, false},
        {CALL(moveDirectory(source, target, 1, 0)), false, true},
        {CALL(int{moveFiles(source, target, TEXT("f*"), 1, 0)}), false, true}};
    for (const auto &[text, change, goes_on, moves] : cases) {
        SCOPED_TRACE(text);
        const Planted dir("s/d/f1= s/d/f2= s/d/f3= t/d/");
        std::vector<OS::x_wstring> files;  // in the order in which they come
        ASSERT_EQ(collectFiles(files, source, TEXT("*"), 0, nullptr, false, nullptr), 3);
        fs::create_directory(fs::path("t/d") / getFilename(files[1]).c_str());
        EXPECT_EQ(change(), 0);
        EXPECT_EQ(lines_of("t/d").size(), goes_on ? 3u : 2u);
        EXPECT_EQ(lines_of("s/d").size(), moves ? 2u : 3u);
    }
}

TEST(DirectoryChanges, ReplaceWhatIsInTheWay) {
    const Planted dir("s/f=new t/f=old");
    set(TEXT("t\\f"), kReadOnly);
    EXPECT_EQ(copyDirectory(TEXT("s"), TEXT("t"), 0, 0, 0), 0);
    EXPECT_EQ(copyDirectory(TEXT("s"), TEXT("t"), 0, 0, 1), 1);
    EXPECT_EQ(content_of("t/f"), "new");
}

TEST(DirectoryChanges, MoveFilesFlattensTheTree) {
    const Planted dir("s/a/f=1 s/b/g=2 s/f=3 s/.profile=4");
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

TEST(DirectoryChanges, DeleteTreeTellsEachFileAndEachDirectoryThatStays) {
    const std::tuple<const WCHAR *, int, int, const WCHAR *, const char *, const char *> cases[] = {
        {TEXT("s"), 1, 1, TEXT("*"), "s- s/busy- s/d/g+ s/f.tmp+ s/lf+ s/x.tmp/i.tmp+ s/x.tmp/j+ ",
         "s/d/ s/d/g=4 s/f.tmp=5 s/ld->../o s/lf->../o/f s/x.tmp/ s/x.tmp/i.tmp=6 s/x.tmp/j=7 "},
        {TEXT("s"), 1, 1, TEXT("*.tmp"), "s- s/f.tmp+ s/x.tmp- s/x.tmp/i.tmp+ ",
         "s/f.tmp=5 s/x.tmp/i.tmp=6 "},
        {TEXT("s\\"), 0, 0, TEXT("*"), "s/busy- s/f.tmp+ s/lf+ ", "s/f.tmp=5 s/lf->../o/f "},
        {TEXT("ls"), 1, 1, TEXT("*"), "", "ls->s "},
        {TEXT("ls\\"), 0, 1, TEXT("*"), "", ""},
        {TEXT("none"), 1, 1, TEXT("*"), "none- ", ""}};
    for (const auto &[top, remove, below, spec, told, gone] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(top, spec)));
        const Planted dir(
            "o/f=1 s/.hid/x=2 s/busy=3 s/d/g=4 s/f.tmp=5 s/x.tmp/i.tmp=6 s/x.tmp/j=7 "
            "s/ld->../o s/lf->../o/f ls->s");
        set(TEXT("s\\f.tmp"), kReadOnly);
        set(TEXT("s\\d"), kReadOnly);
        const Opened busy(TEXT("s\\busy"), GENERIC_READ, FILE_SHARE_READ);
        const Lines before = lines_of();
        Lines calls;
        deleteTree(top, note, &calls, remove, below, spec);
        EXPECT_EQ(text(calls), told);
        EXPECT_EQ(without(before, lines_of()), gone);
    }
}

TEST(DirectoryChanges, OddNamesAreListedCopiedMovedAndDeletedUnlessTheyAreTooLong) {
    const TempDir dir;
    const std::string longest(200, 'n');
    for (const std::string &name : std::vector<std::string>{"\xFF", "a\\b", "end  ", "dot.",
                                                            "*?\xF0\x9F\x98\x80", "c:x", longest}) {
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
    EXPECT_EQ(calls.size(), 14u + 3u);  // it and two directories stay
    EXPECT_EQ(lines_of("u").size(), 2u);
    EXPECT_EQ(content_of(tooLong), "kept");
}

}  // namespace
