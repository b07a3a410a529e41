// Changes of the tree, access to it and attributes: what is done, and what is refused.

#include <fcntl.h>

#include "support/file_calls.h"

namespace {

constexpr DWORD kReplace = MOVEFILE_REPLACE_EXISTING, kCopy = MOVEFILE_COPY_ALLOWED;
constexpr DWORD kDenied = ERROR_ACCESS_DENIED, kExists = ERROR_ALREADY_EXISTS;
constexpr DWORD kNoFile = ERROR_FILE_NOT_FOUND, kNoPath = ERROR_PATH_NOT_FOUND;
constexpr DWORD kInvalid = ERROR_INVALID_PARAMETER, kTooLong = ERROR_FILENAME_EXCED_RANGE;

// One of each kind.
struct Tree : Planted {
    Tree()
        : Planted(
              "file=content read-only=r hidden=h full/inner= empty/ to-file->file "
              "to-full->full to-nothing->gone") {
        fs::create_hard_link("file", "other-name");
        set(TEXT("read-only"), kReadOnly);
        set(TEXT("hidden"), kHidden);
    }
};

DWORD copy(const WCHAR *from, const WCHAR *to, bool replaces = true) {
    return error_of(CopyFileW(from, to, replaces ? FALSE : TRUE));
}
DWORD move(const WCHAR *from, const WCHAR *to, DWORD flags = 0) {
    return error_of(MoveFileExW(from, to, flags));
}
DWORD open_as(const WCHAR *path, DWORD access, DWORD creation, DWORD flags = 0) {
    return error_of(Opened(path, access, kShareAll, creation, flags));
}
DWORD errno_of(int result) {
    return result == 0 ? 0 : static_cast<DWORD>(errno);
}
// Both ways to ask for attributes, which agree.
DWORD attributes(const std::u16string &path) {
    const DWORD error = error_of(SetFileAttributesW(path.c_str(), kNormal));
    EXPECT_EQ(error_of(GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES), error);
    return error;
}

TEST(File, ChangesWhatItIsForOrNothing) {
    constexpr DWORD kRead = GENERIC_READ, kWrite = GENERIC_WRITE;
    constexpr DWORD kBackup = FILE_FLAG_BACKUP_SEMANTICS, kLink = FILE_FLAG_OPEN_REPARSE_POINT;
    constexpr DWORD kDeletes = FILE_FLAG_DELETE_ON_CLOSE;
    const struct {
        const char *text;
        DWORD (*call)();
        DWORD error;
        const char *gone = "", *made = "";
    } cases[] = {
        {CALL(error_of(RemoveDirectoryW(u"read-only\\"))), ERROR_DIRECTORY},
        {CALL(error_of(RemoveDirectoryW(u"full"))), ERROR_DIR_NOT_EMPTY},
        {CALL(error_of(RemoveDirectoryW(u"empty"))), 0, "empty/ "},
        {CALL(set(u"empty", kReadOnly), error_of(RemoveDirectoryW(u"empty"))), kDenied},
        {CALL(error_of(RemoveDirectoryW(u"to-full\\"))), 0, "to-full->full "},
        {CALL(error_of(RemoveDirectoryW(u"."))), ERROR_CURRENT_DIRECTORY},
        {CALL(error_of(CreateDirectoryW(u"new\\", nullptr))), 0, "", "new/ "},
        {CALL(error_of(CreateDirectoryW(u"file", nullptr))), kExists},
        {CALL(error_of(DeleteFileW(u"read-only"))), kDenied},
        {CALL(error_of(DeleteFileW(u"to-full"))), 0, "to-full->full "},

        {CALL(copy(u"to-file", u"new", false)), 0, "", "new=content "},
        {CALL(copy(u"file", u"to-nothing")), 0, "", "gone=content "},
        {CALL(copy(u"file", u"full/inner")), 0, "full/inner= ", "full/inner=content "},
        {CALL(copy(u"file", u"full/inner", false)), ERROR_FILE_EXISTS},
        {CALL(copy(u"none", u"new")), kNoFile},
        {CALL(copy(u"file", u"new/")), kNoPath},
        {CALL(copy(u"full", u"new")), kDenied},
        {CALL(copy(u"file", u"empty")), kDenied},
        {CALL(copy(u"file", u"hidden")), kDenied},
        {CALL(copy(u"file", u"to-file")), ERROR_SHARING_VIOLATION},

        {CALL(move(u"read-only", u"new", MOVEFILE_WRITE_THROUGH)), 0, "read-only=r ", "new=r "},
        {CALL(move(u"full", u"new/")), 0, "full/ full/inner= ", "new/ new/inner= "},
        {CALL(move(u"file", u".\\file")), 0},
        {CALL(move(u"file", u"other-name", kReplace)), 0, "file=content "},
        {CALL(move(u"file", u"other-name")), kExists},
        {CALL(move(u"file", u"hidden", kReplace)), 0, "file=content hidden=h ", "hidden=content "},
        {CALL(move(u"file", u"to-nothing")), kExists},
        {CALL(move(u"file", u"read-only", kReplace)), kDenied},
        {CALL(move(u"full", u"new", kReplace)), 0, "full/ full/inner= ", "new/ new/inner= "},
        {CALL(move(u"full", u"file", kReplace | MOVEFILE_WRITE_THROUGH)), 0,
         "file=content full/ full/inner= ", "file/ file/inner= "},
        {CALL(move(u"empty", u"to-full", kReplace)), 0, "empty/ to-full->full ", "to-full/ "},
        {CALL(move(u"empty", u"./empty", kReplace)), 0},
        {CALL(move(u"full", u"empty", kReplace)), kDenied},
        {CALL(move(u"full", u"full/inner", kReplace)), kInvalid},
        {CALL(move(u"file", u"new", 16)), kInvalid},
        {CALL(move(u"file", u"new", MOVEFILE_DELAY_UNTIL_REBOOT | kCopy)), kInvalid},

        {CALL(open_as(u"to-nothing", 0, CREATE_NEW)), ERROR_FILE_EXISTS},
        {CALL(open_as(u"to-nothing", 0, OPEN_ALWAYS)), 0, "", "gone= "},
        {CALL(open_as(u"full", kRead, OPEN_EXISTING)), kDenied},
        {CALL(open_as(u"full", kRead, OPEN_EXISTING, kBackup)), 0},
        {CALL(open_as(u"read-only", kWrite, OPEN_EXISTING)), kDenied},
        {CALL(open_as(u"hidden", kWrite, CREATE_ALWAYS)), kDenied},
        {CALL(open_as(u"file", kRead, TRUNCATE_EXISTING)), kInvalid},
        {CALL(open_as(u"file", kRead, OPEN_EXISTING, 0x40000000)), kInvalid},

        {CALL(open_as(u"file", kRead, OPEN_EXISTING, 0x38000100)), 0},  // the hints
        {CALL(open_as(u"file", 0, OPEN_EXISTING, kDeletes)), 0, "file=content "},
        {CALL(open_as(u"new", kWrite, CREATE_NEW, kDeletes)), 0},
        {CALL(open_as(u"to-file", kRead, OPEN_EXISTING, kDeletes)), 0, "file=content "},
        {CALL(open_as(u"to-full", 0, OPEN_EXISTING, kDeletes | kLink)), 0, "to-full->full "},
        {CALL(open_as(u"read-only", kRead, OPEN_EXISTING, kDeletes)), kDenied},
        {CALL(open_as(u"empty", 0, OPEN_EXISTING, kDeletes | kBackup)), kDenied},
        {CALL(open_as(u"to-nothing", kRead, OPEN_ALWAYS, kLink)), 0},
        {CALL(open_as(u"to-file", kWrite, OPEN_EXISTING, kLink)), kDenied},
        {CALL(open_as(u"to-file", kWrite, CREATE_ALWAYS, kLink)), kInvalid},
        {CALL(open_as(u"new", kWrite, OPEN_ALWAYS, kLink)), 0, "", "new= "},

        {CALL(attributes(u"file\\x")), kNoPath},
        {CALL(attributes(u"\xDC61")), kNoPath},
        {CALL(attributes(u"C:" + std::u16string(258, u'/'))), kTooLong},
        {CALL(attributes(u"C:" + std::u16string(257, u'/'))), 0},

        {CALL(errno_of(_wremove(u".\\to-file"))), 0, "to-file->file "},
        {CALL(errno_of(_wremove(u"read-only"))), EACCES},
        {CALL(errno_of(_waccess(u"read-only", 6))), EACCES},
        {CALL(set(u"empty", kReadOnly), errno_of(_waccess(u"empty", 6))), 0},
        {CALL(errno_of(_waccess(u"file", 1))), EINVAL},
        {CALL(errno_of(_waccess(nullptr, 0))), EINVAL}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const Tree dir;
        const Lines before = lines_of();
        EXPECT_EQ(c.call(), c.error);
        const Lines after = lines_of();
        EXPECT_EQ(without(before, after), c.gone);
        EXPECT_EQ(without(after, before), c.made);
    }
}

TEST(File, CopiesWhatBelongsToTheFile) {
    const Tree dir;
    set(TEXT("file"), kSystem);
    const timespec times[] = {{1'000'000, 0}, {1'000'000'000, 123'456'789}};
    ASSERT_EQ(chmod("file", 0440) | utimensat(AT_FDCWD, "file", times, 0), 0);
    EXPECT_EQ(copy(u"file", u"copy", false), 0u);
    EXPECT_EQ(host_facts("copy").st_mode & 07777, 0440u);
    EXPECT_EQ(host_facts("copy").st_mtim.tv_nsec, 123'456'789);
    EXPECT_EQ(GetFileAttributesW(TEXT("copy")), kSystem | kReadOnly);
    // What has no size before it is read.
    EXPECT_EQ(copy(u"/proc/self/status", u"status", false), 0u);
    EXPECT_NE(content_of("status").find("VmRSS"), std::string::npos);

    const Opened reader(TEXT("hidden"), GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(copy(u"hidden", u"new", false), 0u);
    const Opened writer(TEXT("new"), GENERIC_WRITE, FILE_SHARE_WRITE);
    EXPECT_EQ(copy(u"new", u"other", false), ERROR_SHARING_VIOLATION);
    const Opened target(TEXT("full/inner"), GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(copy(u"file", u"full/inner"), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(move(u"file", u"full/inner", kReplace), kDenied);
    EXPECT_EQ(move(u"empty", u"full/inner", kReplace), kDenied);
    EXPECT_EQ(move(u"full/inner", u"moved"), 0u);
}

TEST(File, MovesToAnotherFileSystemByACopy) {
    const Tree dir;
    if (host_facts("/dev/shm").st_dev == host_facts(".").st_dev) {
        GTEST_SKIP() << "no second file system";
    }
    const fs::path other = "/dev/shm" / dir.Path().filename();
    fs::create_directory(other);
    const timespec times[] = {{1'000'000, 5}, {1'000'000'000, 123'456'789}};
    plant("private=p");
    ASSERT_EQ(chmod("file", 04751) + chmod("private", 0600) + chmod("read-only", 0400), 0);
    for (const char *name : {"file", "hidden", "private", "read-only", "to-file"}) {
        utimensat(AT_FDCWD, name, times, AT_SYMLINK_NOFOLLOW);
    }
    const std::tuple<const char *, const char *, DWORD, DWORD, const char *> cases[] = {
        {"file", "file", 0, ERROR_NOT_SAME_DEVICE, ""},
        {"full", "full", kCopy, ERROR_NOT_SAME_DEVICE, ""},
        {"hidden", "none/hidden", kCopy, kNoPath, ""},
        {"file", "file", kCopy | MOVEFILE_WRITE_THROUGH, 0, "file=content "},
        {"to-file", "to-file", kCopy, 0, "file=content to-file->file "},
        {"hidden", "file", kCopy, kExists, "file=content to-file->file "},
        {"hidden", "new", kCopy, 0, "file=content new=h to-file->file "},
        {"read-only", "new", kCopy | kReplace, 0, "file=content new=r to-file->file "},
        {"private", "private", kCopy, 0, "file=content new=r private=p to-file->file "}};
    for (const auto &[name, target, flags, error, there] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(name, target, flags)));
        const fs::path from = name, to = other / target;
        EXPECT_EQ(move(from.u16string().c_str(), to.u16string().c_str(), flags), error);
        EXPECT_EQ(fs::exists(fs::symlink_status(from)), error != 0);
        if (error == 0) {
            EXPECT_EQ(host_facts(to).st_mtim.tv_nsec, 123'456'789);
            EXPECT_EQ(host_facts(to).st_atim.tv_sec, 1'000'000);
        }
        EXPECT_EQ(tree(other), there);
    }
    EXPECT_EQ(host_facts(other / "file").st_mode & 07777, 04751u);
    EXPECT_EQ(host_facts(other / "private").st_mode & 07777, 0600u);
    EXPECT_EQ(host_facts(other / "new").st_mode & 07777, 0400u);
    fs::remove_all(other);
}

}  // namespace
