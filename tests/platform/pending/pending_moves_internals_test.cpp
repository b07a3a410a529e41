// Moves that wait for the next start: nothing is lost, done twice or done by halves.

#include "ostrel/platform/pending/pending_moves.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "ostrel/file/Std_Utils_File.h"
#include "support/file_calls.h"

namespace {

// The steps towards the disk that were taken: s for an fsync, n for a change of names, w for one of
// content. At the one of the number `g_last` the process ends, or the step fails with `g_error`.
thread_local std::string g_steps;
std::size_t g_last = std::string::npos;
bool g_ends = false;
int g_error = ENOSPC;
int g_bootIdError = 0;  // of the file that tells the start

bool step(char kind) {
    const bool is_last = g_steps.size() == g_last;
    if (is_last && g_ends) {
        _exit(0);
    }
    g_steps += kind;
    errno = g_error;
    return !is_last;
}

}  // namespace

extern "C" int open(const char *path, int flags, ...) {
    if (g_bootIdError != 0 && std::string_view(path) == "/proc/sys/kernel/random/boot_id") {
        errno = g_bootIdError;
        return -1;
    }
    return openat(AT_FDCWD, path, flags, 0666);
}

#define STEP(kind, Result, name, parameters, ...)                                          \
    extern "C" Result name parameters {                                                    \
        const auto next = reinterpret_cast<Result(*) parameters>(dlsym(RTLD_NEXT, #name)); \
        return step(kind) ? next(__VA_ARGS__) : -1;                                        \
    }
STEP('s', int, fsync, (int file), file)
STEP('w', int, ftruncate, (int file, off_t size), file, size)
STEP('w', ssize_t, write, (int file, const void *bytes, std::size_t count), file, bytes, count)
STEP('n', int, unlink, (const char *path), path)
STEP('n', int, unlinkat, (int at, const char *path, int flags), at, path, flags)
STEP('n', int, renameat2, (int at, const char *from, int to_at, const char *to, unsigned flags), at,
     from, to_at, to, flags)
STEP('n', int, renameat, (int at, const char *from, int to_at, const char *to), at, from, to_at, to)

namespace {

using ostrel_platform::carry_out_pending_moves;
using ostrel_platform::PendingScope;
using ostrel_platform::record_pending_move;

const std::string kHeader = "ostrel-pending-moves 1";

struct StateDir {
    explicit StateDir(const std::string &planted) : files(planted) {
        setenv("OSTREL_STATE_DIR", state.Path().c_str(), 1);
    }
    ~StateDir() { unsetenv("OSTREL_STATE_DIR"); }

    const TempDir state;
    const Planted files;
    const fs::path record = state.Path() / "pending_moves";
};

DWORD record_move(const std::string &source, const std::string &target, bool replace = false) {
    return record_pending_move(source, &target, replace);
}
DWORD record_delete(const std::string &source) {
    return record_pending_move(source, nullptr, false);
}

// "done failed error" and what was told.
std::string carry_out(PendingScope scope = PendingScope::kAll) {
    char told[5000] = "";
    std::FILE *const log = fmemopen(told, sizeof told, "w");
    const auto outcome = carry_out_pending_moves(scope, log);
    std::fclose(log);
    return std::to_string(outcome.done) + ' ' + std::to_string(outcome.failed) + ' ' +
           std::to_string(outcome.error) + ' ' + told;
}

// Runs `work` in a process that ends before the step of this number. False when there is none.
template <class Work>
bool ended_at(std::size_t number, Work work) {
    const pid_t child = fork();
    if (child == 0) {
        g_steps.clear();
        g_last = number;
        g_ends = true;
        work();
        _exit(1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0;
}

TEST(PendingMoves, AreDoneOnceWhereverTheProgramEnds) {
    std::size_t number = 0;
    for (bool ended = true; ended; ++number) {
        const StateDir dir("a=a b=b c=c d/ e=e f=f");
        // Done twice, the first would put the content of c into b.
        ASSERT_EQ(record_move("a", "b", true) | record_move("c", "a") | record_delete("d"), 0u);
        ASSERT_EQ(record_move("e", "f"), 0u);  // fails
        ASSERT_TRUE(MoveFileExW(TEXT("f"), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT));
        ended = ended_at(number, [] { carry_out(); });
        carry_out();
        EXPECT_EQ(tree(), "a=c b=a e=e ") << number;
        EXPECT_FALSE(fs::exists(dir.record)) << number;
    }
    EXPECT_GT(number, 25u);
}

// Without a rename that spares the target, the host makes a link first and then removes the source.
TEST(PendingMoves, FinishAMoveThatStoppedBetweenLinkAndRemoval) {
    const StateDir dir("a=a b=b");
    ASSERT_EQ(record_move("a", "c") | record_move("b", "d"), 0u);
    ASSERT_TRUE(ended_at(5, [] { carry_out(); }));  // before the first rename
    fs::create_hard_link("a", "c");
    fs::create_hard_link("b", "d");  // not begun: the target is taken
    EXPECT_EQ(carry_out().substr(0, 6), "1 1 0 ");
    EXPECT_EQ(tree(), "b=b c=a d=b ");
}

// What stands on the disk when the power goes: each step is there before the next one begins.
TEST(PendingMoves, ReachTheDiskStepByStep) {
    const StateDir dir("a=");
    fs::remove(dir.state.Path());
    g_steps.clear();
    ASSERT_EQ(record_delete("a"), 0u);
    // The folder's folder, cut and written, the record, its folder.
    EXPECT_EQ(std::exchange(g_steps, ""), "swwss");
    carry_out();
    // A new record is written and put in place of the old one, then the file goes, then the record.
    EXPECT_EQ(g_steps, "nwsnsnsns");
}

TEST(PendingMoves, WaitForAnotherStart) {
    const StateDir dir("a=a b=b");
    std::ofstream(dir.record) << kHeader.substr(0, 9);  // all that was written when the power went
    ASSERT_EQ(record_delete("a"), 0u);
    const std::string asked = content_of(dir.record);
    EXPECT_EQ(carry_out(PendingScope::kEarlierStarts), "0 0 0 ");
    EXPECT_EQ(content_of(dir.record), asked);
    std::ofstream(dir.record, std::ios::app)
        << "delete earlier asked " << (dir.files.Path() / "b").string() << '\n';
    EXPECT_EQ(carry_out(PendingScope::kEarlierStarts), "1 0 0 ");
    EXPECT_EQ(tree(), "a=a ");
    EXPECT_EQ(content_of(dir.record), asked);
}

TEST(PendingMoves, TakeEveryPathAndTheLinkItself) {
    const StateDir dir("");
    const std::string odd = "\t%41 \n\x7F\xFF\xC3\xA4";
    std::ofstream(odd) << "odd";
    plant("dir/read-only= link->dir");
    fs::permissions("dir/read-only", fs::perms::owner_read);
    ASSERT_EQ(record_move(odd, (dir.files.Path() / odd).string() + "2"), 0u);
    ASSERT_EQ(record_delete("link///") | record_delete("dir/read-only"), 0u);
    fs::current_path("/");
    EXPECT_EQ(carry_out(), "3 0 0 ");
    EXPECT_EQ(tree(dir.files.Path()), odd + "2=odd dir/ ");
    EXPECT_EQ(record_delete(""), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(record_move("a", "/proc/a"), ERROR_NOT_SAME_DEVICE);
    EXPECT_EQ(record_delete(std::string(4096, 'a')), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_FALSE(fs::exists(dir.record));
}

TEST(PendingMoves, FailOneByOne) {
    const StateDir dir("full/a=a b=b empty/");
    const std::string place = dir.files.Path().string() + '/';
    ASSERT_EQ(record_delete("full") | record_move("b", "empty", true), 0u);
    ASSERT_EQ(record_move("empty", "b", true) | record_delete("b"), 0u);
    EXPECT_EQ(carry_out(), "1 3 0 delete " + place + "full: Directory not empty\nmove " + place +
                               "b to " + place + "empty: Is a directory\nmove " + place +
                               "empty to " + place + "b: File exists\n");
    EXPECT_EQ(tree(), "empty/ full/ full/a=a ");
}

// The file that a request has begun with has the same inode and time of birth. The number of its
// disk may be another since the last start.
TEST(PendingMoves, GoOnOnlyWithTheVeryFile) {
    for (int changed = 0; changed < 3; ++changed) {
        const StateDir dir("a=a b=b");
        ASSERT_EQ(record_delete("a"), 0u);
        ASSERT_TRUE(ended_at(5, [] { carry_out(); }));  // before the file goes
        std::string record = content_of(dir.record);
        std::size_t at = record.find("begun:");
        for (int field = 0; field <= changed; ++field) {
            at = record.find(':', at) + 1;
        }
        record[at] ^= 1;  // a digit
        std::ofstream(dir.record) << record;
        EXPECT_EQ(carry_out(), "1 0 0 ") << record;
        EXPECT_EQ(tree(), changed == 0 ? "b=b " : "a=a b=b ") << record;
    }
}

TEST(PendingMoves, ReadWhatAnyoneMayHaveWritten) {
    const StateDir dir("a=a");
    const std::string path = dir.files.Path() / "a";
    std::ofstream record(dir.record);
    record << kHeader;
    for (const char *line :
         {"destroy x asked #", "delete x asked a", "delete x asked #%0", "delete x asked #%00",
          "delete x asked # #", "delete  asked #", "delete x asked # ", "delete x begun:1:2 #", "",
          "delete x begun:1:2:3: #", "delete x begun:1:99999999999999999999:3 #",
          "move x asked #"}) {
        record << '\n';
        for (const char c : std::string(line)) {
            record << (c == '#' ? path : std::string(1, c));
        }
    }
    record << "\ndelete x asked /" << std::string(10'000'000, 'x') << "\ndelete x asked " << path;
    record.close();  // the last one has no end
    EXPECT_TRUE(carry_out(PendingScope::kEarlierStarts).starts_with("0 13 0 line 2 of the record"));
    EXPECT_EQ(tree(), "a=a ");
    for (const std::string &foreign : {std::string("root"), kHeader + "0\n"}) {
        std::ofstream(dir.record) << foreign;
        EXPECT_EQ(carry_out(), "0 0 " + std::to_string(EBADMSG) + ' ');
        EXPECT_EQ(record_delete("a"), 13u);  // ERROR_INVALID_DATA
        EXPECT_EQ(content_of(dir.record), foreign);
    }
}

TEST(PendingMoves, TrustNoOtherRecord) {
    const char *const preparations[] = {
        "ln -s $PWD/other $RECORD", "mkfifo $RECORD", "cp other $RECORD; chmod o+w $RECORD",
        "cp other $RECORD; chown 12345 $RECORD", "chmod 777 $OSTREL_STATE_DIR"};
    for (std::size_t i = 0; i < (geteuid() == 0 ? std::size(preparations) : 2); ++i) {
        SCOPED_TRACE(preparations[i]);
        const StateDir dir("");
        std::ofstream("other") << kHeader << "\ndelete x asked "
                               << (dir.files.Path() / "other").string() << '\n';
        setenv("RECORD", dir.record.c_str(), 1);
        ASSERT_EQ(std::system(preparations[i]), 0);
        EXPECT_EQ(record_delete("other"), ERROR_ACCESS_DENIED);
        EXPECT_EQ(carry_out(), "0 0 " + std::to_string(EACCES) + ' ');
        EXPECT_TRUE(fs::exists("other"));
    }
}

TEST(PendingMoves, LeaveTheRecordAloneOnAFullDisk) {
    const StateDir dir("a=a");
    const auto try_when_full = [&dir](auto call, auto outcome) {
        const std::string before = content_of(dir.record);
        for (g_last = 1; g_last < 4; ++g_last) {
            g_steps.clear();
            EXPECT_EQ(call(), outcome) << g_last;
            EXPECT_EQ(content_of(dir.record), before) << g_last;
        }
        g_last = std::string::npos;
    };
    const auto record = [] { return record_delete("a"); };
    try_when_full(record, ERROR_DISK_FULL);
    EXPECT_FALSE(fs::exists(dir.record));
    ASSERT_EQ(record(), 0u);
    try_when_full(record, ERROR_DISK_FULL);
    try_when_full([] { return carry_out(); }, "0 0 " + std::to_string(ENOSPC) + ' ');
    EXPECT_EQ(tree(), "a=a ");  // none begins without a note
}

TEST(PendingMoves, AreNotMadeAtOnceWithoutTheNumberOfTheStart) {
    for (const auto &[error, code] : {std::pair(EIO, DWORD{1117}), {ENOENT, ERROR_NOT_SUPPORTED}}) {
        const StateDir dir("a=a b=b");
        g_bootIdError = error;
        EXPECT_EQ(
            error_of(NS_FileUtils::moveFileEx(
                TEXT("a"), TEXT("b"), MOVEFILE_DELAY_UNTIL_REBOOT | MOVEFILE_REPLACE_EXISTING, 0)),
            code);
        EXPECT_EQ(carry_out(PendingScope::kEarlierStarts).substr(0, 4), "0 0 ");
        EXPECT_NE(carry_out(PendingScope::kEarlierStarts), "0 0 0 ");
        g_bootIdError = 0;
        EXPECT_EQ(tree(), "a=a b=b ") << error;
        EXPECT_FALSE(fs::exists(dir.record)) << error;
    }
}

TEST(PendingMoves, StayInTheRecordWhenTheFailurePasses) {
    for (const int error : {EMFILE, ENFILE, ENOMEM, EIO, EINTR, ENOSPC, EDQUOT, EAGAIN, EPERM}) {
        for (const std::size_t last : {5u, 6u}) {  // the deletion, or the sync of its folder
            const StateDir dir("a=a b=b");
            ASSERT_EQ(record_delete("a") | record_move("b", "a"), 0u);
            g_steps.clear();
            g_last = last;
            g_error = error;
            const std::string told = carry_out();
            g_last = std::string::npos;
            g_error = ENOSPC;
            const std::string failure =
                "delete " + (dir.files.Path() / "a").string() + ": " + std::strerror(error);
            if (error != EPERM) {
                EXPECT_EQ(told, "0 0 0 " + failure + "; it and all behind it stay in the record\n");
                EXPECT_EQ(carry_out(), "2 0 0 ");
            } else {
                EXPECT_TRUE(told.find(failure + '\n') != told.npos) << told;
            }
            EXPECT_FALSE(fs::exists(dir.record)) << error;
        }
    }
}

TEST(PendingMoves, ArePrintedWithoutWhatControlsATerminal) {
    const StateDir dir("");
    ASSERT_EQ(record_delete("\u00E4\u009B\u202E\u2067\u200F\xFF\xE2\x80\u3042"), 0u);
    EXPECT_EQ(carry_out(), "0 1 0 delete " + dir.files.Path().string() +
                               "/\u00E4%C2%9B%E2%80%AE%E2%81%A7%E2%80%8F%FF%E2%80\u3042: No such "
                               "file or directory\n");
}

TEST(PendingMoves, OfManyAtOnceAllCount) {
    const StateDir dir("");
    std::atomic<int> at_work = 4;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i, &at_work] {
            for (int k = i * 40; k < (i + 1) * 40; ++k) {
                std::ofstream(std::to_string(k)) << k;
                EXPECT_EQ(record_delete(std::to_string(k)), 0u);
            }
            --at_work;
        });
    }
    // Another takes the record away all the while, and once more at the end.
    std::size_t done = 0;
    for (bool more = true; more;) {
        more = at_work > 0;
        done += carry_out_pending_moves(PendingScope::kAll, stderr).done;
    }
    EXPECT_EQ(done, 160u);
    EXPECT_EQ(tree(), "");
}

}  // namespace
