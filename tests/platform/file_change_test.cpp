// Changes of the tree: directories, deleting, copying, moving.

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>

#include "support/file_calls.h"
#include "support/temp_dir.h"

namespace {

constexpr DWORD kReplace = MOVEFILE_REPLACE_EXISTING;

struct stat host_facts(const std::filesystem::path &path) {
    struct stat facts = {};
    EXPECT_EQ(lstat(path.c_str(), &facts), 0) << path;
    return facts;
}

std::ptrdiff_t entries(const std::filesystem::path &directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

// One of each kind: file, read-only, hidden, full/ with a file, empty/, and links to a file, a
// directory and nothing.
class Tree : public TempDir {
public:
    Tree() {
        Write("file", "content");
        Write("read-only", "read-only");
        Write("hidden", "hidden");
        Write("full/inner", "");
        std::filesystem::create_directory("empty");
        std::filesystem::create_symlink("file", "to-file");
        std::filesystem::create_directory_symlink("full", "to-full");
        std::filesystem::create_symlink("gone", "to-nothing");
        EXPECT_TRUE(SetFileAttributesW(TEXT("read-only"), FILE_ATTRIBUTE_READONLY));
        EXPECT_TRUE(SetFileAttributesW(TEXT("hidden"), FILE_ATTRIBUTE_HIDDEN));
    }
    static constexpr std::ptrdiff_t kEntries = 8;
};

TEST(FileChange, RemovesWhatTheCallIsFor) {
    const struct {
        const char *name;
        DWORD remove_directory, delete_file;
    } cases[] = {{"read-only", ERROR_DIRECTORY, ERROR_ACCESS_DENIED},
                 {"full", ERROR_DIR_NOT_EMPTY, ERROR_ACCESS_DENIED},
                 {"empty", 0, ERROR_ACCESS_DENIED},
                 {"to-file", ERROR_DIRECTORY, 0},
                 {"to-full", 0, 0},
                 {"none", ERROR_FILE_NOT_FOUND, ERROR_FILE_NOT_FOUND},
                 {"none/x", ERROR_PATH_NOT_FOUND, ERROR_PATH_NOT_FOUND},
                 {"file/x", ERROR_PATH_NOT_FOUND, ERROR_PATH_NOT_FOUND}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const std::u16string name = std::filesystem::path(c.name).u16string();
        {
            const Tree tree;
            EXPECT_EQ(error_of(RemoveDirectoryW((name + u'\\').c_str())), c.remove_directory);
            EXPECT_EQ(entries("."), tree.kEntries - (c.remove_directory == 0));
        }
        const Tree tree;
        EXPECT_EQ(error_of(DeleteFileW(name.c_str())), c.delete_file);
        EXPECT_EQ(entries("."), tree.kEntries - (c.delete_file == 0));
        EXPECT_TRUE(std::filesystem::exists("file") && std::filesystem::exists("full/inner"));
    }
}

TEST(FileChange, MakesDirectoriesAndKeepsThoseInUse) {
    const Tree tree;
    EXPECT_EQ(error_of(CreateDirectoryW(TEXT("new\\"), nullptr)), 0u);
    EXPECT_EQ(error_of(CreateDirectoryW(TEXT("file"), nullptr)), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(error_of(CreateDirectoryW(TEXT("none/new/"), nullptr)), ERROR_PATH_NOT_FOUND);
    ASSERT_TRUE(SetFileAttributesW(TEXT("new"), FILE_ATTRIBUTE_READONLY));
    EXPECT_EQ(error_of(RemoveDirectoryW(TEXT("new"))), ERROR_ACCESS_DENIED);
    std::filesystem::current_path("empty");
    EXPECT_EQ(error_of(RemoveDirectoryW(TEXT("../empty"))), ERROR_CURRENT_DIRECTORY);
    std::filesystem::current_path(tree.Path());
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
                 {u"none", u"new", FALSE, ERROR_FILE_NOT_FOUND},
                 {u"file", u"none/new", FALSE, ERROR_PATH_NOT_FOUND},
                 {u"file", u"new/", FALSE, ERROR_PATH_NOT_FOUND},
                 {u"full", u"new", FALSE, ERROR_ACCESS_DENIED},
                 {u"file", u"empty", FALSE, ERROR_ACCESS_DENIED},
                 {u"file", u"hidden", FALSE, ERROR_ACCESS_DENIED},
                 {u"file", u"/dev/null", FALSE, ERROR_ACCESS_DENIED},
                 {u"file", u"to-file", FALSE, ERROR_SHARING_VIOLATION}};
    for (const auto &c : cases) {
        const Tree tree;
        SCOPED_TRACE(std::filesystem::path(c.source) / std::filesystem::path(c.target).filename());
        EXPECT_EQ(error_of(CopyFileW(c.source, c.target, c.fail_if_exists)), c.error);
        EXPECT_EQ(content_of("file") + content_of("hidden"), "contenthidden");
        EXPECT_LE(entries("."), tree.kEntries + (c.error == 0));
        EXPECT_TRUE(c.error != 0 || content_of(c.target) == "content");
    }
}

TEST(FileChange, CopiesWhatBelongsToTheFile) {
    const Tree tree;
    ASSERT_TRUE(SetFileAttributesW(TEXT("file"), FILE_ATTRIBUTE_SYSTEM));
    const timespec times[] = {{1'000'000, 0}, {1'000'000'000, 123'456'789}};
    ASSERT_EQ(chmod("file", 0440) + utimensat(AT_FDCWD, "file", times, 0), 0);
    EXPECT_EQ(error_of(CopyFileW(TEXT("file"), TEXT("copy"), TRUE)), 0u);
    const struct stat facts = host_facts("copy");
    EXPECT_EQ(facts.st_mode & 07777, 0440u);
    EXPECT_EQ(facts.st_mtim.tv_nsec, 123'456'789);
    EXPECT_EQ(GetFileAttributesW(TEXT("copy")), FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_READONLY);
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
    constexpr DWORD kDelayed = MOVEFILE_DELAY_UNTIL_REBOOT;
    const struct {
        const WCHAR *source, *target;
        DWORD flags, error;
    } cases[] = {{u"read-only", u"full/new", MOVEFILE_WRITE_THROUGH, 0},
                 {u"full", u"new/", 0, 0},
                 {u"to-full", u"new", 0, 0},
                 {u"file", u"hidden", kReplace, 0},
                 {u"file", u"to-nothing", kReplace, 0},
                 {u"file", u"to-nothing", 0, ERROR_ALREADY_EXISTS},
                 {u"empty", u"full", 0, ERROR_ALREADY_EXISTS},
                 {u"file", u"read-only", kReplace, ERROR_ACCESS_DENIED},
                 {u"file", u"empty", kReplace, ERROR_ACCESS_DENIED},
                 {u"empty", u"new", kReplace, ERROR_ACCESS_DENIED},
                 {u"none", u"file", 0, ERROR_FILE_NOT_FOUND},
                 {u"none/x", u"new", 0, ERROR_PATH_NOT_FOUND},
                 {u"file", u"none/new", 0, ERROR_PATH_NOT_FOUND},
                 {u"file", nullptr, 0, ERROR_INVALID_PARAMETER},
                 {u"file", u"new", 16, ERROR_INVALID_PARAMETER},
                 {u"file", u"new", kDelayed | MOVEFILE_COPY_ALLOWED, ERROR_INVALID_PARAMETER}};
    for (const auto &c : cases) {
        const Tree tree;
        const std::string source = std::filesystem::path(c.source);
        SCOPED_TRACE(source + ' ' + std::to_string(&c - cases));
        struct stat before = {}, after = {};
        lstat(source.c_str(), &before);
        EXPECT_EQ(error_of(MoveFileExW(c.source, c.target, c.flags)), c.error);
        if (c.error == 0) {
            lstat(std::filesystem::absolute(c.target).lexically_normal().c_str(), &after);
            EXPECT_NE(lstat(source.c_str(), &before), 0);
            EXPECT_EQ(after.st_ino, before.st_ino);
        } else {
            EXPECT_EQ(entries("."), tree.kEntries);
            EXPECT_EQ(content_of("file") + content_of("read-only"), "contentread-only");
        }
    }
}

TEST(FileChange, MovesOntoItselfAndOntoAnotherLinkOfTheFile) {
    const Tree tree;
    EXPECT_EQ(error_of(MoveFileW(TEXT("file"), TEXT(".\\file"))), 0u);
    EXPECT_EQ(error_of(MoveFileExW(TEXT("read-only"), TEXT("read-only"), kReplace)), 0u);
    EXPECT_EQ(error_of(MoveFileW(TEXT("full"), TEXT("empty\\..\\full"))), 0u);
    std::filesystem::create_hard_link("file", "link");
    EXPECT_EQ(error_of(MoveFileW(TEXT("file"), TEXT(".\\file"))), 0u);
    EXPECT_EQ(error_of(MoveFileW(TEXT("file"), TEXT("link"))), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(error_of(MoveFileExW(TEXT("file"), TEXT("link"), kReplace)), 0u);
    EXPECT_FALSE(std::filesystem::exists("file"));
    EXPECT_EQ(content_of("link"), "content");
    const Opened open(TEXT("link"), GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(error_of(MoveFileExW(TEXT("hidden"), TEXT("link"), kReplace)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(MoveFileW(TEXT("link"), TEXT("moved"))), 0u);
}

TEST(FileChange, MovesToAnotherFileSystemByACopy) {
    const Tree tree;
    if (host_facts("/dev/shm").st_dev == host_facts(".").st_dev) {
        GTEST_SKIP() << "no second file system";
    }
    const std::filesystem::path other = "/dev/shm" / tree.Path().filename();
    std::filesystem::create_directory(other);
    const auto move = [&other](const char *name, const char *target, DWORD flags) {
        return error_of(MoveFileExW(std::filesystem::path(name).u16string().c_str(),
                                    (other / target).u16string().c_str(), flags));
    };
    constexpr DWORD kCopy = MOVEFILE_COPY_ALLOWED;
    const timespec times[] = {{1'000'000, 5}, {1'000'000'000, 123'456'789}};
    ASSERT_EQ(chmod("file", 04751) + utimensat(AT_FDCWD, "file", times, 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, "to-file", times, AT_SYMLINK_NOFOLLOW), 0);
    EXPECT_EQ(move("file", "file", 0), ERROR_NOT_SAME_DEVICE);
    EXPECT_EQ(move("full", "full", kCopy), ERROR_NOT_SAME_DEVICE);
    EXPECT_EQ(move("hidden", "none/hidden", kCopy), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(entries("."), tree.kEntries);

    EXPECT_EQ(move("file", "file", kCopy | MOVEFILE_WRITE_THROUGH), 0u);
    EXPECT_EQ(move("to-file", "to-file", kCopy), 0u);
    EXPECT_EQ(entries("."), tree.kEntries - 2);
    for (const char *name : {"file", "to-file"}) {
        EXPECT_EQ(host_facts(other / name).st_mtim.tv_nsec, 123'456'789);
        EXPECT_EQ(host_facts(other / name).st_atim.tv_sec, 1'000'000);
    }
    EXPECT_EQ(host_facts(other / "file").st_mode & 07777, 04751u);
    EXPECT_EQ(content_of(other / "to-file"), "content");

    EXPECT_EQ(move("hidden", "file", kCopy), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(content_of("hidden"), "hidden");
    EXPECT_EQ(move("hidden", "file", kCopy | kReplace), 0u);
    EXPECT_EQ(content_of(other / "file"), "hidden");
    EXPECT_EQ(entries(other), 2);
    std::filesystem::remove_all(other);
}

TEST(FileChange, LeavesAFullDiskAsItWas) {
    const TempDir dir;
    std::filesystem::create_directory("disk");
    if (mount("none", "disk", "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "may not mount";
    }
    dir.Write("big", std::string(100'000, 'x'));
    dir.Write("disk/old", "old");
    EXPECT_EQ(error_of(CopyFileW(TEXT("big"), TEXT("disk/old"), FALSE)), ERROR_DISK_FULL);
    EXPECT_EQ(entries("disk"), 1);
    EXPECT_EQ(content_of("disk/old"), "old");
    umount("disk");
}

}  // namespace
