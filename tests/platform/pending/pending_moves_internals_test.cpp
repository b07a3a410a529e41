// Moves that wait for the next start: nothing is lost, done twice or done by halves.

#include "ostrel/platform/pending/pending_moves.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/platform/pending/pending_record.h"
#include "support/child.h"
#include "support/file_calls.h"
#include "support/signals.h"

namespace {

enum class End { kNone, kKill, kPowerLoss };

// The steps towards the disk that were taken: s for an fsync, n for a change of names, w for one of
// content. At the one of the number `g_last` the process ends, or the step fails with `g_error`.
thread_local std::string g_steps;
std::size_t g_last = std::string::npos;
End g_end = End::kNone;
int g_error = ENOSPC;
int g_bootIdError = 0;  // of the file that tells the start
std::string g_synced;   // the record on the disk

fs::path record_path() {
    return fs::path(getenv("OSTREL_STATE_DIR")) / "pending_moves";
}

void note_synced(int file) {
    std::error_code none;
    if (g_end == End::kPowerLoss &&
        fs::equivalent("/proc/self/fd/" + std::to_string(file), record_path(), none)) {
        g_synced = content_of(record_path());
    }
}

bool step(char kind) {
    const bool is_last = g_steps.size() == g_last;
    if (is_last && g_end != End::kNone) {
        g_last = std::string::npos;
        if (g_end == End::kPowerLoss && fs::exists(record_path())) {
            std::ofstream(record_path()) << g_synced;
        }
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
STEP('s', int, fsync, (int file), (note_synced(file), file))
STEP('s', int, fdatasync, (int file), (note_synced(file), file))
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
using ostrel_platform::PendingVerb;
using ostrel_platform::record_pending_move;

const std::string kHeader = "ostrel-pending-moves 2";

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

// The line of a deletion that was asked for at an earlier start.
std::string earlier_delete(const std::string &path) {
    return ostrel_platform::line_of_request({PendingVerb::kDelete, "earlier", {}, path, {}});
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
bool ended_at(std::size_t number, Work work, End kind = End::kKill) {
    const auto run = [&] {
        g_steps.clear();
        g_last = number;
        g_end = kind;
        g_synced = content_of(record_path());
        work();
        return 1;
    };
    return exit_of_child(run) == 0;
}

// After a power loss, changes of names are on the disk, and marks that were not synced are lost.
// Then someone makes the sources again that are gone, and they stay.
TEST(PendingMoves, AreDoneOnceWhereverTheProgramEnds) {
    for (const End kind : {End::kKill, End::kPowerLoss}) {
        SCOPED_TRACE(kind == End::kKill ? "kill" : "power loss");
        std::size_t number = 0;
        for (bool ended = true; ended; ++number) {
            const StateDir dir("a=a b=b c=c d/ e=e f=f");
            // Done twice, the first would put the content of c into b.
            ASSERT_EQ(record_move("a", "b", true) | record_move("c", "a") | record_delete("d"), 0u);
            ASSERT_EQ(record_move("e", "f"), 0u);  // fails
            ASSERT_TRUE(MoveFileExW(TEXT("f"), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT));
            ended = ended_at(
                number, [] { carry_out(); }, kind);
            const char *const again = fs::exists("f") ? "" : "f=new ";
            plant(again);
            carry_out();
            EXPECT_EQ(tree(), std::string("a=c b=a e=e ") + again) << number;
            EXPECT_FALSE(fs::exists(dir.record)) << number;
        }
        EXPECT_GT(number, 25u);
    }
}

TEST(PendingMoves, AreDoneOnceWhereverTheRecordingEnds) {
    for (const End kind : {End::kKill, End::kPowerLoss}) {
        std::size_t number = 0;
        for (bool ended = true; ended; ++number) {
            const StateDir dir("a=a b=b");
            const auto record = [] {
                for (const std::string name : {"a", "b"}) {
                    record_delete(name);
                    fs::create_directory("accepted-" + name);
                }
            };
            ended = ended_at(number, record, kind);
            EXPECT_EQ(carry_out().substr(1), " 0 0 ") << number;
            for (const std::string name : {"a", "b"}) {
                EXPECT_FALSE(fs::exists("accepted-" + name) && fs::exists(name)) << number;
            }
            EXPECT_FALSE(fs::exists(dir.record)) << number;
        }
        EXPECT_GT(number, 6u);
    }
}

// A line that was cut off does not become a part of the next one.
TEST(PendingMoves, ReplaceAnIncompleteLine) {
    for (const std::size_t length : {0u, 1u, 60u, 5000u}) {
        const StateDir dir("a=a b=b");
        ASSERT_EQ(record_delete("a"), 0u);
        std::ofstream(dir.record, std::ios::app)
            << earlier_delete('/' + std::string(5000, 'x')).substr(0, length);
        ASSERT_EQ(record_delete("b"), 0u);
        EXPECT_EQ(content_of(dir.record).back(), '\n') << length;
        EXPECT_EQ(carry_out(), "2 0 0 ") << length;
    }
}

// Without a rename that spares the target, the host makes a link first and then removes the source.
TEST(PendingMoves, FinishAMoveThatStoppedBetweenLinkAndRemoval) {
    const StateDir dir("a=a b=b");
    ASSERT_EQ(record_move("a", "c") | record_move("b", "d"), 0u);
    ASSERT_TRUE(ended_at(3, [] { carry_out(); }));  // before the first rename
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
    // The folder's folder, the folder with the empty record, the request.
    EXPECT_EQ(std::exchange(g_steps, ""), "ssws");
    carry_out();
    // The folder of the record, the mark; the file goes; the other mark; the record goes.
    EXPECT_EQ(g_steps, "swsnswns");
}

TEST(PendingMoves, WaitForAnotherStart) {
    const StateDir dir("a=a b=b");
    std::ofstream(dir.record) << kHeader.substr(0, 9);  // all that was written when the power went
    ASSERT_EQ(record_delete("a"), 0u);
    const std::string asked = content_of(dir.record);
    EXPECT_EQ(carry_out(PendingScope::kEarlierStarts), "0 0 0 ");
    EXPECT_EQ(content_of(dir.record), asked);
    std::ofstream(dir.record, std::ios::app) << earlier_delete(dir.files.Path() / "b");
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
    EXPECT_EQ(record_move("a", "/proc/a"), ERROR_NOT_SAME_DEVICE);
}

TEST(PendingMoves, FailOneByOne) {
    const StateDir dir("full/a=a b=b empty/");
    const std::string place = dir.files.Path().string() + '/';
    ASSERT_EQ(record_delete("full") | record_move("b", "empty", true), 0u);
    ASSERT_EQ(record_delete("\u009B\u3042\xFF") | record_delete("b"), 0u);
    EXPECT_EQ(carry_out(), "1 3 0 delete " + place + "full: Directory not empty\nmove " + place +
                               "b to " + place + "empty: Is a directory\ndelete " + place +
                               "%C2%9B\u3042%FF: No such file or directory\n");  // no escapes
    EXPECT_EQ(tree(), "empty/ full/ full/a=a ");
}

// A begun request goes on only with the file that it has begun with, by inode and time of birth. A
// mark of which some blocks were lost does not count.
TEST(PendingMoves, GoOnOnlyWithTheVeryFile) {
    constexpr char kOther = '\0';
    const std::tuple<const char *, std::size_t, char, const char *> cases[] = {
        {"waits", 0, '.', "b=b "},
        {"ended", 0, 'x', "a=a b=b "},
        {"other inode", 17, kOther, "a=a b=b "},
        {"other time", 34, kOther, "a=a b=b "},
        {"the mark has no end", 34, '-', "b=b "}};
    for (const auto &[name, at, change, expected] : cases) {
        const StateDir dir("a=a b=b");
        ASSERT_EQ(record_delete("a"), 0u);
        ASSERT_TRUE(ended_at(3, [] { carry_out(); }));  // before the file goes
        std::string record = content_of(dir.record);
        char &changed = record[kHeader.size() + 1 + at];
        changed = change != kOther ? change : changed == '0' ? '1' : '0';
        std::ofstream(dir.record) << record;
        carry_out();
        EXPECT_EQ(tree(), expected) << name;
    }
}

TEST(PendingMoves, ReadWhatAnyoneMayHaveWritten) {
    const StateDir dir("");
    std::ofstream record(dir.record);
    record << kHeader << '\n' << '\n' << std::string(10'000'000, 'x') << '\n';
    const char *const lines[] = {
        "013b79fc destroy x /a",   "e7388a71 delete x a",     "bfe87d9f delete x /a%0",
        "94d4b989 delete x /a%00", "4329149e delete x /a /a", "020fe9b6 delete  /a",
        "471c0daa delete x /a ",   "eac13386 move x /a",      "a7f2c6da delete x",
        "a1a8a5e9 delete x /a",  // another sum
        "a1a8a5e8 delete x /a",
    };
    for (const char *line : lines) {
        record << ". ---------------- ---------------- " << line << '\n';
    }
    record << earlier_delete("/a").substr(0, 60);
    record.close();  // the last one has no end
    const std::string told = carry_out(PendingScope::kEarlierStarts);
    EXPECT_TRUE(told.starts_with("0 13 0 line 2 of the record is damaged; skipped\n")) << told;
    EXPECT_TRUE(
        told.ends_with("line 13 of the record is damaged; skipped\n"
                       "delete /a: No such file or directory\n"))
        << told;
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
        std::ofstream("other") << kHeader << '\n' << earlier_delete(dir.files.Path() / "other");
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
        for (g_last = 1; g_last < 3; ++g_last) {
            g_steps.clear();
            EXPECT_EQ(call(), outcome) << g_last;
            // All but the mark, which may be there.
            EXPECT_EQ(content_of(dir.record).substr(0, 25), before.substr(0, 25)) << g_last;
            EXPECT_EQ(content_of(dir.record).size(), before.size()) << g_last;
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
        EXPECT_NE(carry_out(PendingScope::kEarlierStarts), "0 0 0 ");
        g_bootIdError = 0;
        EXPECT_EQ(tree(), "a=a b=b ") << error;
        EXPECT_FALSE(fs::exists(dir.record)) << error;
    }
}

TEST(PendingMoves, StayInTheRecordWhenTheFailurePasses) {
    for (const int error : {EMFILE, ENFILE, ENOMEM, EIO, EINTR, ENOSPC, EDQUOT, EAGAIN}) {
        for (const std::size_t last : {3u, 4u}) {  // the deletion, or the sync of its folder
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
            EXPECT_EQ(told, "0 0 0 " + failure + "; it and all behind it stay in the record\n");
            EXPECT_EQ(carry_out(), "2 0 0 ");
        }
    }
}

TEST(PendingMoves, OfManyAtOnceAllCount) {
    const StateDir dir("");
    std::atomic<int> at_work = 4;
    const std::jthread others([&at_work] {
        on_threads(4, [&at_work](std::size_t i) {
            for (std::size_t k = i * 40; k < (i + 1) * 40; ++k) {
                std::ofstream(std::to_string(k)) << k;
                EXPECT_EQ(record_delete(std::to_string(k)), 0u);
            }
            --at_work;
        });
    });
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
