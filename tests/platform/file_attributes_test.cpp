#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <tuple>

#include "support/file_calls.h"
#include "support/file_tree.h"
#include "support/temp_dir.h"

namespace {

constexpr char kStored[] = "user.DOSATTRIB";

// The text that the host keeps for a file; "-" for none.
std::string stored_text(const char *path) {
    char text[100];
    const ssize_t length = getxattr(path, kStored, text, sizeof text);
    return length < 0 ? "-" : std::string(text, static_cast<std::size_t>(length));
}

mode_t mode_of(const char *path) {
    struct stat facts;
    return stat(path, &facts) == 0 ? facts.st_mode & 0777 : 0;
}

TEST(FileAttributes, AreSetByModeAndByStoredText) {
    const TempDir dir;
    plant("file= sub/ link->file loop->loop");
    chmod("file", 0664);
    const std::tuple<std::string, DWORD, DWORD, mode_t, const char *> steps[] = {
        {"file", kReadOnly | kArchive, kReadOnly | kArchive, 0444, "0x20"},
        {"file", kReadOnly | kHidden, kReadOnly | kHidden, 0444, "0x2"},
        {"file", 0x26 | 0x10 | 0x400, 0x26, 0644, "0x26"},
        {"link", kReadOnly, 0x426, 0644, "0x26"},  // the target's, and not set
        {"loop", kReadOnly, 0x400, 0, "-"},
        {"file", kNormal, kNormal, 0644, "-"},
        {"sub", kReadOnly | kHidden, 0x10 | kReadOnly | kHidden, 0755, "0x3"},
        {"sub/", 0, 0x10, 0755, "-"},
    };
    const auto written = std::filesystem::last_write_time("file");
    for (const auto &[name, wanted, told, mode, stored] : steps) {
        const std::u16string path(name.begin(), name.end());
        set(path.c_str(), wanted);
        EXPECT_EQ(GetFileAttributesW(path.c_str()), told) << name;
        EXPECT_EQ(mode_of(name.c_str()), mode) << name;
        EXPECT_EQ(stored_text(name.c_str()), stored) << name;
    }
    EXPECT_EQ(std::filesystem::last_write_time("file"), written);
    for (int i = 0; i < 2; ++i) {  // lost in silence on a file system without them
        set(TEXT("/proc/self/oom_score_adj"), kHidden);
        EXPECT_EQ(GetFileAttributesW(TEXT("/proc/self/oom_score_adj")), kNormal);
    }
}

TEST(FileAttributes, TakeTheTextThatFileServersStore) {
    const TempDir dir;
    plant("file=");
    const std::pair<std::string, DWORD> cases[] = {
        {"0x26", 0x26},           {std::string("0x22\0\3\0\3\0and more", 17), 0x22},
        {"0x31", 0x20},  // READONLY of a file is in its mode
        {"22", kNormal},          {"0x2z", kNormal},
        {"0x100000002", kNormal}, {std::string("\0\0\4\0", 4), kNormal},
        {"0x1121", 0x20},
    };
    for (const auto &[text, told] : cases) {
        ASSERT_EQ(setxattr("file", kStored, text.data(), text.size(), 0), 0);
        EXPECT_EQ(GetFileAttributesW(TEXT("file")), told) << text;
    }
    set(TEXT("file"), kHidden);
    EXPECT_EQ(stored_text("file"), "0x1102");  // what it does not know stays
}

TEST(FileAttributes, TellWhyTheyCannotBeHad) {
    const TempDir dir;
    plant("file=");
    const std::u16string tooLong(260, u'/');
    const std::pair<std::u16string, DWORD> cases[] = {{u"none", ERROR_FILE_NOT_FOUND},
                                                      {u"file\\x", ERROR_PATH_NOT_FOUND},
                                                      {u"\xDC61", ERROR_PATH_NOT_FOUND},
                                                      {u"file\xD83D", ERROR_PATH_NOT_FOUND},
                                                      {tooLong, ERROR_FILENAME_EXCED_RANGE}};
    for (const auto &[path, code] : cases) {
        EXPECT_EQ(error_of(GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES), code);
        EXPECT_EQ(error_of(SetFileAttributesW(path.c_str(), kHidden)), code);
    }
    EXPECT_EQ(GetFileAttributesW(tooLong.c_str() + 1), kDirectory);
}

TEST(FileAttributes, AnOrdinaryOwnerNeedsNoWritePermissionAndOthersGetNothing) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "cannot become another user";
    }
    const TempDir dir;
    plant("own= other=");
    constexpr uid_t kNobody = 65534;
    ASSERT_EQ(chmod("own", 0444) | chown("own", kNobody, kNobody) | chmod(".", 0755), 0);
    ASSERT_EQ(seteuid(kNobody), 0);
    set(TEXT("own"), kReadOnly | kHidden);
    set(TEXT("other"), kNormal);
    EXPECT_EQ(error_of(SetFileAttributesW(TEXT("other"), kHidden)), ERROR_ACCESS_DENIED);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(mode_of("own"), 0444u);
    EXPECT_EQ(stored_text("own"), "0x2");
}

TEST(FileTimes, ATimeOfCreationThatWasSetIsKept) {
    const TempDir dir;
    plant("file=");
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
