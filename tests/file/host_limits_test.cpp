// What the host refuses to an ordinary user.

#include <sys/wait.h>
#include <unistd.h>

#include "ostrel/file/Std_Utils_File.h"
#include "support/file_calls.h"

namespace {

using namespace NS_FileUtils;

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
    const pid_t child = fork();
    if (child == 0) {
        EXPECT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
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
        _exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(lines_of(), before);
}

}  // namespace
