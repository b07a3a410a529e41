// Moves that wait for the next start: nothing is lost, done twice or done by halves.

#include "ostrel/platform/pending_moves.h"

#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <set>
#include <sstream>
#include <tuple>

#include "ostrel/platform/error.h"
#include "ostrel/platform/pending_record.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using platform::carry_out_pending_moves;
using platform::PendingOutcome;
using platform::PendingScope;
using platform::record_pending_move;

const std::string kHeader = "ostrel-pending-moves 1\n";
constexpr char kRecord[] = "state/pending_moves";

struct StateDir : TempDir {
    StateDir() { setenv("OSTREL_STATE_DIR", (Path() / "state").c_str(), 1); }
    ~StateDir() { unsetenv("OSTREL_STATE_DIR"); }

    std::string In(const std::string &name) const { return Path() / name; }

    // Names and contents of all files below, but for the record.
    std::string Tree() const {
        std::set<std::string> files;
        for (const auto &entry : fs::recursive_directory_iterator(Path())) {
            const std::string name = entry.path().lexically_relative(Path());
            if (!name.starts_with("state")) {
                files.insert(name + (entry.is_regular_file() ? "=" + Content(name) : ""));
            }
        }
        std::string text;
        for (const std::string &file : files) {
            text += file + ' ';
        }
        return text;
    }

    static std::string Content(const fs::path &name) {
        std::ostringstream content;
        content << std::ifstream(name, std::ios::binary).rdbuf();
        return content.str();
    }
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

// What a system call does to the disk: s for an fsync, n for a change of names, w for one of
// content; 0 for nothing.
char kind_of_call(std::uint64_t number) {
    switch (number) {
        case SYS_fsync:
            return 's';
        case SYS_pwrite64:
        case SYS_ftruncate:
            return 'w';
#ifdef SYS_rename
        case SYS_rename:
        case SYS_unlink:
        case SYS_rmdir:
#endif
        case SYS_renameat:
        case SYS_renameat2:
        case SYS_unlinkat:
            return 'n';
        default:
            return 0;
    }
}

// Runs `work` in a child and kills it at the entry of the call of this number, counting those that
// do something to the disk; `calls` receives their kinds. Result: whether the child was killed;
// false when it came to its end.
bool kill_at_call(int limit, const std::function<void()> &work, std::string *calls) {
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        work();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    calls->clear();
    while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 &&
           waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        __ptrace_syscall_info call;
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof call, &call);
        const bool entered = call.op == PTRACE_SYSCALL_INFO_ENTRY;
        const char kind = entered ? kind_of_call(call.entry.nr) : '\0';
        if (kind != 0 && static_cast<int>(calls->size()) == limit) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return true;
        }
        calls->append(kind != 0, kind);
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "cannot be traced";
    return false;
}

TEST(PendingMoves, AreDoneOnceWhereverTheProgramIsKilled) {
    std::string calls;
    int limit = 0;
    for (bool killed = true; killed; ++limit) {
        const StateDir dir;
        for (const char *name : {"a", "b", "c", "e", "f"}) {
            dir.Write(name, name);
        }
        fs::create_directory("d");
        // Done twice, the first would put the content of c into b.
        ASSERT_EQ(record_move("a", "b", true), 0u);
        ASSERT_EQ(record_move("c", "a"), 0u);
        ASSERT_EQ(record_delete("d"), 0u);
        ASSERT_EQ(record_move("e", "f"), 0u);  // fails
        ASSERT_EQ(record_delete("f"), 0u);
        killed = kill_at_call(
            limit, [] { carry_out(); }, &calls);
        carry_out();
        EXPECT_EQ(dir.Tree(), "a=c b=a e=e ") << limit;
        EXPECT_FALSE(fs::exists(kRecord)) << limit;
    }
    EXPECT_GT(limit, 30);
}

TEST(PendingMoves, AreRecordedWhollyOrNotAtAll) {
    std::string calls;
    bool killed = true;
    for (int limit = 0; killed; ++limit) {
        const StateDir dir;
        dir.Write("a", "a");
        dir.Write("b", "b");
        killed = kill_at_call(
            limit, [] { record_delete("a"); }, &calls);
        ASSERT_EQ(record_delete("b"), 0u);
        const std::string outcome = carry_out();
        EXPECT_TRUE(outcome == "2 0 0 " || (killed && outcome == "1 0 0 ")) << limit << outcome;
        EXPECT_EQ(dir.Tree(), outcome.front() == '2' ? "" : "a=a ");
    }
}

// What stands on the disk when the power goes: each step is there before the next one begins.
TEST(PendingMoves, ReachTheDiskStepByStep) {
    const StateDir dir;
    dir.Write("a", "");
    fs::create_directory("state");
    std::string calls;
    kill_at_call(
        -1, [] { record_delete("a"); }, &calls);
    EXPECT_EQ(calls, "wwss");  // cut and written; the record, its directory
    kill_at_call(
        -1, [] { carry_out(); }, &calls);
    // A new record is written and put in place of the old one, then the file goes, then the record.
    EXPECT_EQ(calls,
              "nwsns"
              "ns"
              "ns");
}

TEST(PendingMoves, WaitForAnotherStart) {
    const StateDir dir;
    dir.Write("a", "a");
    dir.Write("b", "b");
    ASSERT_EQ(record_delete("a"), 0u);
    const std::string asked = StateDir::Content(kRecord);
    EXPECT_EQ(carry_out(PendingScope::kEarlierStarts), "0 0 0 ");
    EXPECT_EQ(StateDir::Content(kRecord), asked);
    std::ofstream(kRecord, std::ios::app) << "delete earlier asked " << dir.In("b") << '\n';
    EXPECT_EQ(carry_out(PendingScope::kEarlierStarts), "1 0 0 ");
    EXPECT_EQ(dir.Tree(), "a=a ");
    EXPECT_EQ(StateDir::Content(kRecord), asked);
}

TEST(PendingMoves, TakeEveryPathAndTheLinkItself) {
    const StateDir dir;
    const std::string odd = "\t%41 \n\x7F\xFF\xC3\xA4";
    std::ofstream(odd) << "odd";
    dir.Write("dir/read-only", "");
    fs::permissions("dir/read-only", fs::perms::owner_read);
    fs::create_directory_symlink("dir", "link");
    ASSERT_EQ(record_move(odd, dir.In(odd) + "2"), 0u);
    ASSERT_EQ(record_delete("link///"), 0u);
    ASSERT_EQ(record_delete("dir/read-only"), 0u);
    fs::current_path("/");
    EXPECT_EQ(carry_out(), "3 0 0 ");
    EXPECT_EQ(dir.Tree().substr(0, 4), odd.substr(0, 4));
    fs::current_path(dir.Path());
    EXPECT_EQ(dir.Tree(), odd + "2=odd dir ");
    EXPECT_EQ(record_delete(""), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(record_move("a", "/proc/a"), ERROR_NOT_SAME_DEVICE);
    EXPECT_EQ(record_delete(std::string(4096, 'a')), ERROR_FILENAME_EXCED_RANGE);
    EXPECT_FALSE(fs::exists(kRecord));
}

TEST(PendingMoves, FailOneByOne) {
    const StateDir dir;
    dir.Write("full/a", "a");
    dir.Write("b", "b");
    fs::create_directory("empty");
    const std::string place = dir.Path().string() + '/';
    for (const auto &[source, target] : {std::pair("none", ""), std::pair("full", ""),
                                         std::pair("b", "empty"), std::pair("empty", "b")}) {
        ASSERT_EQ(*target != '\0' ? record_move(source, target, true) : record_delete(source), 0u);
    }
    ASSERT_EQ(record_delete("b"), 0u);
    EXPECT_EQ(carry_out(), "1 4 0 delete " + place + "none: No such file or directory\ndelete " +
                               place + "full: Directory not empty\nmove " + place + "b to " +
                               place + "empty: Is a directory\nmove " + place + "empty to " +
                               place + "b: File exists\n");
    EXPECT_EQ(dir.Tree(), "empty full full/a=a ");
}

// The identity of a file as the record has it.
std::string identity_of(const char *name) {
    struct statx facts;
    statx(AT_FDCWD, name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &facts);
    const auto &time = (facts.stx_mask & STATX_BTIME) != 0 ? facts.stx_btime : facts.stx_ctime;
    return std::to_string(facts.stx_ino) + ':' +
           std::to_string(time.tv_sec * 1'000'000'000 + time.tv_nsec);
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
        const char *text;  // # is the directory, @ the identity of "a", $ its inode alone
        const char *outcome, *tree;
    } cases[] = {
        // Begun: only that very file. Its disk has another number since the last start.
        {"\ndelete x begun:7:@ #/a\n", "1 0 0 ", "b=b "},
        {"\ndelete x begun:7:$:1 #/a\n", "1 0 0 ", "a=a b=b "},
        {"\ndelete x begun:7:1@ #/a\n", "1 0 0 ", "a=a b=b "},
        {"\nmove x begun:7:1:1 #/c #/a\n", "1 0 0 ", "a=a b=b "},
        // The end is missing.
        {"\ndelete x asked #/a\ndelete x asked #/b", "1 0 0 ", "b=b "},
        {"", "0 0 0 ", "a=a b=b "},
        // Another version.
        {"0\ndelete x asked #/a\n", "0 0 74 ", "a=a b=b "},
    };
    for (const auto &[text, outcome, tree] : cases) {
        const StateDir dir;
        dir.Write("a", "a");
        dir.Write("b", "b");
        const std::string identity = identity_of("a");
        const std::string inode = identity.substr(0, identity.find(':'));
        dir.Write(kRecord,
                  "ostrel-pending-moves 1" +
                      filled(filled(filled(text, '#', dir.Path()), '@', identity), '$', inode));
        EXPECT_EQ(carry_out(), outcome) << text;
        EXPECT_EQ(dir.Tree(), tree) << text;
    }
}

TEST(PendingMoves, ReadWhatAnyoneMayHaveWritten) {
    const StateDir dir;
    dir.Write("a", "a");
    std::string text =
        "destroy x asked #\ndelete x asked a\ndelete x asked #%0\ndelete x asked #%00\n"
        "delete x asked #%-1\ndelete x asked # #\ndelete  asked #\ndelete x asked # \n"
        "delete x begun #\ndelete x begun:1:2 #\ndelete x begun:1:2:3: #\n\n"
        "delete x begun:1:99999999999999999999:3 #\nmove x asked #\nmove x asked # \t\n";
    text = kHeader + filled(text, '#', dir.In("a")) + "delete x asked " + std::string(9, '\0') +
           "\ndelete x asked /" + std::string(10'000'000, 'x') + '\n';
    std::string told;
    for (int line = 2; line <= std::count(text.begin(), text.end(), '\n'); ++line) {
        told += "line " + std::to_string(line) + " of the record is damaged, left out\n";
    }
    dir.Write(kRecord, text);
    EXPECT_EQ(carry_out(PendingScope::kEarlierStarts), "0 17 0 " + told);
    EXPECT_EQ(dir.Tree(), "a=a ");
    for (const char *foreign : {"root:x:0:0:\n", "root"}) {
        dir.Write(kRecord, foreign);
        EXPECT_EQ(carry_out(), "0 0 " + std::to_string(EBADMSG) + ' ');
        EXPECT_EQ(record_delete("a"), 13u);  // ERROR_INVALID_DATA
        EXPECT_EQ(StateDir::Content(kRecord), foreign);
    }
}

TEST(PendingMoves, TrustNoOtherRecord) {
    using Preparation = std::function<void()>;
    const auto trusted = [] { fs::copy("other", kRecord); };
    const Preparation preparations[] = {
        [] { fs::create_symlink("../other", kRecord); },
        [] { mkfifo(kRecord, 0600); },
        [&] { trusted(), fs::permissions(kRecord, fs::perms::others_write); },
        [&] { trusted(), std::ignore = chown(kRecord, 12345, 0); },
        [] { fs::permissions("state", fs::perms::all); },
    };
    const bool is_root = geteuid() == 0;
    for (std::size_t i = 0; i < (is_root ? std::size(preparations) : 2); ++i) {
        const StateDir dir;
        fs::create_directory("state");
        dir.Write("other", kHeader + "delete x asked " + dir.In("other") + '\n');
        const std::string tree = dir.Tree();
        preparations[i]();
        EXPECT_EQ(record_delete("other"), ERROR_ACCESS_DENIED) << i;
        EXPECT_EQ(carry_out(), "0 0 " + std::to_string(EACCES) + ' ') << i;
        EXPECT_EQ(dir.Tree(), tree) << i;
    }
}

// Runs `work` in a child; its result.
int in_child(const std::function<int()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(work());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

TEST(PendingMoves, LeaveTheRecordAloneWhenTheyCannotBeWritten) {
    const StateDir dir;
    dir.Write("a", "a");
    const auto on_full_disk = [](const std::function<int()> &work, rlim_t room) {
        return in_child([&] {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{room, room};
            setrlimit(RLIMIT_FSIZE, &limit);
            return work();
        });
    };
    const auto record = [] { return static_cast<int>(record_delete("a")); };
    EXPECT_EQ(on_full_disk(record, 30), static_cast<int>(ERROR_DISK_FULL));
    EXPECT_FALSE(fs::exists(kRecord));
    ASSERT_EQ(record_delete("a"), 0u);
    const std::string before = StateDir::Content(kRecord);
    EXPECT_EQ(on_full_disk(record, before.size() + 10), static_cast<int>(ERROR_DISK_FULL));
    // Nothing is begun that cannot be noted.
    const auto outcome = [] { return carry_out_pending_moves(PendingScope::kAll, stderr).error; };
    EXPECT_EQ(on_full_disk(outcome, before.size()), EFBIG);
    EXPECT_EQ(StateDir::Content(kRecord), before);
    EXPECT_EQ(dir.Tree(), "a=a ");
    if (geteuid() == 0) {
        EXPECT_EQ(in_child([&] { return setuid(12345) == 0 && chdir("/") == 0 ? record() : -1; }),
                  static_cast<int>(ERROR_ACCESS_DENIED));
    }
}

TEST(PendingMoves, OfManyProcessesAllCount) {
    const StateDir dir;
    constexpr int kEach = 40;
    pid_t children[4];
    for (pid_t &child : children) {
        child = fork();
        if (child == 0) {
            DWORD code = 0;
            for (int i = 0; i < kEach; ++i) {
                const std::string name = std::to_string(getpid()) + '.' + std::to_string(i);
                std::ofstream(name) << name;
                code |= record_delete(name);
            }
            _exit(code != 0);
        }
    }
    // Another takes the record away all the while.
    int done = 0;
    const auto take = [&] {
        const PendingOutcome outcome = carry_out_pending_moves(PendingScope::kAll, stderr);
        EXPECT_EQ(outcome.failed + static_cast<std::size_t>(outcome.error), 0u);
        done += static_cast<int>(outcome.done);
    };
    for (const pid_t child : children) {
        int status = -1;
        while (waitpid(child, &status, WNOHANG) == 0) {
            take();
        }
        EXPECT_EQ(status, 0);
    }
    take();
    EXPECT_EQ(done, 4 * kEach);
    EXPECT_EQ(dir.Tree(), "");
}

}  // namespace
