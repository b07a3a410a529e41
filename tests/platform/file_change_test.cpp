// Changes of the tree: directories, deleting, copying, moving.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/file_calls.h"
#include "support/file_tree.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

constexpr DWORD kReplace = MOVEFILE_REPLACE_EXISTING, kCopy = MOVEFILE_COPY_ALLOWED;
constexpr DWORD kDenied = ERROR_ACCESS_DENIED, kExists = ERROR_ALREADY_EXISTS;
constexpr DWORD kNoFile = ERROR_FILE_NOT_FOUND, kNoPath = ERROR_PATH_NOT_FOUND;

struct stat host_facts(const fs::path &path) {
    struct stat facts = {};
    EXPECT_EQ(lstat(path.c_str(), &facts), 0) << path;
    return facts;
}

// One of each kind.
struct Tree : TempDir {
    Tree() {
        plant("file=content read-only=r hidden=h full/inner= empty/");
        plant("to-file->file to-full->full to-nothing->gone");
        set(TEXT("read-only"), kReadOnly);
        set(TEXT("hidden"), kHidden);
    }
};

TEST(FileChange, MakesAndRemovesWhatTheCallIsFor) {
    const struct {
        BOOL (*change)(const WCHAR *path);
        const WCHAR *path;
        DWORD error;
    } cases[] = {{RemoveDirectoryW, u"read-only\\", ERROR_DIRECTORY},
                 {RemoveDirectoryW, u"full", ERROR_DIR_NOT_EMPTY},
                 {RemoveDirectoryW, u"empty", 0},
                 {RemoveDirectoryW, u"to-file", ERROR_DIRECTORY},
                 {RemoveDirectoryW, u"to-full\\", 0},
                 {RemoveDirectoryW, u"file/x", kNoPath},
                 {RemoveDirectoryW, u"../here", ERROR_CURRENT_DIRECTORY},
                 {DeleteFileW, u"read-only", kDenied},
                 {DeleteFileW, u"empty", kDenied},
                 {DeleteFileW, u"to-file", 0},
                 {DeleteFileW, u"to-full", 0},
                 {DeleteFileW, u"none/x", kNoPath}};
    for (const auto &c : cases) {
        SCOPED_TRACE(fs::path(c.path));
        const Tree dir;
        fs::create_directory("here");
        const bool isHere = c.error == ERROR_CURRENT_DIRECTORY;
        fs::current_path(isHere ? dir.Path() / "here" : dir.Path());
        const Lines before = lines_of(dir.Path());
        EXPECT_EQ(error_of(c.change(c.path)), c.error);
        EXPECT_EQ(lines_of(dir.Path()).size(), before.size() - (c.error == 0));
        EXPECT_TRUE(fs::exists(dir.Path() / "file") && fs::exists(dir.Path() / "full/inner"));
    }
    const Tree dir;
    EXPECT_EQ(error_of(CreateDirectoryW(TEXT("new\\"), nullptr)), 0u);
    EXPECT_EQ(error_of(CreateDirectoryW(TEXT("file"), nullptr)), kExists);
    EXPECT_EQ(error_of(CreateDirectoryW(TEXT("none/new/"), nullptr)), kNoPath);
    set(TEXT("new"), kReadOnly);
    EXPECT_EQ(error_of(RemoveDirectoryW(TEXT("new"))), kDenied);
}

TEST(FileChange, CopiesWholeOrNotAtAll) {
    const struct {
        const WCHAR *source, *target;
        BOOL fail_if_exists;
        DWORD error;
    } cases[] = {{u"to-file", u"new", TRUE, 0},
                 {u"file", u"to-nothing", FALSE, 0},
                 {u"file", u"full/inner", FALSE, 0},
                 {u"file", u"full/inner", TRUE, ERROR_FILE_EXISTS},
                 {u"none", u"new", FALSE, kNoFile},
                 {u"file", u"none/new", FALSE, kNoPath},
                 {u"file", u"new/", FALSE, kNoPath},
                 {u"full", u"new", FALSE, kDenied},
                 {u"file", u"empty", FALSE, kDenied},
                 {u"file", u"hidden", FALSE, kDenied},
                 {u"file", u"/dev/null", FALSE, kDenied},
                 {u"file", u"to-file", FALSE, ERROR_SHARING_VIOLATION}};
    for (const auto &c : cases) {
        const Tree dir;
        SCOPED_TRACE(&c - cases);
        const Lines before = lines_of();
        EXPECT_EQ(error_of(CopyFileW(c.source, c.target, c.fail_if_exists)), c.error);
        EXPECT_TRUE(c.error != 0 ? lines_of() == before : content_of(c.target) == "content");
    }
}

TEST(FileChange, CopiesWhatBelongsToTheFile) {
    const Tree dir;
    set(TEXT("file"), kSystem);
    const timespec times[] = {{1'000'000, 0}, {1'000'000'000, 123'456'789}};
    ASSERT_EQ(chmod("file", 0440) | utimensat(AT_FDCWD, "file", times, 0), 0);
    EXPECT_EQ(error_of(CopyFileW(TEXT("file"), TEXT("copy"), TRUE)), 0u);
    EXPECT_EQ(host_facts("copy").st_mode & 07777, 0440u);
    EXPECT_EQ(host_facts("copy").st_mtim.tv_nsec, 123'456'789);
    EXPECT_EQ(GetFileAttributesW(TEXT("copy")), kSystem | kReadOnly);
    // What has no size before it is read.
    EXPECT_EQ(error_of(CopyFileW(TEXT("/proc/self/status"), TEXT("status"), TRUE)), 0u);
    EXPECT_NE(content_of("status").find("VmRSS"), std::string::npos);

    const Opened reader(TEXT("hidden"), GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(error_of(CopyFileW(TEXT("hidden"), TEXT("new"), TRUE)), 0u);
    const Opened writer(TEXT("new"), GENERIC_WRITE, FILE_SHARE_WRITE);
    EXPECT_EQ(error_of(CopyFileW(TEXT("new"), TEXT("other"), TRUE)), ERROR_SHARING_VIOLATION);
    const Opened target(TEXT("full/inner"), GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(error_of(CopyFileW(TEXT("file"), TEXT("full/inner"), FALSE)),
              ERROR_SHARING_VIOLATION);
}

TEST(FileChange, MovesByItsFlags) {
    constexpr DWORD kDelayed = MOVEFILE_DELAY_UNTIL_REBOOT, kInvalid = ERROR_INVALID_PARAMETER;
    const struct {
        const char *source;
        const WCHAR *target;
        DWORD flags, error;
    } cases[] = {{"read-only", u"full/new", MOVEFILE_WRITE_THROUGH, 0},
                 {"full", u"new/", 0, 0},
                 {"to-full", u"new", 0, 0},
                 {"file", u"hidden", kReplace, 0},
                 {"file", u"to-nothing", kReplace, 0},
                 {"file", u"to-nothing", 0, kExists},
                 {"empty", u"full", 0, kExists},
                 {"file", u"read-only", kReplace, kDenied},
                 {"file", u"empty", kReplace, kDenied},
                 {"empty", u"new", kReplace, kDenied},
                 {"none/x", u"new", 0, kNoPath},
                 {"file", u"none/new", 0, kNoPath},
                 {"file", nullptr, 0, kInvalid},
                 {"file", u"new", 16, kInvalid},
                 {"file", u"new", kDelayed | kCopy, kInvalid}};
    for (const auto &c : cases) {
        const Tree dir;
        SCOPED_TRACE(&c - cases);
        const Lines before = lines_of();
        struct stat facts = {};
        lstat(c.source, &facts);
        EXPECT_EQ(error_of(MoveFileExW(fs::path(c.source).u16string().c_str(), c.target, c.flags)),
                  c.error);
        if (c.error == 0) {
            const fs::path target = fs::absolute(c.target).lexically_normal();
            EXPECT_EQ(host_facts(target.has_filename() ? target : target.parent_path()).st_ino,
                      facts.st_ino);
            EXPECT_NE(lstat(c.source, &facts), 0);
        } else {
            EXPECT_EQ(lines_of(), before);
        }
    }
}

TEST(FileChange, MovesOntoItselfAndOntoAnotherLinkOfTheFile) {
    const Tree dir;
    EXPECT_EQ(error_of(MoveFileW(TEXT("file"), TEXT(".\\file"))), 0u);
    EXPECT_EQ(error_of(MoveFileW(TEXT("full"), TEXT("empty\\..\\full"))), 0u);
    fs::create_hard_link("file", "link");
    EXPECT_EQ(error_of(MoveFileW(TEXT("file"), TEXT(".\\file"))), 0u);
    EXPECT_EQ(error_of(MoveFileW(TEXT("file"), TEXT("link"))), kExists);
    EXPECT_EQ(error_of(MoveFileExW(TEXT("file"), TEXT("link"), kReplace)), 0u);
    EXPECT_FALSE(fs::exists("file"));
    EXPECT_EQ(content_of("link"), "content");
    const Opened open(TEXT("link"), GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(error_of(MoveFileExW(TEXT("hidden"), TEXT("link"), kReplace)), kDenied);
    EXPECT_EQ(error_of(MoveFileW(TEXT("link"), TEXT("moved"))), 0u);
}

TEST(FileChange, MovesToAnotherFileSystemByACopy) {
    const Tree dir;
    if (host_facts("/dev/shm").st_dev == host_facts(".").st_dev) {
        GTEST_SKIP() << "no second file system";
    }
    const fs::path other = "/dev/shm" / dir.Path().filename();
    fs::create_directory(other);
    const timespec times[] = {{1'000'000, 5}, {1'000'000'000, 123'456'789}};
    ASSERT_EQ(chmod("file", 04751), 0);
    for (const char *name : {"file", "hidden", "read-only", "to-file"}) {
        utimensat(AT_FDCWD, name, times, AT_SYMLINK_NOFOLLOW);
    }
    const struct {
        const char *name, *target;
        DWORD flags, error;
        const char *there;
    } cases[] = {
        {"file", "file", 0, ERROR_NOT_SAME_DEVICE, ""},
        {"full", "full", kCopy, ERROR_NOT_SAME_DEVICE, ""},
        {"hidden", "none/hidden", kCopy, kNoPath, ""},
        {"file", "file", kCopy | MOVEFILE_WRITE_THROUGH, 0, "file=content "},
        {"to-file", "to-file", kCopy, 0, "file=content to-file->file "},
        {"hidden", "file", kCopy, kExists, "file=content to-file->file "},
        {"hidden", "new", kCopy | kReplace, 0, "file=content new=h to-file->file "},
        {"read-only", "new", kCopy | kReplace, 0, "file=content new=r to-file->file "},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(error_of(MoveFileExW(fs::path(c.name).u16string().c_str(),
                                       (other / c.target).u16string().c_str(), c.flags)),
                  c.error);
        EXPECT_EQ(fs::exists(fs::symlink_status(c.name)), c.error != 0) << c.name;
        if (c.error == 0) {
            EXPECT_EQ(host_facts(other / c.target).st_mtim.tv_nsec, 123'456'789);
            EXPECT_EQ(host_facts(other / c.target).st_atim.tv_sec, 1'000'000);
        }
        EXPECT_EQ(tree(other), c.there);
    }
    EXPECT_EQ(host_facts(other / "file").st_mode & 07777, 04751u);
    fs::remove_all(other);
}

}  // namespace
