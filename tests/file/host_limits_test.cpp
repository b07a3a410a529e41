// What the host refuses: an ordinary user, a file system that is full.

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "ostrel/core/exception.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/browse_directory.h"
#include "support/file_calls.h"
#include "support/file_tree.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace NS_FileUtils;

constexpr int kSkipped = 77;

// The exit code of a child that runs `job`.
int in_child(const std::function<int()> &job) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(job());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void note(const WCHAR *, int result, void *context) {
    *static_cast<std::string *>(context) += result != 0 ? '+' : '-';
}

TEST(HostLimits, AnOrdinaryUserIsToldWhatIsRefused) {
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
                  std::string outcomes;
                  if (setresuid(kNobody, kNobody, kNobody) != 0 ||
                      copyFileEx(TEXT("open\\f"), TEXT("mine\\g"), false) ||
                      GetLastError() != ERROR_ACCESS_DENIED ||
                      copyDirectory(TEXT("mine"), TEXT("open\\new"), 1, 1, 1) != 0 ||
                      copyDirectory(TEXT("locked"), TEXT("mine"), 0, 1, 1) != 0 ||
                      copyDirectory(TEXT("locked"), TEXT("mine"), 1, 1, 1) != 0 ||
                      moveDirectory(TEXT("locked"), TEXT("mine"), 1, 0) != 0 ||
                      moveFileEx(TEXT("open\\f"), TEXT("mine\\new"), 0, 1) ||
                      calcFileSize(TEXT("."), TEXT("*"), 0, nullptr, true, nullptr) != 2) {
                      return 1;
                  }
                  deleteTree(TEXT("open"), note, &outcomes, 1, 1, TEXT("*"));
                  try {
                      OS::CBrowseDirectory().BrowseDirectory(TEXT("."), true, TEXT("*"), nothing);
                      return 2;
                  } catch (const OS::CSystemException &failure) {
                      return failure.GetErrorCode() == EACCES && outcomes == "--" ? 0 : 3;
                  }
              }),
              0);
    EXPECT_EQ(lines_of(), before);
}

TEST(HostLimits, AFullFileSystemEndsACopyAndLosesNoSource) {
    const TempDir dir;
    plant("disk/ small=1");
    dir.Write("big", std::string(100'000, 'x'));
    const int result = in_child([] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "disk", "tmpfs", 0, "size=64k") != 0) {
            return kSkipped;
        }
        if (copyFileEx(TEXT("big"), TEXT("disk\\big"), true) || GetLastError() != ERROR_DISK_FULL ||
            fs::file_size("disk/big") <= 16383) {
            return 1;
        }
        fs::remove("disk/big");
        if (moveFileEx(TEXT("big"), TEXT("disk\\big"), MOVEFILE_COPY_ALLOWED, 0) ||
            GetLastError() != ERROR_DISK_FULL || tree("disk") != "") {
            return 2;
        }
        return moveFileEx(TEXT("small"), TEXT("disk\\s"), MOVEFILE_COPY_ALLOWED, 0) &&
                       tree("disk") == "s=1 "
                   ? 0
                   : 3;
    });
    if (result == kSkipped) {
        GTEST_SKIP() << "may not mount";
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(fs::file_size("big"), 100'000u);
}

}  // namespace
