// What the host refuses to an ordinary user.

#include "ostrel/file/Std_Utils_File.h"
#include "support/child.h"
#include "support/file_calls.h"

namespace {

using namespace NS_FileUtils;

constexpr uid_t kNobody = 65534;

// Another user, or another root, is only for root.
struct HostLimits : testing::Test {
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs a second user";
        }
    }
};

TEST_F(HostLimits, AnOrdinaryUserIsToldWhatIsRefused) {
    const Planted dir("locked/f=1 open/f=2 mine/f=3");
    ASSERT_EQ(chmod("locked", 0700) | chmod(dir.Path().c_str(), 0755) | chmod("open/f", 0600) |
                  chown("mine", kNobody, kNobody),
              0);
    const Lines before = lines_of();
    EXPECT_TRUE(holds_in_child([] {
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
    }));
    EXPECT_EQ(lines_of(), before);
}

// Directories that may be used and not listed, and files that may not be changed.
TEST_F(HostLimits, AnOrdinaryUserUsesWhatIsAllowed) {
    const Planted dir("s/f=1 s/d/g=2 copied/ moved/ silent/f=12345 theirs/locked=3 theirs/f=4");
    fs::create_directory("copied");
    fs::create_directory("moved");
    EXPECT_EQ(chmod(dir.Path().c_str(), 0755) | chmod("copied", 0333) | chmod("moved", 0333) |
                  chmod("silent", 0111) | chmod("theirs", 0777) | chmod("theirs/locked", 0444) |
                  std::system("chown -R 65534 s"),
              0);
    EXPECT_TRUE(holds_in_child([] {
        EXPECT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        EXPECT_EQ(copyDirectory(TEXT("s"), TEXT("copied"), 1, 0, 0), 1);
        EXPECT_EQ(moveDirectory(TEXT("s"), TEXT("moved"), 1, 0), 1);
        EXPECT_EQ(calcFileSize(TEXT("silent"), TEXT("f"), 0, nullptr, false, nullptr), 5u);
        EXPECT_EQ(calcFileSize(TEXT("silent"), TEXT("*"), 0, nullptr, false, nullptr), 0u);
        deleteTree(TEXT("theirs"), nullptr, nullptr, 1, 1, TEXT("*"));
    }));
    EXPECT_EQ(tree(),
              "copied/ copied/d/ copied/d/g=2 copied/f=1 moved/ moved/d/ moved/d/g=2 moved/f=1 s/ "
              "silent/ silent/f=12345 theirs/ theirs/locked=3 ");
}

}  // namespace
