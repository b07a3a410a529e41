// Files whose host calls are interrupted, short, or fail: those calls are defined here.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <set>
#include <string>
#include <thread>

#include "support/file_calls.h"
#include "support/temp_dir.h"

namespace {

constexpr std::size_t kEndless = static_cast<std::size_t>(-1);

// The calls that fail, each with `g_error`.
std::set<std::string> g_failing;
int g_error = EIO;
// Reads and writes move 3 bytes, every other one is interrupted; after `g_left` bytes written,
// `g_error`, or nothing at all when that is 0.
bool g_short = false;
std::size_t g_left = kEndless;
std::atomic<int> g_calls{0};

bool fails(const std::string &call) {
    const bool failing = g_failing.count(call) != 0;
    errno = failing ? g_error : errno;
    return failing;
}

bool is_interrupted() {
    const bool interrupted = g_short && ++g_calls % 2 == 0;
    errno = interrupted ? EINTR : errno;
    return interrupted;
}

}  // namespace

extern "C" ssize_t read(int file, void *bytes, std::size_t count) {
    return is_interrupted()
               ? -1
               : syscall(SYS_read, file, bytes, g_short ? std::min<std::size_t>(count, 3) : count);
}

extern "C" ssize_t write(int file, const void *bytes, std::size_t count) {
    if (!g_short) {
        return syscall(SYS_write, file, bytes, count);
    }
    if (is_interrupted()) {
        return -1;
    }
    if (g_left == 0) {
        errno = g_error;
        return g_error == 0 ? 0 : -1;
    }
    const std::size_t part = std::min({count, g_left, std::size_t{3}});
    g_left -= g_left == kEndless ? 0 : part;
    return syscall(SYS_write, file, bytes, part);
}

extern "C" ssize_t copy_file_range(int in, off64_t *in_at, int out, off64_t *out_at,
                                   std::size_t count, unsigned flags) {
    return fails("copy_file_range")
               ? -1
               : syscall(SYS_copy_file_range, in, in_at, out, out_at, count, flags);
}

extern "C" int fchown(int file, uid_t user, gid_t group) {
    return fails("fchown") ? -1 : static_cast<int>(syscall(SYS_fchown, file, user, group));
}

extern "C" int close(int file) {
    const int mode = static_cast<int>(syscall(SYS_fcntl, file, F_GETFL)) & O_ACCMODE;
    const int result = static_cast<int>(syscall(SYS_close, file));
    return mode == O_WRONLY && fails("close") ? -1 : result;
}

extern "C" int unlink(const char *path) {
    return fails(std::string("unlink ") + path)
               ? -1
               : static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

extern "C" int renameat2(int in, const char *source, int out, const char *target, unsigned flags) {
    return std::string(source).find(".ostrel-") == std::string::npos && fails("renameat2")
               ? -1
               : static_cast<int>(syscall(SYS_renameat2, in, source, out, target, flags));
}

namespace {

struct Faults {
    explicit Faults(std::set<std::string> failing, int error = EIO) {
        g_failing = std::move(failing), g_error = error;
    }
    ~Faults() { g_failing.clear(), g_short = false, g_left = kEndless; }
    Faults &operator=(Faults &&) = delete;  // nor copied
};

TEST(FileFaults, ReadAndWriteThroughInterruptionsUntilAnError) {
    const TempDir dir;
    const Opened file(TEXT("file"), GENERIC_READ | GENERIC_WRITE, kShareAll, CREATE_NEW);
    DWORD done = 0;
    {
        const Faults faults({}, ENOSPC);
        g_short = true;
        g_left = 16;
        EXPECT_TRUE(WriteFile(file.handle, "0123456789", 10, &done, nullptr));
        EXPECT_EQ(done, 10u);
        EXPECT_EQ(error_of(WriteFile(file.handle, "0123456789", 10, &done, nullptr)),
                  ERROR_DISK_FULL);
        EXPECT_EQ(done, 6u);
        g_error = 0;
        EXPECT_EQ(error_of(WriteFile(file.handle, "x", 1, &done, nullptr)), 1117u);  // IO_DEVICE
        EXPECT_EQ(done, 0u);
    }
    const Opened again(TEXT("file"), GENERIC_READ);
    const Faults faults({});
    g_short = true;
    char bytes[20];
    EXPECT_TRUE(ReadFile(again.handle, bytes, 20, &done, nullptr));
    EXPECT_EQ(std::string(bytes, done), "0123456789012345");
}

TEST(FileFaults, KeepTheStepsOfOneWriteTogether) {
    const TempDir dir;
    const Opened file(TEXT("file"), GENERIC_WRITE, kShareAll, CREATE_NEW);
    const Faults faults({});
    g_short = true;
    const auto write_records = [&file](const char *record) {
        for (DWORD done, i = 0; i < 500; ++i) {
            WriteFile(file.handle, record, 10, &done, nullptr);
        }
    };
    std::thread other(write_records, "bbbbbbbbbb");
    write_records("aaaaaaaaaa");
    other.join();
    g_short = false;
    const std::string content = content_of("file");
    for (std::size_t at = 0; at < content.size(); at += 10) {
        ASSERT_EQ(content.substr(at, 10), std::string(10, content[at]));
    }
}

TEST(FileFaults, ACopyIsWholeOrLeavesNothing) {
    const TempDir dir;
    dir.Write("file", "0123456789");
    dir.Write("target", "old");
    {
        const Faults faults({"close"});
        EXPECT_EQ(error_of(CopyFileW(TEXT("file"), TEXT("target"), FALSE)), 1117u);  // IO_DEVICE
    }
    {
        const Faults faults({"copy_file_range"}, ENOSPC);
        g_short = true;
        g_left = 7;
        EXPECT_EQ(error_of(CopyFileW(TEXT("file"), TEXT("target"), FALSE)), ERROR_DISK_FULL);
    }
    EXPECT_EQ(content_of("target"), "old");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 2);
    const Faults faults({"copy_file_range"}, EXDEV);
    g_short = true;
    EXPECT_EQ(error_of(CopyFileW(TEXT("file"), TEXT("target"), FALSE)), 0u);
    EXPECT_EQ(content_of("target"), "0123456789");
}

TEST(FileFaults, MovesWhereTheHostHasNoExclusiveRename) {
    const TempDir dir;
    dir.Write("a", "content");
    dir.Write("there", "old");
    std::filesystem::create_directory("folder");
    const Faults faults({"renameat2"}, EINVAL);
    EXPECT_EQ(error_of(MoveFileW(TEXT("a"), TEXT("there"))), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(error_of(MoveFileW(TEXT("folder"), TEXT("there"))), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(error_of(MoveFileW(TEXT("folder"), TEXT("folder2"))), 0u);
    EXPECT_EQ(error_of(MoveFileW(TEXT("a"), TEXT("b"))), 0u);
    g_failing.insert("unlink b");
    EXPECT_NE(error_of(MoveFileW(TEXT("b"), TEXT("c"))), 0u);
    EXPECT_EQ(content_of("b") + content_of("there") + content_of("c"), "contentold");
}

TEST(FileFaults, AMoveByCopyNeverLosesTheSource) {
    const TempDir dir;
    dir.Write("file", "content");
    chmod("file", 04751);
    const Faults faults({"renameat2", "close"}, EXDEV);
    EXPECT_NE(error_of(MoveFileW(TEXT("file"), TEXT("new"))), 0u);
    EXPECT_FALSE(std::filesystem::exists("new"));
    g_failing = {"renameat2", "fchown", "unlink file"};
    EXPECT_EQ(error_of(MoveFileW(TEXT("file"), TEXT("new"))), 0u);
    EXPECT_EQ(content_of("file") + content_of("new"), "contentcontent");
    struct stat facts;
    ASSERT_EQ(stat("new", &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0751u);  // not the rights of an owner who did not come along
}

}  // namespace
