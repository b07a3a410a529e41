// Open files and who may have them open at the same time.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>

#include "support/child.h"
#include "support/file_calls.h"

namespace {

constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kDeletes = FILE_FLAG_DELETE_ON_CLOSE;

TEST(FileOpen, CreatesOpensAndEmptiesByTheDisposition) {
    constexpr DWORD kKept = 77;  // a last error that stays
    const std::tuple<DWORD, DWORD, DWORD, const char *> cases[] = {
        {CREATE_NEW, ERROR_FILE_EXISTS, kKept, "old"},
        {CREATE_ALWAYS, ERROR_ALREADY_EXISTS, 0, ""},
        {OPEN_EXISTING, kKept, ERROR_FILE_NOT_FOUND, "old"},
        {OPEN_ALWAYS, ERROR_ALREADY_EXISTS, 0, "old"},
        {TRUNCATE_EXISTING, kKept, ERROR_FILE_NOT_FOUND, ""}};
    for (const auto &[creation, existing_error, missing_error, content] : cases) {
        SCOPED_TRACE(testing::Message() << "disposition " << creation);
        const Planted dir("there=old");
        SetLastError(kKept);
        const Opened existing(TEXT("there"), GENERIC_WRITE, 0, creation);
        SetLastError(kKept);
        const Opened missing(TEXT("missing"), GENERIC_WRITE, 0, creation, kHidden);
        EXPECT_EQ(existing.error, existing_error);
        EXPECT_EQ(missing.error, missing_error);
        EXPECT_EQ(!existing, creation == CREATE_NEW);
        EXPECT_EQ(!missing, missing_error == ERROR_FILE_NOT_FOUND);
        EXPECT_EQ(content_of("there"), content);
        EXPECT_EQ(GetFileAttributesW(TEXT("missing")),
                  missing ? kHidden | kArchive : INVALID_FILE_ATTRIBUTES);
    }
}

bool allows(DWORD share, DWORD access) {
    return ((access & GENERIC_READ) == 0 || (share & FILE_SHARE_READ) != 0) &&
           ((access & GENERIC_WRITE) == 0 || (share & FILE_SHARE_WRITE) != 0);
}

TEST(FileOpen, SharesWhatBothAllow) {
    const Planted dir("file=");
    constexpr DWORD kAccesses[] = {GENERIC_READ, GENERIC_WRITE, kReadWrite};
    for (DWORD i = 0; i < 3 * 3 * 4 * 4; ++i) {
        const DWORD access = kAccesses[i % 3], share = i / 3 % 4;
        const DWORD other_access = kAccesses[i / 12 % 3], other_share = i / 36;
        const Opened first(TEXT("file"), access, share);
        const Opened second(TEXT("file"), other_access, other_share);
        const bool both = allows(share, other_access) && allows(other_share, access);
        EXPECT_EQ(error_of(second), both ? 0 : ERROR_SHARING_VIOLATION)
            << std::hex << access << ' ' << share << ", " << other_access << ' ' << other_share;
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
    const Planted dir("file=kept");
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
    EXPECT_FALSE(Opened(TEXT("file"), GENERIC_READ, FILE_SHARE_READ));
    EXPECT_TRUE(Opened(TEXT("file"), kReadWrite, FILE_SHARE_WRITE));
    std::fclose(stream);
    const Opened file(TEXT("file"), kReadWrite, FILE_SHARE_DELETE);
    EXPECT_EQ(error_of(DeleteFileW(TEXT("file"))), 0u);
    DWORD done;
    EXPECT_TRUE(WriteFile(file.handle, "x", 1, &done, nullptr));  // who has it open keeps it
}

TEST(FileOpen, LeavesAProgramThatRuns) {
    const TempDir dir;
    fs::copy_file("/bin/sleep", "program");
    plant("other=");
    char name[] = "program", time[] = "1000", *const arguments[] = {name, time, nullptr};
    pid_t child = 0;
    ASSERT_EQ(posix_spawn(&child, name, nullptr, nullptr, arguments, nullptr), 0);
    EXPECT_EQ(error_of(Opened(TEXT("program"), GENERIC_WRITE)), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(error_of(DeleteFileW(TEXT("program"))), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(error_of(Opened(TEXT("program"), GENERIC_READ, kShareAll, OPEN_EXISTING, kDeletes)),
              ERROR_SHARING_VIOLATION);
    EXPECT_EQ(error_of(CopyFileW(TEXT("other"), TEXT("program"), FALSE)), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(error_of(MoveFileExW(TEXT("other"), TEXT("program"), MOVEFILE_REPLACE_EXISTING)),
              ERROR_ACCESS_DENIED);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(error_of(DeleteFileW(TEXT("program"))), 0u);
}

TEST(FileOpen, DeletesAtTheCloseWhatTheHandleIsOpenOn) {
    const Planted dir("file=1 new=2 other=3 lost=4");
    {
        const Opened other(TEXT("file"), GENERIC_READ, FILE_SHARE_READ);
        EXPECT_EQ(error_of(Opened(TEXT("file"), 0, kShareAll, OPEN_EXISTING, kDeletes)),
                  ERROR_SHARING_VIOLATION);
    }
    {
        const Opened file(TEXT("file"), GENERIC_READ, kShareAll, OPEN_EXISTING, kDeletes);
        EXPECT_EQ(error_of(Opened(TEXT("file"), GENERIC_READ, FILE_SHARE_READ)),
                  ERROR_SHARING_VIOLATION);
        EXPECT_TRUE(Opened(TEXT("file"), GENERIC_READ));
        EXPECT_EQ(error_of(DeleteFileW(TEXT("file"))), ERROR_SHARING_VIOLATION);
        exit_of_child([&file] { return CloseHandle(file.handle); });
        EXPECT_EQ(tree(), "file=1 lost=4 new=2 other=3 ");
        EXPECT_EQ(error_of(MoveFileW(TEXT("file"), TEXT("moved"))), 0u);
        fs::rename("new", "file");
        const Opened lost(TEXT("lost"), GENERIC_WRITE, kShareAll, OPEN_EXISTING, kDeletes);
        fs::rename("other", "lost");
        dir.Write("lost (deleted)", "5");  // the name that the host gives to the lost file
    }
    EXPECT_EQ(tree(), "file=2 lost (deleted)=5 lost=3 ");
}

TEST(FileOpen, OpensALinkItself) {
    const Planted dir("file=content link->file nowhere->gone");
    for (const char *const name : {"link", "nowhere"}) {
        const Opened link(fs::path(name).u16string().c_str(), GENERIC_READ, 0, OPEN_EXISTING,
                          FILE_FLAG_OPEN_REPARSE_POINT);
        BY_HANDLE_FILE_INFORMATION facts = {};
        EXPECT_EQ(error_of(GetFileInformationByHandle(link.handle, &facts)), 0u);
        EXPECT_EQ(facts.dwFileAttributes, FILE_ATTRIBUTE_REPARSE_POINT);
        EXPECT_EQ(facts.nFileIndexLow, static_cast<DWORD>(host_facts(name).st_ino));
    }
}

// Whether the descriptor that is open on a file writes through.
bool writes_through(const fs::path &path) {
    for (const auto &file : fs::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        if (fs::read_symlink(file, error) == path) {
            return (fcntl(std::stoi(file.path().filename()), F_GETFL) & O_DSYNC) != 0;
        }
    }
    return false;
}

TEST(FileOpen, WritesThroughWhereItIsAsked) {
    const Planted dir("file=");
    const fs::path path = fs::canonical("file");
    for (const DWORD flag : {DWORD{0}, FILE_FLAG_WRITE_THROUGH}) {
        for (const DWORD creation : {OPEN_EXISTING, CREATE_ALWAYS}) {
            const Opened file(TEXT("file"), GENERIC_WRITE, 0, creation, flag);
            EXPECT_EQ(writes_through(path), flag != 0) << creation;
        }
    }
}

}  // namespace
