// Files and streams whose host calls are interrupted, short, or fail: those calls are defined here.

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "ostrel/file/Std_Utils_File.h"
#include "support/file_calls.h"

namespace {

constexpr std::size_t kEndless = static_cast<std::size_t>(-1);

std::string g_unreadable;         // the name whose facts cannot be read; no kind is listed then
std::set<std::string> g_failing;  // calls that fail, once, with `g_error`
int g_error = EIO;
// Reads and writes move 3 bytes, every other one is interrupted; when no more are left, `g_error`,
// or nothing at all when that is 0.
bool g_short = false;
std::size_t g_left_to_read = kEndless, g_left_to_write = kEndless;
thread_local int g_calls = 0;

bool fails(const std::string &call) {
    const bool failing = g_failing.erase(call) != 0;
    errno = failing ? g_error : errno;
    return failing;
}

ssize_t transfer(int call, int file, void *bytes, std::size_t count, std::size_t *left) {
    if (!g_short) {
        return syscall(call, file, bytes, count);
    }
    std::this_thread::yield();
    const bool is_interrupted = ++g_calls % 2 == 0;
    if (is_interrupted || *left == 0) {
        errno = is_interrupted ? EINTR : g_error;
        return errno == 0 ? 0 : -1;
    }
    const std::size_t part = std::min({count, *left, std::size_t{3}});
    *left -= *left == kEndless ? 0 : part;
    return syscall(call, file, bytes, part);
}

}  // namespace

extern "C" ssize_t read(int file, void *bytes, std::size_t count) {
    return transfer(SYS_read, file, bytes, count, &g_left_to_read);
}

extern "C" ssize_t write(int file, const void *bytes, std::size_t count) {
    return transfer(SYS_write, file, const_cast<void *>(bytes), count, &g_left_to_write);
}

#define FAILING(Result, name, Parameters, ...)                                                    \
    extern "C" Result name Parameters {                                                           \
        return fails(#name) ? Result{-1} : static_cast<Result>(syscall(SYS_##name, __VA_ARGS__)); \
    }
FAILING(ssize_t, copy_file_range,
        (int in, off64_t *in_at, int out, off64_t *out_at, std::size_t count, unsigned flags), in,
        in_at, out, out_at, count, flags)
FAILING(ssize_t, getrandom, (void *bytes, std::size_t count, unsigned flags), bytes, count, flags)
FAILING(int, fchown, (int file, uid_t user, gid_t group), file, user, group)
FAILING(int, renameat2, (int in, const char *source, int out, const char *target, unsigned flags),
        in, source, out, target, flags)

extern "C" int statx(int at, const char *name, int flags, unsigned fields, struct statx *facts) {
    if (!g_unreadable.empty() && name == g_unreadable) {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(syscall(SYS_statx, at, name, flags, fields, facts));
}

extern "C" ssize_t getdents64(int directory, void *entries, std::size_t size) noexcept {
    const auto count = syscall(SYS_getdents64, directory, entries, size);
    for (long at = 0; !g_unreadable.empty() && at < count;) {
        auto *const entry = reinterpret_cast<dirent64 *>(static_cast<char *>(entries) + at);
        entry->d_type = DT_UNKNOWN;
        at += entry->d_reclen;
    }
    return count;
}

extern "C" int unlink(const char *path) {
    return fails("unlink") ? -1 : static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

extern "C" int close(int file) {
    const auto mode = syscall(SYS_fcntl, file, F_GETFL) & O_ACCMODE;
    const int result = static_cast<int>(syscall(SYS_close, file));
    return mode == O_WRONLY && fails("close") ? -1 : result;
}

namespace {

struct Faults {
    explicit Faults(std::set<std::string> failing, int error = EIO) {
        g_failing = std::move(failing), g_error = error, g_short = true;
    }
    ~Faults() {
        g_failing.clear(), g_short = false;
        g_left_to_read = g_left_to_write = kEndless;
    }
    Faults &operator=(Faults &&) = delete;  // nor copied
};

TEST(FileFaults, NoTemporaryNameCanBeGuessed) {
    const TempDir dir;
    const Faults faults({"getrandom"}, ENOSYS);
    EXPECT_EQ(_wtempnam(nullptr, nullptr), nullptr);
    EXPECT_EQ(errno, ENOSYS);
}

TEST(FileFaults, ReadAndWriteThroughInterruptionsUntilAnError) {
    const TempDir dir;
    const Opened file(TEXT("file"), GENERIC_READ | GENERIC_WRITE, kShareAll, CREATE_NEW);
    const Opened again(TEXT("file"), GENERIC_READ);
    const Faults faults({}, ENOSPC);
    g_left_to_write = 16;
    DWORD done = 0;
    EXPECT_TRUE(WriteFile(file.handle, "0123456789", 10, &done, nullptr));
    EXPECT_EQ(done, 10u);
    EXPECT_EQ(error_of(WriteFile(file.handle, "0123456789", 10, &done, nullptr)), ERROR_DISK_FULL);
    EXPECT_EQ(done, 6u);
    g_error = 0;
    EXPECT_EQ(error_of(WriteFile(file.handle, "x", 1, &done, nullptr)), 1117u);  // IO_DEVICE
    char bytes[20];
    EXPECT_TRUE(ReadFile(again.handle, bytes, 20, &done, nullptr));
    EXPECT_EQ(std::string(bytes, done), "0123456789012345");
}

TEST(FileFaults, KeepTheStepsOfOneWriteTogether) {
    const TempDir dir;
    const Opened file(TEXT("file"), GENERIC_WRITE, kShareAll, CREATE_NEW);
    const Faults faults({});
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

TEST(FileFaults, ACopyOrMoveIsWholeOrLeavesNothing) {
    const auto copy = [](const WCHAR *from, const WCHAR *to) { return CopyFileW(from, to, FALSE); };
    const auto replace = [](const WCHAR *from, const WCHAR *to) {
        return MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING);
    };
    constexpr char kBefore[] = "a=content d/ old=old ",
                   kCopied[] = "a=content b=content d/ old=old ";
    const std::tuple<BOOL (*)(const WCHAR *, const WCHAR *), const WCHAR *, const WCHAR *,
                     std::set<std::string>, int, DWORD, const char *>
        cases[] = {{copy, u"a", u"old", {"close"}, EIO, 1117, kBefore},  // IO_DEVICE
                   {copy, u"a", u"old", {"copy_file_range"}, ENOSPC, ERROR_DISK_FULL, kBefore},
                   {copy, u"a", u"old", {"copy_file_range"}, EXDEV, 0, "a=content d/ old=content "},
                   // Where the host has no exclusive rename.
                   {MoveFileW, u"a", u"old", {"renameat2"}, EINVAL, ERROR_ALREADY_EXISTS, kBefore},
                   {MoveFileW, u"d", u"b", {"renameat2"}, EINVAL, 0, "a=content b/ old=old "},
                   {MoveFileW, u"a", u"b", {"renameat2"}, EINVAL, 0, "b=content d/ old=old "},
                   {MoveFileW, u"a", u"b", {"renameat2", "unlink"}, EINVAL, 87, kBefore},
                   // A directory over a file: by an exchange, or where the host has none.
                   {replace, u"d", u"old", {"unlink"}, EIO, 1117, kBefore},
                   {replace, u"d", u"old", {"renameat2"}, EINVAL, 0, "a=content old/ "},
                   {replace, u"d", u"old", {"renameat2"}, EIO, 1117, kBefore},
                   // To another file system.
                   {MoveFileW, u"a", u"b", {"renameat2", "close"}, EXDEV, 17, kBefore},
                   {MoveFileW, u"a", u"b", {"renameat2", "unlink", "fchown"}, EXDEV, 0, kCopied}};
    for (const auto &[change, from, to, failing, error, code, after] : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(from, to, failing, error)));
        const Planted dir("a=content old=old d/");
        chmod("a", 04751);
        {
            const Faults faults(failing, error);
            g_left_to_write = error == ENOSPC ? 4 : kEndless;
            EXPECT_EQ(error_of(change(from, to)), code);
        }
        EXPECT_EQ(tree(), after);
        // The rights of an owner who did not come along are not lent.
        EXPECT_TRUE(after != kCopied || host_facts("b").st_mode % 010000 == 0751);
    }
}

TEST(FileFaults, AnEntryThatCannotBeReadIsAFailure) {
    using namespace NS_FileUtils;
    const std::tuple<const char *, std::function<bool()>, const char *> cases[] = {
        {"copy on", [] { return copyDirectory(u"s", u"t", 0, 1, 0) != 0; }, "a b d e "},
        {"copy", [] { return copyDirectory(u"s", u"t", 0, 0, 0) != 0; }, nullptr},
        {"move", [] { return moveDirectory(u"s", u"t", 1, 0) != 0; }, nullptr},
        {"move files", [] { return moveFiles(u"s", u"t", u"*", 0, 0); }, ""}};
    for (const auto &[name, change, copied] : cases) {
        SCOPED_TRACE(name);
        const Planted dir("s/a=1 s/b=2 s/c=3 s/d=4 s/e=5");
        g_unreadable = "c";
        EXPECT_FALSE(change());
        g_unreadable.clear();
        EXPECT_TRUE(fs::exists("s/c"));
        std::string there;
        for (const char *const file : {"a", "b", "c", "d", "e"}) {
            there += fs::exists(fs::path("t") / file) ? file + std::string(" ") : "";
        }
        EXPECT_TRUE(copied == nullptr || there == copied) << there;
    }
}

TEST(FileFaults, StreamsReadThroughInterruptionsUntilAnErrorEndsTheFile) {
    const TempDir dir;
    dir.Write("file", "\xEF\xBB\xBFone\nt\r\nthree\n");
    WCHAR line[20];
    std::FILE *const file = _wfopen(TEXT("file"), TEXT("r"));
    const Faults faults({});
    g_left_to_read = 3 + 4 + 3 + 2;  // up to "th"
    EXPECT_EQ(std::u16string(fgetws(line, 20, file)), u"one\n");
    EXPECT_EQ(std::u16string(fgetws(line, 20, file)), u"t\n");
    errno = 0;
    EXPECT_EQ(fgetws(line, 20, file), nullptr);
    EXPECT_EQ(errno, EIO);
    std::fclose(file);
}

TEST(FileFaults, StreamsWriteThroughShortWritesUntilTheDiskFails) {
    const TempDir dir;
    for (const std::size_t room : {kEndless, std::size_t{4}}) {
        SCOPED_TRACE(room);
        const Faults faults({});
        g_left_to_write = room;
        std::FILE *const file = _wfopen(TEXT("file"), TEXT("w"));
        std::fputs("a\nlonger\n", file);
        errno = 0;
        EXPECT_EQ(std::fclose(file) == 0, room == kEndless);
        EXPECT_EQ(errno == EIO, room != kEndless);
        g_short = false;
        EXPECT_EQ(content_of("file"), std::string("a\r\nlonger\r\n").substr(0, room));
    }
}

}  // namespace
