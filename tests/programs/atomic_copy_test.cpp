// What a copy leaves in the target's folder: nothing of its own, and all that belongs to others.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "support/child.h"
#include "support/file_calls.h"

static bool g_hasUnnamedFiles = true;
static time_t g_later = 0;  // in seconds

extern "C" int open(const char *path, int flags, ...) {
    if ((flags & O_TMPFILE) == O_TMPFILE && !g_hasUnnamedFiles) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return openat(AT_FDCWD, path, flags, 0600);
}

extern "C" time_t time(time_t *) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec + g_later;
}

namespace {

constexpr char kName[] = ".ostrel-copy-0";

BOOL copy(const WCHAR *target) {
    return CopyFileW(TEXT("a"), target, FALSE);
}

// Copies in a process that the host kills after 4 bytes.
int signal_of_killed_copy() {
    return -exit_of_child([] {
        const rlimit limit = {4, 4};
        setrlimit(RLIMIT_FSIZE, &limit);
        signal(SIGXFSZ, SIG_DFL);
        copy(TEXT("b"));
        return 0;
    });
}

TEST(AtomicCopy, RemovesWhatAKilledCopyHasLeft) {
    const Planted dir("a=0123456789");
    const int unnamed = open(".", O_TMPFILE | O_WRONLY, 0600);
    if (unnamed >= 0) {
        close(unnamed);
        EXPECT_EQ(signal_of_killed_copy(), SIGXFSZ);
        EXPECT_EQ(tree(), "a=0123456789 ");
    }
    g_hasUnnamedFiles = false;
    EXPECT_EQ(signal_of_killed_copy(), SIGXFSZ);
    EXPECT_EQ(tree(), ".ostrel-copy-0=0123 a=0123456789 ");
    EXPECT_EQ(error_of(copy(TEXT("other"))), 0u);
    EXPECT_EQ(tree(), "a=0123456789 other=0123456789 ");
    g_hasUnnamedFiles = true;
}

TEST(AtomicCopy, RemovesOnlyWhatNobodyUses) {
    const struct {
        const char *name;
        const char *planted;  // by the shell, at $NAME
        bool stays;
        time_t later = 0;
        bool locked = false;
        uid_t user = 0;  // who copies; only root can be another
    } cases[] = {{"a file", "echo >$NAME", false},
                 {"a read-only file", "echo >$NAME; chmod 400 $NAME", false},
                 {"a locked file", "echo >$NAME", true, 0, true},
                 {"another user's file", "echo >$NAME; chmod 666 $NAME", true, 0, false, 1},
                 {"a link", "ln -s victim $NAME", true},
                 {"an old link", "ln -s victim $NAME", false, 3700},
                 {"another user's link", "ln -s victim $NAME", true, 3700, false, 1},
                 {"a directory", "mkdir $NAME", true},
                 {"a FIFO", "mkfifo $NAME", true, 3700}};
    setenv("NAME", kName, 1);
    for (const bool has_unnamed_files : {false, true}) {
        for (const auto &row : cases) {
            SCOPED_TRACE(std::string(row.name) + (has_unnamed_files ? ", replacing" : ""));
            if (row.user != 0 && geteuid() != 0) {
                continue;
            }
            const Planted dir("a=content old=old victim=victim");
            chmod(".", 0777);
            ASSERT_EQ(std::system(row.planted), 0);
            const int file = row.locked ? open(kName, O_RDONLY) : -1;
            EXPECT_TRUE(!row.locked || flock(file, LOCK_EX) == 0);
            g_hasUnnamedFiles = has_unnamed_files;
            g_later = row.later;
            EXPECT_EQ(seteuid(row.user != 0 ? row.user : geteuid()), 0);
            EXPECT_EQ(error_of(copy(has_unnamed_files && row.user == 0 ? u"old" : u"new")), 0u);
            EXPECT_EQ(seteuid(getuid()), 0);
            close(file);
            // Another user's copy without a name comes to no temporary name.
            EXPECT_EQ(fs::symlink_status(kName).type() != fs::file_type::not_found, row.stays);
            fs::remove(kName);
            EXPECT_EQ(tree().find(".ostrel"), std::string::npos) << tree();
            EXPECT_EQ(content_of("victim"), "victim");
        }
    }
    g_hasUnnamedFiles = true;
    g_later = 0;
}

// A copy takes no file for a leftover that another copy has just made.
TEST(AtomicCopy, SharesTheNamesWithOthers) {
    g_hasUnnamedFiles = false;
    const Planted dir("a=content");
    std::vector<std::jthread> threads;
    for (char16_t name = u'b'; name < u'f'; ++name) {
        threads.emplace_back([target = std::u16string(1, name)] {
            for (int i = 0; i < 300; ++i) {
                ASSERT_EQ(error_of(copy(target.c_str())), 0u);
            }
        });
    }
    threads.clear();
    EXPECT_EQ(tree(), "a=content b=content c=content d=content e=content ");
    g_hasUnnamedFiles = true;
}

TEST(AtomicCopy, FindsANameWhereOthersHaveTakenThemAll) {
    g_hasUnnamedFiles = false;
    const Planted dir("a=content l->a");
    for (int i = 0; i < 32; ++i) {
        fs::create_directory(".ostrel-copy-" + std::to_string(i));
    }
    const Lines before = lines_of();
    EXPECT_EQ(error_of(copy(TEXT("b"))), 0u);
    EXPECT_EQ(without(lines_of(), before), "b=content ");
    g_hasUnnamedFiles = true;
}

}  // namespace
