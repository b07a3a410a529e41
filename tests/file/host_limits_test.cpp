// What the host refuses: an ordinary user, a file system that is full.

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ostrel/file/Std_Utils_File.h"
#include "support/file_calls.h"

namespace {

using namespace NS_FileUtils;

constexpr int kSkipped = 77;

// Runs `job` in a child. Result: its exit code, 0 when all that it expects holds.
int in_child(void (*job)()) {
    const pid_t child = fork();
    if (child == 0) {
        job();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(HostLimits, AnOrdinaryUserIsToldWhatIsRefused) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "cannot become another user";
    }
    const Planted dir("locked/f=1 open/f=2 mine/f=3");
    constexpr uid_t kNobody = 65534;
    ASSERT_EQ(chmod("locked", 0700) | chmod(dir.Path().c_str(), 0755) | chmod("open/f", 0600) |
                  chown("mine", kNobody, kNobody),
              0);
    const Lines before = lines_of();
    const int result = in_child([] {
        ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        EXPECT_EQ(error_of(copyFileEx(TEXT("open\\f"), TEXT("mine\\g"), false)),
                  ERROR_ACCESS_DENIED);
        EXPECT_EQ(copyDirectory(TEXT("mine"), TEXT("open\\new"), 1, 1, 1), 0);
        EXPECT_EQ(copyDirectory(TEXT("locked"), TEXT("mine"), 0, 1, 1), 0);
        EXPECT_EQ(copyDirectory(TEXT("locked"), TEXT("mine"), 1, 1, 1), 0);
        EXPECT_EQ(moveDirectory(TEXT("locked"), TEXT("mine"), 1, 0), 0);
        EXPECT_FALSE(moveFileEx(TEXT("open\\f"), TEXT("mine\\new"), 0, 1));
        EXPECT_EQ(calcFileSize(TEXT("."), TEXT("*"), 0, nullptr, true, nullptr), 2u);
        std::string outcomes;
        const auto note = [](const WCHAR *, int deleted, void *context) {
            *static_cast<std::string *>(context) += deleted != 0 ? '+' : '-';
        };
        deleteTree(TEXT("open"), note, &outcomes, 1, 1, TEXT("*"));
        EXPECT_EQ(outcomes, "--");
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(lines_of(), before);
}

TEST(HostLimits, AFullFileSystemEndsACopyAndLosesNoSource) {
    const Planted dir("disk/ small=1");
    dir.Write("big", std::string(100'000, 'x'));
    const int result = in_child([] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "disk", "tmpfs", 0, "size=64k") != 0) {
            _exit(kSkipped);
        }
        EXPECT_EQ(error_of(copyFileEx(TEXT("big"), TEXT("disk\\big"), true)), ERROR_DISK_FULL);
        EXPECT_GT(fs::file_size("disk/big"), 16383u);
        fs::remove("disk/big");
        EXPECT_EQ(error_of(moveFileEx(TEXT("big"), TEXT("disk\\big"), MOVEFILE_COPY_ALLOWED, 0)),
                  ERROR_DISK_FULL);
        EXPECT_EQ(tree("disk"), "");
        EXPECT_TRUE(moveFileEx(TEXT("small"), TEXT("disk\\s"), MOVEFILE_COPY_ALLOWED, 0));
        EXPECT_EQ(tree("disk"), "s=1 ");
    });
    if (result == kSkipped) {
        GTEST_SKIP() << "may not mount";
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(fs::file_size("big"), 100'000u);
}

}  // namespace
