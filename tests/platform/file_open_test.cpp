// Open files and who may have them open at the same time.

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <optional>
#include <thread>

#include "ostrel/platform/find.h"
#include "support/file_calls.h"
#include "support/file_tree.h"
#include "support/temp_dir.h"

namespace {

constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;

TEST(FileOpen, CreatesOpensAndEmptiesByTheDisposition) {
    constexpr DWORD kKept = 77;  // a last error that stays
    const struct {
        DWORD creation, existing_error, missing_error;
        const char *content;
    } cases[] = {{CREATE_NEW, ERROR_FILE_EXISTS, kKept, "old"},
                 {CREATE_ALWAYS, ERROR_ALREADY_EXISTS, 0, ""},
                 {OPEN_EXISTING, kKept, ERROR_FILE_NOT_FOUND, "old"},
                 {OPEN_ALWAYS, ERROR_ALREADY_EXISTS, 0, "old"},
                 {TRUNCATE_EXISTING, kKept, ERROR_FILE_NOT_FOUND, ""}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.creation);
        const TempDir dir;
        plant("there=old");
        SetLastError(kKept);
        const Opened existing(TEXT("there"), GENERIC_WRITE, 0, c.creation);
        SetLastError(kKept);
        const Opened missing(TEXT("missing"), GENERIC_WRITE, 0, c.creation, kHidden);
        EXPECT_EQ(existing.error, c.existing_error);
        EXPECT_EQ(missing.error, c.missing_error);
        EXPECT_EQ(!existing, c.creation == CREATE_NEW);
        EXPECT_EQ(!missing, c.missing_error == ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(content_of("there"), c.content);
        EXPECT_EQ(GetFileAttributesW(TEXT("missing")),
                  missing ? kHidden | kArchive : INVALID_FILE_ATTRIBUTES);
    }
}

TEST(FileOpen, TellsWhyItRefuses) {
    const TempDir dir;
    plant("file=kept read-only=kept hidden=kept sub/ broken->nowhere");
    set(TEXT("read-only"), kReadOnly);
    set(TEXT("hidden"), kHidden);
    constexpr DWORD kBackup = FILE_FLAG_BACKUP_SEMANTICS, kNotFound = ERROR_PATH_NOT_FOUND;
    constexpr DWORD kDenied = ERROR_ACCESS_DENIED, kInvalid = ERROR_INVALID_PARAMETER;
    const struct {
        const WCHAR *path;
        DWORD access, creation, flags, error;
    } cases[] = {{u"no/file", GENERIC_WRITE, CREATE_ALWAYS, 0, kNotFound},
                 {u"file/x", GENERIC_READ, OPEN_EXISTING, 0, kNotFound},
                 {u"broken", 0, CREATE_NEW, 0, ERROR_FILE_EXISTS},
                 {u"sub", GENERIC_READ, OPEN_EXISTING, 0, kDenied},
                 {u"sub", GENERIC_READ, OPEN_EXISTING, kBackup, 0},
                 {u"sub", GENERIC_READ, OPEN_ALWAYS, kBackup, kDenied},
                 {u"read-only", GENERIC_WRITE, OPEN_EXISTING, 0, kDenied},
                 {u"read-only", GENERIC_READ, CREATE_ALWAYS, 0, kDenied},
                 {u"hidden", GENERIC_WRITE, CREATE_ALWAYS, 0, kDenied},
                 {u"file", GENERIC_READ, TRUNCATE_EXISTING, 0, kInvalid},
                 {u"file", GENERIC_READ, OPEN_EXISTING, 0x40000000, kInvalid},
                 {u"broken", 0, OPEN_ALWAYS, 0, 0}};  // made through the link
    const Lines before = lines_of();
    for (const auto &c : cases) {
        EXPECT_EQ(lines_of(), before);
        EXPECT_EQ(error_of(Opened(c.path, c.access, 0, c.creation, c.flags)), c.error)
            << std::filesystem::path(c.path) << ' ' << c.creation;
    }
    EXPECT_TRUE(std::filesystem::exists("nowhere"));
}

const std::map<std::string, DWORD> kAccesses = {
    {"R", GENERIC_READ}, {"W", GENERIC_WRITE}, {"RW", kReadWrite}};
const std::map<std::string, DWORD> kShares = {
    {"0", 0}, {"r", FILE_SHARE_READ}, {"w", FILE_SHARE_WRITE}, {"rw", 3}};

// The opens of "file" that succeed at the moment: "R:r RW:rw ".
std::string opens_that_pass() {
    std::string passed;
    for (const auto &[access_name, access] : kAccesses) {
        for (const auto &[share_name, share] : kShares) {
            const Opened second(TEXT("file"), access, share);
            EXPECT_TRUE(second || second.error == ERROR_SHARING_VIOLATION);
            passed += second ? access_name + ':' + share_name + ' ' : "";
        }
    }
    return passed;
}

TEST(FileOpen, SharesAsDocumented) {
    const TempDir dir;
    plant("file=");
    const struct {
        const char *access, *share, *second;
    } cases[] = {{"R", "r", "R:r R:rw "},
                 {"R", "w", "W:r W:rw "},
                 {"R", "rw", "R:r R:rw RW:r RW:rw W:r W:rw "},
                 {"W", "r", "R:rw R:w "},
                 {"W", "w", "W:rw W:w "},
                 {"W", "rw", "R:rw R:w RW:rw RW:w W:rw W:w "},
                 {"RW", "r", "R:rw "},
                 {"RW", "w", "W:rw "},
                 {"RW", "rw", "R:rw RW:rw W:rw "},
                 {"R", "0", ""},
                 {"W", "0", ""}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.access) + ' ' + c.share);
        const Opened first(TEXT("file"), kAccesses.at(c.access), kShares.at(c.share));
        EXPECT_EQ(opens_that_pass(), c.second);
        EXPECT_TRUE(Opened(TEXT("file"), 0, 0));  // facts only
    }
    // The one that stands against a third may be found behind one that does not, on either side.
    for (const DWORD access : {GENERIC_READ, GENERIC_WRITE}) {
        const Opened sharing(TEXT("file"), access);
        const Opened other(TEXT("file"), kReadWrite ^ access, FILE_SHARE_READ | FILE_SHARE_WRITE);
        EXPECT_EQ(error_of(DeleteFileW(TEXT("file"))), ERROR_SHARING_VIOLATION);
    }
}

TEST(FileOpen, EmptiesNothingThatOthersHaveOpenWithoutSharingIt) {
    const TempDir dir;
    plant("file=kept");
    {
        const Opened file(TEXT("file"), GENERIC_READ, FILE_SHARE_READ);
        for (const DWORD access : {GENERIC_WRITE, GENERIC_READ, DWORD{0}}) {
            EXPECT_EQ(error_of(Opened(TEXT("file"), access, kShareAll, CREATE_ALWAYS)),
                      ERROR_SHARING_VIOLATION);
        }
        EXPECT_EQ(_wfopen(TEXT("file"), TEXT("w")), nullptr);
        EXPECT_EQ(errno, EACCES);
        EXPECT_EQ(_wremove(TEXT("file")), -1);
        EXPECT_EQ(content_of("file"), "kept");
    }
    std::FILE *const stream = _wfopen(TEXT("file"), TEXT("a"));
    EXPECT_EQ(opens_that_pass(), "R:rw R:w RW:rw RW:w W:rw W:w ");
    std::fclose(stream);
    const Opened file(TEXT("file"), kReadWrite, FILE_SHARE_DELETE);
    EXPECT_EQ(error_of(DeleteFileW(TEXT("file"))), 0u);
    DWORD done;
    EXPECT_TRUE(WriteFile(file.handle, "x", 1, &done, nullptr));  // who has it open keeps it
    EXPECT_FALSE(FindClose(file.handle));
}

TEST(FileOpen, LeavesAProgramThatRuns) {
    const TempDir dir;
    std::filesystem::copy_file("/bin/sleep", "program");
    plant("other=");
    char name[] = "program", time[] = "1000", *const arguments[] = {name, time, nullptr};
    pid_t child = 0;
    ASSERT_EQ(posix_spawn(&child, name, nullptr, nullptr, arguments, nullptr), 0);
    EXPECT_TRUE(Opened(TEXT("program"), GENERIC_READ));
    EXPECT_EQ(error_of(Opened(TEXT("program"), GENERIC_WRITE)), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(error_of(DeleteFileW(TEXT("program"))), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(error_of(CopyFileW(TEXT("other"), TEXT("program"), FALSE)), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(error_of(MoveFileExW(TEXT("other"), TEXT("program"), MOVEFILE_REPLACE_EXISTING)),
              ERROR_ACCESS_DENIED);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(error_of(DeleteFileW(TEXT("program"))), 0u);
}

TEST(FileOpen, ReadsAndWritesOnlyAsOpened) {
    const TempDir dir;
    plant("file=0123456789");
    char bytes[20] = {};
    DWORD done = 9;
    const FILETIME time = {0, 0x01D00000};
    const Opened reader(TEXT("file"), GENERIC_READ), writer(TEXT("file"), GENERIC_WRITE);
    EXPECT_TRUE(ReadFile(reader.handle, bytes, 4, &done, nullptr));
    EXPECT_TRUE(ReadFile(reader.handle, bytes + 4, 16, &done, nullptr));
    EXPECT_EQ(std::string(bytes, done + 4), "0123456789");
    EXPECT_EQ(error_of(WriteFile(reader.handle, "x", 1, &done, nullptr)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(error_of(SetFileTime(reader.handle, nullptr, nullptr, &time)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(ReadFile(writer.handle, bytes, 1, &done, nullptr)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(WriteFile(writer.handle, nullptr, 1, &done, nullptr)), ERROR_NOACCESS);
}

TEST(FileOpen, NeitherWaitsForAPeerNorDiesOfOneThatHasGone) {
    const TempDir dir;
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    char bytes[20];
    DWORD done = 9;
    EXPECT_FALSE(Opened(TEXT("fifo"), GENERIC_WRITE));  // nobody reads
    std::optional<Opened> reader(std::in_place, TEXT("fifo"), GENERIC_READ);
    EXPECT_TRUE(ReadFile(reader->handle, bytes, 20, &done, nullptr));
    EXPECT_EQ(done, 0u);
    const Opened writer(TEXT("fifo"), GENERIC_WRITE);
    std::thread late([&writer] {
        DWORD written;
        WriteFile(writer.handle, "late", 4, &written, nullptr);
    });
    EXPECT_TRUE(ReadFile(reader->handle, bytes, 20, &done, nullptr));  // waits, for what there is
    late.join();
    EXPECT_EQ(done, 4u);
    reader.reset();
    EXPECT_EQ(error_of(WriteFile(writer.handle, "x", 1, &done, nullptr)), 109u);  // BROKEN_PIPE
}

// The error of an exclusive open in another process.
DWORD error_elsewhere(const WCHAR *path) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(static_cast<int>(error_of(Opened(path, GENERIC_READ, 0))));
    }
    int status = 0;
    waitpid(child, &status, 0);
    return static_cast<DWORD>(WEXITSTATUS(status));
}

TEST(FileOpen, SharesWithOtherProcesses) {
    const TempDir dir;
    dir.Write("file", "");
    {
        const Opened here(TEXT("file"), GENERIC_READ, FILE_SHARE_READ);
        EXPECT_EQ(error_elsewhere(TEXT("file")), ERROR_SHARING_VIOLATION);
    }
    EXPECT_EQ(error_elsewhere(TEXT("file")), 0u);
}

}  // namespace
