// Changes of the tree, access to it and attributes: what is done, and what is refused.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <tuple>

#include "support/file_calls.h"

namespace {

namespace fs = std::filesystem;

constexpr DWORD kReplace = MOVEFILE_REPLACE_EXISTING, kCopy = MOVEFILE_COPY_ALLOWED;
constexpr DWORD kDenied = ERROR_ACCESS_DENIED, kExists = ERROR_ALREADY_EXISTS;
constexpr DWORD kNoFile = ERROR_FILE_NOT_FOUND, kNoPath = ERROR_PATH_NOT_FOUND;
constexpr DWORD kInvalid = ERROR_INVALID_PARAMETER, kTooLong = ERROR_FILENAME_EXCED_RANGE;

struct stat host_facts(const fs::path &path) {
    struct stat facts = {};
    EXPECT_EQ(lstat(path.c_str(), &facts), 0) << path;
    return facts;
}

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

Lines difference(const Lines &all, const Lines &known) {
    Lines rest;
    std::set_difference(all.begin(), all.end(), known.begin(), known.end(),
                        std::inserter(rest, rest.end()));
    return rest;
}

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

TEST(FileChange, ChangesWhatItIsForOrNothing) {
    constexpr DWORD kRead = GENERIC_READ, kWrite = GENERIC_WRITE;
    constexpr DWORD kBackup = FILE_FLAG_BACKUP_SEMANTICS;
    const struct {
        DWORD (*call)();
        DWORD error;
        const char *gone = "", *made = "";
    } cases[] = {
        {[] { return error_of(RemoveDirectoryW(u"read-only\\")); }, ERROR_DIRECTORY},
        {[] { return error_of(RemoveDirectoryW(u"full")); }, ERROR_DIR_NOT_EMPTY},
        {[] { return error_of(RemoveDirectoryW(u"empty")); }, 0, "empty/ "},
        {[] { return set(u"empty", kReadOnly), error_of(RemoveDirectoryW(u"empty")); }, kDenied},
        {[] { return error_of(RemoveDirectoryW(u"to-full\\")); }, 0, "to-full->full "},
        {[] { return error_of(RemoveDirectoryW(u"file/x")); }, kNoPath},
        {[] { return error_of(RemoveDirectoryW(u".")); }, ERROR_CURRENT_DIRECTORY},
        {[] { return error_of(CreateDirectoryW(u"new\\", nullptr)); }, 0, "", "new/ "},
        {[] { return error_of(CreateDirectoryW(u"file", nullptr)); }, kExists},
        {[] { return error_of(CreateDirectoryW(u"none/new/", nullptr)); }, kNoPath},
        {[] { return error_of(DeleteFileW(u"read-only")); }, kDenied},
        {[] { return error_of(DeleteFileW(u"empty")); }, kDenied},
        {[] { return error_of(DeleteFileW(u"to-full")); }, 0, "to-full->full "},

        {[] { return copy(u"to-file", u"new", false); }, 0, "", "new=content "},
        {[] { return copy(u"file", u"to-nothing"); }, 0, "", "gone=content "},
        {[] { return copy(u"file", u"full/inner"); }, 0, "full/inner= ", "full/inner=content "},
        {[] { return copy(u"file", u"full/inner", false); }, ERROR_FILE_EXISTS},
        {[] { return copy(u"none", u"new"); }, kNoFile},
        {[] { return copy(u"file", u"none/new"); }, kNoPath},
        {[] { return copy(u"file", u"new/"); }, kNoPath},
        {[] { return copy(u"full", u"new"); }, kDenied},
        {[] { return copy(u"file", u"empty"); }, kDenied},
        {[] { return copy(u"file", u"hidden"); }, kDenied},
        {[] { return copy(u"file", u"to-file"); }, ERROR_SHARING_VIOLATION},

        {[] { return move(u"read-only", u"new", MOVEFILE_WRITE_THROUGH); }, 0, "read-only=r ",
         "new=r "},
        {[] { return move(u"full", u"new/"); }, 0, "full/ full/inner= ", "new/ new/inner= "},
        {[] { return move(u"file", u".\\file"); }, 0},
        {[] { return move(u"full", u"empty\\..\\full"); }, 0},
        {[] { return move(u"file", u"other-name", kReplace); }, 0, "file=content "},
        {[] { return move(u"file", u"other-name"); }, kExists},
        {[] { return move(u"file", u"hidden", kReplace); }, 0, "file=content hidden=h ",
         "hidden=content "},
        {[] { return move(u"file", u"to-nothing"); }, kExists},
        {[] { return move(u"file", u"read-only", kReplace); }, kDenied},
        {[] { return move(u"file", u"empty", kReplace); }, kDenied},
        {[] { return move(u"empty", u"new", kReplace); }, kDenied},
        {[] { return move(u"none/x", u"new"); }, kNoPath},
        {[] { return move(u"file", u"none/new"); }, kNoPath},
        {[] { return move(u"file", nullptr); }, kInvalid},
        {[] { return move(u"file", u"new", 16); }, kInvalid},
        {[] { return move(u"file", u"new", MOVEFILE_DELAY_UNTIL_REBOOT | kCopy); }, kInvalid},

        {[] { return open_as(u"no/file", kWrite, CREATE_ALWAYS); }, kNoPath},
        {[] { return open_as(u"to-nothing", 0, CREATE_NEW); }, ERROR_FILE_EXISTS},
        {[] { return open_as(u"to-nothing", 0, OPEN_ALWAYS); }, 0, "", "gone= "},
        {[] { return open_as(u"full", kRead, OPEN_EXISTING); }, kDenied},
        {[] { return open_as(u"full", kRead, OPEN_EXISTING, kBackup); }, 0},
        {[] { return open_as(u"full", kRead, OPEN_ALWAYS, kBackup); }, kDenied},
        {[] { return open_as(u"read-only", kWrite, OPEN_EXISTING); }, kDenied},
        {[] { return open_as(u"read-only", kRead, CREATE_ALWAYS); }, kDenied},
        {[] { return open_as(u"hidden", kWrite, CREATE_ALWAYS); }, kDenied},
        {[] { return open_as(u"file", kRead, TRUNCATE_EXISTING); }, kInvalid},
        {[] { return open_as(u"file", kRead, OPEN_EXISTING, 0x40000000); }, kInvalid},

        {[] { return attributes(u"file\\x"); }, kNoPath},
        {[] { return attributes(u"\xDC61"); }, kNoPath},
        {[] { return attributes(std::u16string(260, u'/')); }, kTooLong},
        {[] { return attributes(std::u16string(259, u'/')); }, 0},

        {[] { return errno_of(_wremove(u".\\to-file")); }, 0, "to-file->file "},
        {[] { return errno_of(_wremove(u"x:\\file")); }, ENOENT},
        {[] { return errno_of(_wremove(u"")); }, ENOENT},
        {[] { return errno_of(_wremove(nullptr)); }, EINVAL},
        {[] { return errno_of(_wremove(u"full")); }, EACCES},
        {[] { return errno_of(_wremove(u"read-only")); }, EACCES},
        {[] { return errno_of(_waccess(u"read-only", 4)); }, 0},
        {[] { return errno_of(_waccess(u"read-only", 6)); }, EACCES},
        {[] { return set(u"empty", kReadOnly), errno_of(_waccess(u"empty", 6)); }, 0},
        {[] { return errno_of(_waccess(u"to-nothing", 6)); }, 0},
        {[] { return errno_of(_waccess(u"file\\x", 0)); }, ENOENT},
        {[] { return errno_of(_waccess(u"file", 1)); }, EINVAL},
        {[] { return errno_of(_waccess(nullptr, 0)); }, EINVAL},
    };
    for (const auto &c : cases) {
        const Tree dir;
        SCOPED_TRACE(&c - cases);
        const Lines before = lines_of();
        EXPECT_EQ(c.call(), c.error);
        const Lines after = lines_of();
        EXPECT_EQ(text(difference(before, after)), c.gone);
        EXPECT_EQ(text(difference(after, before)), c.made);
    }
}

TEST(FileChange, CopiesWhatBelongsToTheFile) {
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
    EXPECT_EQ(move(u"full/inner", u"moved"), 0u);
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
    const std::tuple<const char *, const char *, DWORD, DWORD, const char *> cases[] = {
        {"file", "file", 0, ERROR_NOT_SAME_DEVICE, ""},
        {"full", "full", kCopy, ERROR_NOT_SAME_DEVICE, ""},
        {"hidden", "none/hidden", kCopy, kNoPath, ""},
        {"file", "file", kCopy | MOVEFILE_WRITE_THROUGH, 0, "file=content "},
        {"to-file", "to-file", kCopy, 0, "file=content to-file->file "},
        {"hidden", "file", kCopy, kExists, "file=content to-file->file "},
        {"hidden", "new", kCopy, 0, "file=content new=h to-file->file "},
        {"read-only", "new", kCopy | kReplace, 0, "file=content new=r to-file->file "},
    };
    for (const auto &[name, target, flags, error, there] : cases) {
        const fs::path from = name, to = other / target;
        EXPECT_EQ(move(from.u16string().c_str(), to.u16string().c_str(), flags), error);
        EXPECT_EQ(fs::exists(fs::symlink_status(from)), error != 0) << name;
        if (error == 0) {
            EXPECT_EQ(host_facts(to).st_mtim.tv_nsec, 123'456'789);
            EXPECT_EQ(host_facts(to).st_atim.tv_sec, 1'000'000);
        }
        EXPECT_EQ(tree(other), there);
    }
    EXPECT_EQ(host_facts(other / "file").st_mode & 07777, 04751u);
    fs::remove_all(other);
}

constexpr char kStored[] = "user.DOSATTRIB";

// The text that the host keeps for a file; "-" for none.
std::string stored_text(const char *path) {
    char text[100];
    const ssize_t length = getxattr(path, kStored, text, sizeof text);
    return length < 0 ? "-" : std::string(text, static_cast<std::size_t>(length));
}

TEST(FileAttributes, AreSetByModeAndByStoredText) {
    const Planted dir("file= sub/ link->file loop->loop");
    chmod("file", 0664);
    const std::tuple<std::string, DWORD, DWORD, mode_t, const char *> steps[] = {
        {"file", kReadOnly | kHidden, kReadOnly | kHidden, 0444, "0x2"},
        {"file", 0x26 | 0x10 | 0x400, 0x26, 0644, "0x26"},
        {"link", kReadOnly, 0x426, 0777, "0x26"},  // the target's, and not set
        {"loop", kReadOnly, 0x400, 0777, "-"},
        {"file", kNormal, kNormal, 0644, "-"},
        {"sub", kReadOnly | kHidden, 0x10 | kReadOnly | kHidden, 0755, "0x3"},
        {"sub/", 0, 0x10, 0755, "-"},
    };
    const auto written = fs::last_write_time("file");
    for (const auto &[name, wanted, told, mode, stored] : steps) {
        const std::u16string path(name.begin(), name.end());
        set(path.c_str(), wanted);
        EXPECT_EQ(GetFileAttributesW(path.c_str()), told) << name;
        EXPECT_EQ(host_facts(name).st_mode & 0777, mode) << name;
        EXPECT_EQ(stored_text(name.c_str()), stored) << name;
    }
    EXPECT_EQ(fs::last_write_time("file"), written);
    // Lost in silence on a file system without them.
    set(TEXT("/proc/self/oom_score_adj"), kHidden);
    EXPECT_EQ(GetFileAttributesW(TEXT("/proc/self/oom_score_adj")), kNormal);
}

TEST(FileAttributes, TakeTheTextThatFileServersStore) {
    const Planted dir("file=");
    const std::pair<std::string, DWORD> cases[] = {
        {std::string("0x22\0\3\0\3\0and more", 17), 0x22},
        {"22", kNormal},
        {"0x2z", kNormal},
        {"0x100000002", kNormal},
        {"0x1121", 0x20},  // READONLY of a file is in its mode
    };
    for (const auto &[text, told] : cases) {
        ASSERT_EQ(setxattr("file", kStored, text.data(), text.size(), 0), 0);
        EXPECT_EQ(GetFileAttributesW(TEXT("file")), told) << text;
    }
    set(TEXT("file"), kHidden);
    EXPECT_EQ(stored_text("file"), "0x1102");  // what it does not know stays
}

TEST(FileAttributes, AnOrdinaryOwnerNeedsNoWritePermissionAndOthersGetNothing) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "cannot become another user";
    }
    const Planted dir("own= other=");
    constexpr uid_t kNobody = 65534;
    ASSERT_EQ(chmod("own", 0444) | chown("own", kNobody, kNobody) | chmod(".", 0755), 0);
    ASSERT_EQ(seteuid(kNobody), 0);
    set(TEXT("own"), kReadOnly | kHidden);
    set(TEXT("other"), kNormal);
    EXPECT_EQ(error_of(SetFileAttributesW(TEXT("other"), kHidden)), ERROR_ACCESS_DENIED);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(host_facts("own").st_mode & 0777, 0444u);
    EXPECT_EQ(stored_text("own"), "0x2");
}

TEST(FileTimes, ATimeOfCreationThatWasSetIsKept) {
    const Planted dir("file=");
    const FILETIME creation = {0x12345678, 0x01000000}, none = {0, 0};
    const FILETIME beyond = {0, 0x7FFFFFFF}, noTime = {0, 0x80000000};
    FILETIME before[3], told[3];
    const Opened file(TEXT("file"), GENERIC_READ | GENERIC_WRITE);
    ASSERT_TRUE(GetFileTime(file.handle, &before[0], &before[1], &before[2]));
    EXPECT_TRUE(SetFileTime(file.handle, &creation, &none, nullptr));
    set(TEXT("file"), kHidden);
    set(TEXT("file"), kNormal);
    EXPECT_EQ(error_of(SetFileTime(file.handle, nullptr, nullptr, &noTime)),
              ERROR_INVALID_PARAMETER);
    // Few file systems reach that far.
    const bool reached = SetFileTime(file.handle, nullptr, nullptr, &beyond);
    ASSERT_TRUE(GetFileTime(file.handle, &told[0], &told[1], &told[2]));
    EXPECT_EQ(CompareFileTime(&told[0], &creation), 0);
    EXPECT_EQ(CompareFileTime(&told[1], &before[1]), 0);
    EXPECT_EQ(CompareFileTime(&told[2], reached ? &beyond : &before[2]), 0);
}

}  // namespace
