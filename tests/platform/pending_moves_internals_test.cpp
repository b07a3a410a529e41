// Moves that wait for the next start: nothing is lost, done twice or done by halves.

#include "ostrel/platform/pending_moves.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <tuple>

#include "support/file_calls.h"
#include "support/file_tree.h"
#include "support/temp_dir.h"

namespace {

// The steps towards the disk that were taken: s for an fsync, n for a change of names, w for one of
// content. The process ends before the one of the number `g_end`.
std::string g_steps;
std::size_t g_end = std::string::npos;
std::size_t g_room = std::string::npos;  // the bytes that fit on the disk

void step(char kind) {
    if (g_steps.size() == g_end) {
        _exit(0);
    }
    g_steps += kind;
}

template <class Call>
Call *next(const char *name) {
    return reinterpret_cast<Call *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define STEP(kind, name, parameters, ...)                \
    extern "C" int name parameters {                     \
        step(kind);                                      \
        return next<int parameters>(#name)(__VA_ARGS__); \
    }
STEP('s', fsync, (int file), file)
STEP('w', ftruncate, (int file, off_t size), file, size)
STEP('n', unlink, (const char *path), path)
STEP('n', unlinkat, (int at, const char *path, int flags), at, path, flags)
STEP('n', rmdir, (const char *path), path)
STEP('n', rename, (const char *from, const char *to), from, to)
STEP('n', renameat, (int at, const char *from, int to_at, const char *to), at, from, to_at, to)
STEP('n', renameat2, (int at, const char *from, int to_at, const char *to, unsigned flags), at,
     from, to_at, to, flags)

extern "C" ssize_t pwrite(int file, const void *bytes, std::size_t count, off_t offset) {
    step('w');
    const std::size_t part = std::min(count, g_room);
    g_room -= g_room != std::string::npos ? part : 0;
    errno = ENOSPC;
    return part > 0 ? next<ssize_t(int, const void *, std::size_t, off_t)>("pwrite")(file, bytes,
                                                                                     part, offset)
                    : -1;
}

namespace {

namespace fs = std::filesystem;
using platform::carry_out_pending_moves;
using platform::PendingOutcome;
using platform::PendingScope;
using platform::record_pending_move;

const std::string kHeader = "ostrel-pending-moves 1\n";

struct StateDir {
    StateDir() { setenv("OSTREL_STATE_DIR", state.Path().c_str(), 1); }
    ~StateDir() { unsetenv("OSTREL_STATE_DIR"); }

    const TempDir state, files;
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
    char *told = nullptr;
    std::size_t size = 0;
    std::FILE *const log = open_memstream(&told, &size);
    const PendingOutcome outcome = carry_out_pending_moves(scope, log);
    std::fclose(log);
    std::ostringstream text;
    text << outcome.done << ' ' << outcome.failed << ' ' << outcome.error << ' ' << told;
    std::free(told);
    return text.str();
}

// Runs `work` in a process that ends before the step of this number. False when there is none.
template <class Work>
bool ended_at(std::size_t number, Work work) {
    const pid_t child = fork();
    if (child == 0) {
        g_steps.clear();
        g_end = number;
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
        const StateDir dir;
        plant("a=a b=b c=c d/ e=e f=f");
        // Done twice, the first would put the content of c into b.
        ASSERT_EQ(record_move("a", "b", true) | record_move("c", "a") | record_delete("d"), 0u);
        ASSERT_EQ(record_move("e", "f"), 0u);  // fails
        ASSERT_TRUE(MoveFileExW(TEXT("f"), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT));
        ended = ended_at(number, [] { carry_out(); });
        carry_out();
        EXPECT_EQ(tree(), "a=c b=a e=e ") << number;
        EXPECT_FALSE(fs::exists(dir.record)) << number;
    }
    EXPECT_GT(number, 30u);
}

TEST(PendingMoves, AreRecordedWhollyOrNotAtAll) {
    bool ended = true;
    for (std::size_t number = 0; ended; ++number) {
        const StateDir dir;
        plant("a=a b=b");
        ended = ended_at(number, [] { record_delete("a"); });
        ASSERT_EQ(record_delete("b"), 0u);
        const std::string outcome = carry_out();
        EXPECT_TRUE(outcome == "2 0 0 " || (ended && outcome == "1 0 0 ")) << number << outcome;
        EXPECT_EQ(tree(), outcome.front() == '2' ? "" : "a=a ");
    }
}

// What stands on the disk when the power goes: each step is there before the next one begins.
TEST(PendingMoves, ReachTheDiskStepByStep) {
    const StateDir dir;
    plant("a=");
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
    const StateDir dir;
    plant("a=a b=b");
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
    const StateDir dir;
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
    const StateDir dir;
    plant("full/a=a b=b empty/");
    const std::string place = dir.files.Path().string() + '/';
    ASSERT_EQ(record_delete("full") | record_move("b", "empty", true), 0u);
    ASSERT_EQ(record_move("empty", "b", true) | record_delete("b"), 0u);
    EXPECT_EQ(carry_out(), "1 3 0 delete " + place + "full: Directory not empty\nmove " + place +
                               "b to " + place + "empty: Is a directory\nmove " + place +
                               "empty to " + place + "b: File exists\n");
    EXPECT_EQ(tree(), "empty/ full/ full/a=a ");
}

// The inode of a file and the time of its birth, as the record has them.
std::pair<std::string, std::string> identity_of(const char *name) {
    struct statx facts;
    statx(AT_FDCWD, name, 0, STATX_BASIC_STATS | STATX_BTIME, &facts);
    const auto &time = (facts.stx_mask & STATX_BTIME) != 0 ? facts.stx_btime : facts.stx_ctime;
    return {std::to_string(facts.stx_ino),
            std::to_string(time.tv_sec * 1'000'000'000 + time.tv_nsec)};
}

// Puts `by` in the place of each `mark`.
std::string filled(std::string form, char mark, const std::string &by) {
    for (std::size_t at = 0; (at = form.find(mark, at)) != form.npos; at += by.size()) {
        form.replace(at, 1, by);
    }
    return form;
}

TEST(PendingMoves, ReadEveryStateOfTheRecord) {
    const struct {
        const char *text;  // # is the directory, $ the inode of "a", @ its time
        const char *outcome, *tree;
    } cases[] = {
        // Begun: only that very file. Its disk has another number since the last start.
        {"\ndelete x begun:7:$:@ #/a\n", "1 0 0 ", "b=b "},
        {"\ndelete x begun:7:$:1 #/a\n", "1 0 0 ", "a=a b=b "},
        {"\ndelete x begun:7:1$:@ #/a\n", "1 0 0 ", "a=a b=b "},
        {"\nmove x begun:7:1:1 #/c #/a\n", "1 0 0 ", "a=a b=b "},
        {"\ndelete x asked #/a\ndelete x asked #/b", "1 0 0 ", "b=b "},  // the end is missing
        {"0\ndelete x asked #/a\n", "0 0 74 ", "a=a b=b "},              // another version
    };
    for (const auto &[text, outcome, after] : cases) {
        const StateDir dir;
        plant("a=a b=b");
        const auto [inode, time] = identity_of("a");
        std::ofstream(dir.record) << "ostrel-pending-moves 1"
                                  << filled(filled(filled(text, '#', dir.files.Path()), '$', inode),
                                            '@', time);
        EXPECT_EQ(carry_out(), outcome) << text;
        EXPECT_EQ(tree(), after) << text;
    }
}

TEST(PendingMoves, ReadWhatAnyoneMayHaveWritten) {
    const StateDir dir;
    plant("a=a");
    std::string text =
        "destroy x asked #\ndelete x asked a\ndelete x asked #%0\ndelete x asked #%00\n"
        "delete x asked # #\ndelete  asked #\ndelete x asked # \ndelete x begun:1:2 #\n\n"
        "delete x begun:1:2:3: #\ndelete x begun:1:99999999999999999999:3 #\nmove x asked #\n";
    text = kHeader + filled(text, '#', dir.files.Path() / "a") + "delete x asked /" +
           std::string(10'000'000, 'x') + '\n';
    std::ofstream(dir.record) << text;
    EXPECT_TRUE(carry_out(PendingScope::kEarlierStarts).starts_with("0 13 0 line 2 of the record"));
    EXPECT_EQ(tree(), "a=a ");
    for (const char *foreign : {"root:x:0:0:\n", "root"}) {
        std::ofstream(dir.record) << foreign;
        EXPECT_EQ(carry_out(), "0 0 " + std::to_string(EBADMSG) + ' ');
        EXPECT_EQ(record_delete("a"), 13u);  // ERROR_INVALID_DATA
        EXPECT_EQ(content_of(dir.record), foreign);
    }
}

TEST(PendingMoves, TrustNoOtherRecord) {
    const char *const preparations[] = {
        "ln -s $PWD/other $OSTREL_STATE_DIR/pending_moves",
        "mkfifo $OSTREL_STATE_DIR/pending_moves",
        "cp other $OSTREL_STATE_DIR/pending_moves; chmod o+w $OSTREL_STATE_DIR/pending_moves",
        "cp other $OSTREL_STATE_DIR/pending_moves; chown 12345 $OSTREL_STATE_DIR/pending_moves",
        "chmod 777 $OSTREL_STATE_DIR"};
    for (std::size_t i = 0; i < (geteuid() == 0 ? std::size(preparations) : 2); ++i) {
        const StateDir dir;
        std::ofstream("other") << kHeader << "delete x asked "
                               << (dir.files.Path() / "other").string() << '\n';
        ASSERT_EQ(std::system(preparations[i]), 0);
        EXPECT_EQ(record_delete("other"), ERROR_ACCESS_DENIED) << i;
        EXPECT_EQ(carry_out(), "0 0 " + std::to_string(EACCES) + ' ') << i;
        EXPECT_TRUE(fs::exists("other")) << i;
    }
}

TEST(PendingMoves, LeaveTheRecordAloneOnAFullDisk) {
    const StateDir dir;
    plant("a=a");
    g_room = 30;
    EXPECT_EQ(record_delete("a"), ERROR_DISK_FULL);
    EXPECT_FALSE(fs::exists(dir.record));
    g_room = std::string::npos;
    ASSERT_EQ(record_delete("a"), 0u);
    const std::string before = content_of(dir.record);
    g_room = 10;
    EXPECT_EQ(record_delete("a"), ERROR_DISK_FULL);
    EXPECT_EQ(carry_out(), "0 0 " + std::to_string(ENOSPC) + ' ');  // none begins without a note
    g_room = std::string::npos;
    EXPECT_EQ(content_of(dir.record), before);
    EXPECT_EQ(tree(), "a=a ");
}

TEST(PendingMoves, OfManyProcessesAllCount) {
    const StateDir dir;
    constexpr int kEach = 40;
    pid_t children[4];
    for (pid_t &child : children) {
        child = fork();
        for (int i = 0; child == 0 && i < kEach; ++i) {
            const std::string name = std::to_string(getpid()) + '.' + std::to_string(i);
            std::ofstream(name) << name;
            if (record_delete(name) != 0) {
                _exit(1);
            }
        }
        if (child == 0) {
            _exit(0);
        }
    }
    // Another takes the record away all the while.
    std::size_t done = 0;
    const auto take = [&done] { done += carry_out_pending_moves(PendingScope::kAll, stderr).done; };
    for (const pid_t child : children) {
        int status = -1;
        while (waitpid(child, &status, WNOHANG) == 0) {
            take();
        }
        EXPECT_EQ(status, 0);
    }
    take();
    EXPECT_EQ(done, std::size_t{4 * kEach});
    EXPECT_EQ(tree(), "");
}

}  // namespace
