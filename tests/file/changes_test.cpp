#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <set>
#include <sstream>

#include "ostrel/core/exception.h"
#include "ostrel/core/handles.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/browse_directory.h"
#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "support/temp_dir.h"
#include "support/text.h"
#include "support/trace_capture.h"

namespace {

namespace fs = std::filesystem;
using namespace NS_FileUtils;
using Lines = std::multiset<std::string>;

constexpr DWORD kHidden = FILE_ATTRIBUTE_HIDDEN, kReadOnly = FILE_ATTRIBUTE_READONLY;
constexpr DWORD kSystem = FILE_ATTRIBUTE_SYSTEM, kArchive = FILE_ATTRIBUTE_ARCHIVE;
constexpr DWORD kDirectory = FILE_ATTRIBUTE_DIRECTORY, kNormal = FILE_ATTRIBUTE_NORMAL;

std::string content_of(const fs::path &path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

// What lies below a directory: "a=content", "d/", "d/l->target".
Lines lines_of(const fs::path &top = ".") {
    Lines lines;
    for (const auto &entry : fs::recursive_directory_iterator(top)) {
        const std::string name = entry.path().lexically_relative(top);
        lines.insert(entry.is_symlink()     ? name + "->" + fs::read_symlink(entry).string()
                     : entry.is_directory() ? name + '/'
                                            : name + '=' + content_of(entry));
    }
    return lines;
}

std::string text(const Lines &lines) {
    std::string text;
    for (const std::string &line : lines) {
        text += line + ' ';
    }
    return text;
}

std::string tree(const fs::path &top = ".") {
    return text(lines_of(top));
}

// Makes what tree() tells; folders on the way need no mention. No two files have the same time.
void plant(const std::string &text) {
    std::istringstream lines(text);
    for (std::string line; lines >> line;) {
        const std::size_t content = line.find('='), link = line.find("->");
        const fs::path path = line.substr(0, std::min(content, link));
        fs::create_directories("." / path.parent_path());
        if (link != line.npos) {
            fs::create_symlink(line.substr(link + 2), path);
        } else if (content != line.npos) {
            std::ofstream(path) << line.substr(content + 1);
            static int age = 0;
            fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(++age));
        }
    }
}

void set(const WCHAR *path, DWORD attributes) {
    EXPECT_TRUE(SetFileAttributesW(path, attributes));
}

DWORD error_of(bool result) {
    return result ? 0 : GetLastError();
}

int in_child(const std::function<int()> &body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

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
        {u"h\\p", false, false, false, true, {kDirectory}},
        {u"h\\p\\", false, false, false, true, {kAll}},
        {u"h\\p\\", false, true, false, true, {kAll & ~kHidden}},
        {u"h\\p\\f.txt", true, true, true, true, {kDirectory | kArchive}},
        {u"h\\f.txt", true, true, true, true, {}},
        {u"h\\", false, true, true, true, {}},
        {u"h/p/q/r", false, false, false, false, {}},
        {u"h\\p\\q\\\xD800\\z", false, false, false, false, {kDirectory, kAll}},
        {u"f.txt", true, false, false, false, {}},
        {u"file\\x", false, false, false, false, {}},
        {u"file", false, false, false, false, {}},
    };
    for (const auto &c : cases) {
        const TempDir dir;
        plant("file= h/");
        set(TEXT("h"), kHidden | kSystem | kArchive);
        EXPECT_EQ(createDirectory(c.path.c_str(), c.hasFile, c.noHidden, c.noSystem), c.result);
        std::vector<DWORD> made;
        for (const WCHAR *path : {TEXT("h\\p"), TEXT("h\\p\\q"), TEXT("h\\p\\q\\r")}) {
            if (isFileExist(path)) {
                made.push_back(GetFileAttributesW(path));
            }
        }
        EXPECT_EQ(made, c.made) << fs::path(c.path);
        EXPECT_EQ(lines_of().size(), 2 + made.size()) << fs::path(c.path);
        EXPECT_EQ(GetFileAttributesW(TEXT("h")), kAll);
    }
    const TempDir dir;
    std::u16string root = dir.Path().u16string();
    std::replace(root.begin(), root.end(), u'/', u'\\');
    EXPECT_TRUE(createDirectory((root + u"\\a\\b").c_str(), false, false, false));
    EXPECT_TRUE(createDirectory((u"C:" + root + u"\\a\\c\\d\\").c_str(), false, false, false));
    EXPECT_EQ(tree(), "a/ a/b/ a/c/ a/c/d/ ");
}

TEST(CopyFileEx, CopiesContentTimesAndAttributes) {
    const TempDir dir;
    for (const unsigned size : {0u, 16383u, 16384u, 1u << 20}) {
        std::string content(size, 'x');
        for (unsigned i = 0; i < size; i += 99) {
            content[i] = static_cast<char>(i % 251);
        }
        dir.Write("source", content);
        dir.Write("copy", "old, and longer than the first one");
        FILETIME times[3] = {{10, 0x01C0'0000}, {20, 0x01C1'0000}, {30, 0x01C2'0000}}, copied[3];
        ASSERT_TRUE(setFileTime(TEXT("source"), &times[0], &times[1], &times[2]));
        set(TEXT("source"), kHidden | kReadOnly);
        EXPECT_TRUE(copyFileEx(TEXT("source"), TEXT("copy"), false));
        ASSERT_TRUE(getFileTime(TEXT("copy"), &copied[0], &copied[1], &copied[2]));
        EXPECT_EQ(std::memcmp(copied, times, sizeof times), 0);
        EXPECT_EQ(GetFileAttributesW(TEXT("copy")), kHidden | kReadOnly);
        EXPECT_TRUE(content_of("copy") == content);
        set(TEXT("source"), 0);
        set(TEXT("copy"), 0);
        dir.Write("copy", "other");
        ASSERT_TRUE(setFileTime(TEXT("copy"), nullptr, nullptr, &times[2]));
        EXPECT_TRUE(copyFileEx(TEXT("source"), TEXT("copy"), false));  // as if up to date
        EXPECT_EQ(content_of("copy"), "other");
    }
}

TEST(CopyFileEx, RefusesOrMovesAsideWhatIsInTheWay) {
    const struct {
        const WCHAR *source;
        std::string target;
        bool aside;
        DWORD error;
        std::size_t added;
    } cases[] = {
        {TEXT("s"), "none/t", true, ERROR_PATH_NOT_FOUND, 0},
        {TEXT("none"), "t", true, ERROR_FILE_NOT_FOUND, 0},
        {TEXT("busy"), "t", true, ERROR_SHARING_VIOLATION, 0},
        {TEXT("d"), "t", false, ERROR_ACCESS_DENIED, 0},
        {TEXT("s"), "d", false, ERROR_ACCESS_DENIED, 0},
        {TEXT("s"), "d/open", false, ERROR_SHARING_VIOLATION, 0},
        {TEXT("s"), "d/open", true, 0, 1},
        {TEXT("s"), "d/ro", false, ERROR_ACCESS_DENIED, 0},
        {TEXT("s"), "d/ro", true, 0, 1},
        {TEXT("s"), "d/new", true, 0, 1},
        {TEXT("s"), "s", true, 0, 0},
    };
    for (const auto &c : cases) {
        const TempDir dir;
        plant("s=new busy=w d/open=b d/ro=r");
        const Lines before = lines_of();
        set(TEXT("d\\ro"), kReadOnly);
        const auto open = [](const WCHAR *path, DWORD access) {
            return CreateFileW(path, access, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        };
        const CHandle read(open(TEXT("d\\open"), GENERIC_READ));
        const CHandle written(open(TEXT("busy"), GENERIC_WRITE));
        SCOPED_TRACE(c.target);
        const std::u16string target(c.target.begin(), c.target.end());
        EXPECT_EQ(error_of(copyFileEx(c.source, target.c_str(), c.aside)), c.error);
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
        {kSource, 0, 1, ".dot=1 h=5 lf=5 ", ".dot=1 h=5 ld->d lf->h up->.. ",
         "s/ s/.hid/ s/.hid/x=2 s/d/ s/d/e/ s/d/e/f=3 "},
        {"t/g=old s/g=2", 1, 1, "g=2 ", "g=2 ", ""},
        {"s=file", 1, 1, "", "", "s=file "},
        {"", 1, 1, "", "", ""},
        // What fails below ends it before the files above are reached.
        {"s/d/f=1 s/g=2 t/d/f/", 1, 0, "d/ d/f/ ", "d/ d/f/ ", "s/ s/d/ s/d/f=1 s/g=2 "},
        {"s/d/f=1 s/g=2 t/d=no", 1, 0, "d=no ", "d=no ", "s/ s/d/ s/d/f=1 s/g=2 "},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.planted << ' ' << c.below);
        for (const bool moves : {false, true}) {
            const TempDir dir;
            plant(c.planted);
            const Lines before = fs::is_directory("s") ? lines_of("s") : Lines();
            EXPECT_EQ(moves ? moveDirectory(TEXT("s"), TEXT("t"), c.below, 0)
                            : copyDirectory(TEXT("s"), TEXT("t"), c.below, 1, 1),
                      c.result);
            EXPECT_EQ(tree("t"), moves ? c.moved : c.copied);
            fs::remove_all("t");
            if (moves) {
                EXPECT_EQ(tree(), c.left);
            } else if (fs::is_directory("s")) {
                EXPECT_EQ(lines_of("s"), before);
            }
        }
    }
}

TEST(CopyAndMoveDirectory, StopAtAFailureOrGoOn) {
    const WCHAR *const source = TEXT("s\\d"), *const target = TEXT("t\\d");
    const struct {
        std::function<bool()> change;
        bool goesOn, moves;
    } cases[] = {
        {[&] { return copyDirectory(source, target, 0, 0, 0) != 0; }, false, false},
        {[&] { return copyDirectory(source, target, 0, 1, 0) != 0; }, true, false},
        // Files of subdirectories never end it, nor are they moved aside.
        {[&] { return copyDirectory(TEXT("s"), TEXT("t"), 1, 0, 1) != 0; }, true, false},
        {[&] { return moveDirectory(source, target, 1, 0) != 0; }, false, true},
        {[&] { return moveFiles(source, target, TEXT("f*"), 1, 0); }, false, true},
    };
    for (const auto &c : cases) {
        const TempDir dir;
        plant("s/d/f1= s/d/f2= s/d/f3= s/d/f4= s/d/f5= t/d/");
        std::vector<OS::x_wstring> order;
        ASSERT_EQ(collectFiles(order, source, TEXT("*"), 0, nullptr, false, nullptr), 5);
        const auto name_of = [&order](std::size_t i) {
            return fs::path(getFilenameWithExt(order[i]).c_str());
        };
        fs::create_directory("t/d" / name_of(2));
        EXPECT_FALSE(c.change());
        for (std::size_t i = 0; i < 5; ++i) {
            const bool isDone = i < 2 || (c.goesOn && i > 2);
            EXPECT_EQ(fs::is_regular_file("t/d" / name_of(i)), isDone) << &c - cases << i;
            EXPECT_EQ(fs::exists("s/d" / name_of(i)), !(isDone && c.moves)) << &c - cases << i;
        }
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
    EXPECT_EQ(moveDirectory(TEXT("s"), TEXT("u"), 0, 0), 1);
    EXPECT_EQ(GetFileAttributesW(TEXT("u\\f")), kNormal);
    setenv("OSTREL_DRIVE_Q", (dir.Path() / "u").c_str(), 1);
    EXPECT_EQ(moveDirectory(TEXT("Q:\\"), TEXT("v"), 0, 0), 1);  // a root lists no "."
    unsetenv("OSTREL_DRIVE_Q");
    EXPECT_EQ(tree("v"), "f=new ");
}

TEST(MoveFiles, FlattensTheTree) {
    const TempDir dir;
    plant("s/a/f=1 s/b/g=2 s/f=3 s/.profile=4");
    set(TEXT("s\\b\\g"), kHidden | kReadOnly);
    EXPECT_TRUE(moveFiles(TEXT("s"), TEXT("t"), TEXT("g"), 0, 0));
    EXPECT_EQ(tree("t"), "");
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
        {TEXT("s"), 0, 1, TEXT("*.tmp"), "s/f.tmp+ s/x.tmp/i.tmp+ ", "s/f.tmp=5 s/x.tmp/i.tmp=6 "},
        {TEXT("s\\d"), 1, 0, TEXT("*.*"), "s/d/g+ ", "s/d/ s/d/g=4 "},
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
        const CHandle busy(CreateFileW(TEXT("s\\busy"), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                       OPEN_EXISTING, 0, nullptr));
        const Lines before = lines_of();
        Lines calls, gone;
        deleteTree(c.dir, note, &calls, c.remove, c.below, c.spec);
        EXPECT_EQ(text(calls), c.calls);
        const Lines after = lines_of();
        std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                            std::inserter(gone, gone.end()));
        EXPECT_EQ(text(gone), c.gone) << fs::path(c.dir);
    }
    const TempDir dir;
    plant("s/d/f=1 s/g=2");
    deleteTree(TEXT("s"), nullptr, nullptr, 1, 1, TEXT("*"));
    deleteTree(TEXT("s"), nullptr, nullptr, 1, 1, TEXT("*"));
    EXPECT_EQ(tree(), "");
}

TEST(OddNames, AreListedCopiedMovedAndDeleted) {
    const TempDir dir;
    for (const std::string &name :
         {std::string("\xFF"), std::string("a\\b"), std::string("end  "), std::string("dot."),
          std::string("*?"), std::string(255, 'n'), std::string("\xF0\x9F\x98\x80")}) {
        const std::string folder = "s/d" + name.substr(0, 200);
        fs::create_directories(folder);
        std::ofstream("s/" + name) << name;
        std::ofstream(folder + "/f") << name;
    }
    const Lines before = lines_of("s");
    std::vector<OS::x_wstring> files;
    EXPECT_EQ(collectFiles(files, TEXT("s"), TEXT("*"), 0, nullptr, true, nullptr), 14);
    EXPECT_TRUE(std::all_of(files.begin(), files.end(), isFileExist));
    EXPECT_EQ(copyDirectory(TEXT("s"), TEXT("t"), 1, 0, 0), 1);
    EXPECT_EQ(lines_of("t"), before);
    EXPECT_EQ(moveDirectory(TEXT("t"), TEXT("u"), 1, 0), 1);
    EXPECT_EQ(lines_of("u"), before);
    Lines calls;
    deleteTree(TEXT("u"), note, &calls, 1, 1, TEXT("*"));
    EXPECT_EQ(calls.size(), 14u);
    EXPECT_FALSE(fs::exists("u"));
}

TEST(OddNames, BeyondTheLongestPathAreLeftAlone) {
    const TempDir dir;
    const std::string folder = std::string(120, 'd') + '/' + std::string(120, 'd');
    dir.Write("s/" + folder + "/name", "x");  // 248 characters
    dir.Write("s/" + folder + "/name that is longer", "x");
    EXPECT_EQ(copyDirectory(TEXT("s"), TEXT("t"), 1, 1, 0), 0);
    const std::u16string tooLong = fs::path("s/" + folder + "/name that is longer").u16string();
    EXPECT_EQ(error_of(copyFileEx(tooLong.c_str(), TEXT("x"), true)), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_EQ(calcFileSize(TEXT("s"), TEXT("*"), 0, nullptr, true, nullptr), 1u);
    Lines calls;
    deleteTree(TEXT("s"), note, &calls, 1, 1, TEXT("*"));
    EXPECT_EQ(calls.size(), 5u);  // both files, and three directories that are not empty
    EXPECT_EQ(lines_of("s").count(folder + "/name that is longer=x"), lines_of("s").size() - 2);
}

TEST(OrdinaryUser, IsToldWhatTheHostRefuses) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "cannot become another user";
    }
    const TempDir dir;
    plant("locked/f=1 open/f=2 mine/f=3");
    constexpr uid_t kNobody = 65534;
    ASSERT_EQ(chmod("locked", 0700) | chmod(dir.Path().c_str(), 0755) | chmod("open/f", 0600) |
                  chown("mine", kNobody, kNobody),
              0);
    const Lines before = lines_of();
    struct Nothing : OS::CBrowseDirectory::CFileSearchCallback {
        void operator()(const WCHAR *, const WCHAR *, const WCHAR *) override {}
    } nothing;
    EXPECT_EQ(in_child([&] {
                  Lines calls;
                  if (setresuid(kNobody, kNobody, kNobody) != 0 ||
                      error_of(copyFileEx(TEXT("open\\f"), TEXT("mine\\g"), false)) !=
                          ERROR_ACCESS_DENIED ||
                      copyDirectory(TEXT("mine"), TEXT("open\\new"), 1, 1, 1) != 0 ||
                      moveFileEx(TEXT("open\\f"), TEXT("mine\\new"), 0, 1) ||
                      calcFileSize(TEXT("."), TEXT("*"), 0, nullptr, true, nullptr) != 2) {
                      return 1;
                  }
                  deleteTree(TEXT("open"), note, &calls, 1, 1, TEXT("*"));
                  try {
                      OS::CBrowseDirectory().BrowseDirectory(TEXT("."), true, TEXT("*"), nothing);
                      return 2;
                  } catch (const OS::CSystemException &failure) {
                      const bool isDenied = failure.GetErrorCode() == EACCES;
                      return isDenied && text(calls) == "open- open/f- " ? 0 : 3;
                  }
              }),
              0);
    EXPECT_EQ(lines_of(), before);
}

TEST(FullDisk, EndsACopy) {
    const TempDir dir;
    plant("disk/");
    dir.Write("big", std::string(100'000, 'x'));
    constexpr int kSkipped = 77;
    const int result = in_child([] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "disk", "tmpfs", 0, "size=64k") != 0) {
            return kSkipped;
        }
        const DWORD error = error_of(copyFileEx(TEXT("big"), TEXT("disk\\big"), true));
        return error == ERROR_DISK_FULL && fs::file_size("disk/big") > 16383 ? 0 : 1;
    });
    if (result == kSkipped) {
        GTEST_SKIP() << "may not mount";
    }
    EXPECT_EQ(result, 0);
}

}  // namespace
