#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstddef>
#include <functional>
#include <tuple>
#include <vector>

#include "ostrel/platform/error.h"
#include "ostrel/platform/file.h"
#include "ostrel/platform/find.h"
#include "ostrel/platform/handle.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

constexpr DWORD kReadOnly = FILE_ATTRIBUTE_READONLY;
constexpr DWORD kHidden = FILE_ATTRIBUTE_HIDDEN;
constexpr DWORD kArchive = FILE_ATTRIBUTE_ARCHIVE;
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

// What a child process gives as its exit code: what it changes for itself stays there.
int in_child(const std::function<int()> &body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(FileAttributes, AreSetByModeAndByStoredText) {
    const TempDir dir;
    dir.Write("file", "");
    chmod("file", 0664);
    fs::create_directory("sub");
    const std::tuple<std::string, DWORD, DWORD, mode_t, const char *> steps[] = {
        {"file", kReadOnly | kArchive, kReadOnly | kArchive, 0444, "0x20"},
        {"file", kReadOnly | kHidden, kReadOnly | kHidden, 0444, "0x2"},
        {"file", 0x26 | 0x10 | 0x400, 0x26, 0644, "0x26"},
        {"file", FILE_ATTRIBUTE_NORMAL, FILE_ATTRIBUTE_NORMAL, 0644, "-"},
        {"sub", kReadOnly | kHidden, 0x10 | kReadOnly | kHidden, 0755, "0x3"},
        {"sub/", 0, 0x10, 0755, "-"},
    };
    const fs::file_time_type written = fs::last_write_time("file");
    for (const auto &[name, set, told, mode, stored] : steps) {
        const std::u16string path(name.begin(), name.end());
        EXPECT_TRUE(SetFileAttributesW(path.c_str(), set));
        EXPECT_EQ(GetFileAttributesW(path.c_str()), told);
        EXPECT_EQ(mode_of(name.c_str()), mode);
        EXPECT_EQ(stored_text(name.c_str()), stored);
    }
    EXPECT_EQ(fs::last_write_time("file"), written);
}

TEST(FileAttributes, TakeTheTextThatFileServersStore) {
    const TempDir dir;
    dir.Write("file", "");
    const std::pair<std::string, DWORD> cases[] = {
        {"0x26", 0x26},
        {std::string("0x22\0\3\0\3\0and more", 17), 0x22},
        {"0x31", 0x20},  // READONLY of a file is in its mode
        {"22", FILE_ATTRIBUTE_NORMAL},
        {"0x2z", FILE_ATTRIBUTE_NORMAL},
        {"0x100000002", FILE_ATTRIBUTE_NORMAL},
        {std::string("\0\0\4\0", 4), FILE_ATTRIBUTE_NORMAL},
    };
    for (const auto &[text, told] : cases) {
        ASSERT_EQ(setxattr("file", kStored, text.data(), text.size(), 0), 0);
        EXPECT_EQ(GetFileAttributesW(TEXT("file")), told) << text;
    }
    ASSERT_EQ(setxattr("file", kStored, "0x1121", 6, 0), 0);
    EXPECT_TRUE(SetFileAttributesW(TEXT("file"), kHidden));
    EXPECT_EQ(stored_text("file"), "0x1102");  // what it does not know stays
}

TEST(FileAttributes, OfLinksAreTheTargetsAndAreNotSet) {
    const TempDir dir;
    dir.Write("file", "");
    fs::create_symlink("file", "link");
    fs::create_symlink("loop", "loop");
    EXPECT_TRUE(SetFileAttributesW(TEXT("link"), kReadOnly));
    EXPECT_TRUE(SetFileAttributesW(TEXT("loop"), kReadOnly));
    EXPECT_EQ(GetFileAttributesW(TEXT("file")), FILE_ATTRIBUTE_NORMAL);
    ASSERT_TRUE(SetFileAttributesW(TEXT("file"), kHidden));
    EXPECT_EQ(GetFileAttributesW(TEXT("link")), kHidden | FILE_ATTRIBUTE_REPARSE_POINT);
    EXPECT_EQ(GetFileAttributesW(TEXT("loop")), FILE_ATTRIBUTE_REPARSE_POINT);
}

TEST(FileAttributes, TellWhyTheyCannotBeHad) {
    const TempDir dir;
    dir.Write("file", "");
    const std::u16string tooLong(260, u'/');
    EXPECT_EQ(GetFileAttributesW(nullptr), INVALID_FILE_ATTRIBUTES);
    const std::pair<DWORD, std::vector<std::u16string>> cases[] = {
        {ERROR_FILE_NOT_FOUND, {u"none"}},
        {ERROR_PATH_NOT_FOUND, {u"none\\x", u"file\\x", u"", u"\xDC61", u"file\xD83D"}},
        {ERROR_FILENAME_EXCED_RANGE, {tooLong}},
    };
    for (const auto &[code, paths] : cases) {
        for (const std::u16string &path : paths) {
            EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);
            EXPECT_EQ(GetLastError(), code);
            EXPECT_FALSE(SetFileAttributesW(path.c_str(), kHidden));
            EXPECT_EQ(GetLastError(), code);
        }
    }
    EXPECT_EQ(GetFileAttributesW(tooLong.c_str() + 1), FILE_ATTRIBUTE_DIRECTORY);
}

TEST(FileAttributes, AFileSystemWithoutThemLosesThemInSilence) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(SetFileAttributesW(TEXT("/proc/self/oom_score_adj"), kHidden));
        EXPECT_EQ(GetFileAttributesW(TEXT("/proc/self/oom_score_adj")), FILE_ATTRIBUTE_NORMAL);
    }
}

TEST(FileAttributes, AnOrdinaryOwnerNeedsNoWritePermissionAndOthersGetNothing) {
    const TempDir dir;
    dir.Write("own", "");
    dir.Write("other", "");
    chmod("own", 0444);
    constexpr uid_t kNobody = 65534;
    ASSERT_EQ(chown("own", kNobody, kNobody) | chmod(dir.Path().c_str(), 0755), 0);
    EXPECT_EQ(in_child([] {
                  if (setresuid(kNobody, kNobody, kNobody) != 0) {
                      return 1;
                  }
                  const bool own = SetFileAttributesW(TEXT("own"), kReadOnly | kHidden);
                  const bool same = SetFileAttributesW(TEXT("other"), FILE_ATTRIBUTE_NORMAL);
                  const bool other = SetFileAttributesW(TEXT("other"), kHidden);
                  return own && same && !other && GetLastError() == ERROR_ACCESS_DENIED ? 0 : 2;
              }),
              0);
    EXPECT_EQ(mode_of("own"), 0444u);
    EXPECT_EQ(stored_text("own"), "0x2");
    EXPECT_EQ(mode_of("other"), 0644u);
}

// Hosts before Linux 6.13 lack the call that reads an attribute in an open directory, and filters
// around containers refuse it.
TEST(FileAttributes, AreReadOnOlderHostsToo) {
    const TempDir dir;
    dir.Write("sub/file", "");
    ASSERT_TRUE(SetFileAttributesW(TEXT("sub\\file"), kHidden));
    for (const unsigned error : {unsigned{ENOSYS}, unsigned{EPERM}}) {
        EXPECT_EQ(in_child([error] {
                      sock_filter filter[] = {
                          BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 464, 0, 1),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
                      const sock_fprog program = {4, filter};
                      if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
                          prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
                          return 1;
                      }
                      WIN32_FIND_DATAW data;
                      const HANDLE search = FindFirstFileW(TEXT("sub\\f*"), &data);
                      return FindClose(search) && data.dwFileAttributes == kHidden &&
                                     GetFileAttributesW(TEXT("sub\\file")) == kHidden
                                 ? 0
                                 : 2;
                  }),
                  0);
    }
}

TEST(FileTimes, ATimeOfCreationThatWasSetIsKept) {
    const TempDir dir;
    dir.Write("file", "");
    const FILETIME creation = {0x12345678, 0x01000000}, none = {0, 0};
    const FILETIME beyond = {0, 0x7FFFFFFF}, noTime = {0, 0x80000000};
    FILETIME before[3], told[3];
    const HANDLE file = CreateFileW(TEXT("file"), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    ASSERT_TRUE(GetFileTime(file, &before[0], &before[1], &before[2]));
    EXPECT_TRUE(SetFileTime(file, &creation, &none, nullptr));
    EXPECT_TRUE(SetFileAttributesW(TEXT("file"), kHidden));
    EXPECT_TRUE(SetFileAttributesW(TEXT("file"), FILE_ATTRIBUTE_NORMAL));
    EXPECT_FALSE(SetFileTime(file, nullptr, nullptr, &noTime));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    const bool reached = SetFileTime(file, nullptr, nullptr, &beyond);  // by few file systems
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    ASSERT_TRUE(GetFileTime(file, &told[0], &told[1], &told[2]));
    EXPECT_EQ(told[0].dwLowDateTime, creation.dwLowDateTime);
    EXPECT_EQ(told[0].dwHighDateTime, creation.dwHighDateTime);
    EXPECT_EQ(told[1].dwLowDateTime, before[1].dwLowDateTime);
    EXPECT_EQ(told[2].dwHighDateTime, reached ? beyond.dwHighDateTime : before[2].dwHighDateTime);
    EXPECT_EQ(told[2].dwLowDateTime, reached ? beyond.dwLowDateTime : before[2].dwLowDateTime);
    EXPECT_TRUE(CloseHandle(file));
}

}  // namespace
