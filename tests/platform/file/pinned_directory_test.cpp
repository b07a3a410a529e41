// Calls by path below a directory that is kept open.

#include "ostrel/platform/pinned_directory.h"

#include <sys/resource.h>

#include "ostrel/platform/find.h"
#include "support/file_calls.h"

namespace {

using ostrel_platform::PinnedDirectory;
using Facts = PinnedDirectory::Facts;

DWORD found_error(const WCHAR *path) {
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(path, &data);
    return search != INVALID_HANDLE_VALUE ? error_of(FindClose(search)) : GetLastError();
}

DWORD attribute_error(const WCHAR *path) {
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES ? 0 : GetLastError();
}

TEST(PinnedDirectory, CallsWorkInTheDirectoryThatWasOpened) {
    const struct {
        const char *text;
        DWORD (*call)();
        const char *away;
        DWORD error = ERROR_SUCCESS;
    } cases[] = {{CALL(attribute_error(TEXT("d\\f"))), "e/ f=1 "},
                 {CALL(found_error(TEXT("d\\f"))), "e/ f=1 "},
                 {CALL(found_error(TEXT("d\\f*"))), "e/ f=1 "},
                 {CALL(error_of(Opened(TEXT("d\\g"), GENERIC_WRITE, 0, CREATE_NEW))), "e/ f=1 g= "},
                 {CALL(error_of(DeleteFileW(TEXT("d\\f")))), "e/ "},
                 {CALL(error_of(CreateDirectoryW(TEXT("d\\n"), nullptr))), "e/ f=1 n/ "},
                 {CALL(error_of(RemoveDirectoryW(TEXT("d\\e")))), "f=1 "},
                 {CALL(error_of(MoveFileW(TEXT("d\\f"), TEXT("d\\e\\m")))), "e/ f=1 ",
                  ERROR_PATH_NOT_FOUND},  // e is not pinned
                 {CALL(error_of(MoveFileExW(TEXT("d\\f"), TEXT("d\\m"), 1))), "e/ m=1 "},
                 {CALL(PinnedDirectory(TEXT("d\\e"), 0).IsPinned() ? 0u : 1u), "e/ f=1 "}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const Planted dir("d/f=1 d/e/ out/");
        const PinnedDirectory pin(TEXT("d"), PinnedDirectory::kNotALink);
        fs::rename("d", "away");
        fs::create_directory_symlink("out", "d");
        EXPECT_EQ(c.call(), c.error);
        EXPECT_EQ(tree("away"), c.away);
        EXPECT_EQ(tree("out"), "");
    }
}

// The paths lead into the directory only by its text, which another directory has meanwhile.
TEST(PinnedDirectory, TheTextOfThePathDecides) {
    const Planted dir("t/d/f=1 t/d/c:f=2");
    const std::u16string verbatim = u"\\\\?\\" + platform_path(dir.Path());
    setenv("OSTREL_DRIVE_Q", (dir.Path() / "t/d").c_str(), 1);
    const struct {
        std::u16string directory, path;
        bool leads;
    } cases[] = {{u"t\\d", u"t\\d\\f", true},
                 {u"t\\d\\", u"t\\d\\\\f", true},
                 {u"t\\d/", u"t\\d/f", true},
                 {u"t\\d", u"t\\d\\c:f", true},
                 {u"t\\d", u"t/d\\f", false},
                 {u"t\\d", u".\\t\\d\\f", false},
                 {u"t\\d", u"t\\d\\.\\f", false},
                 {u"t\\d", u"t\\d\\f\\", false},
                 {u"Q:", u"Q:\\f", true},
                 {u"Q:\\", u"Q:/f", true},
                 {u"Q:/", u"Q:f", false},
                 {u"\\\\?\\Q:\\", u"\\\\?\\Q:\\f", true},
                 {verbatim + u"\\t\\d", verbatim + u"\\t\\d\\f", true},
                 {verbatim + u"\\t\\d", verbatim + u"\\t\\d/f", false},
                 {u"", u"f", true},
                 {u"", u".\\f", false},
                 {u"", u"c:f", false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(fs::path(c.directory + u" " + c.path));
        fs::current_path(dir.Path() / (c.directory.empty() ? "t/d" : "."));
        const PinnedDirectory pin(c.directory.c_str(), PinnedDirectory::kNone);
        fs::current_path(dir.Path());
        ASSERT_TRUE(pin.IsPinned());
        fs::rename("t/d", "t/away");
        EXPECT_EQ(attribute_error(c.path.c_str()) == 0, c.leads);
        fs::rename("t/away", "t/d");
    }
    unsetenv("OSTREL_DRIVE_Q");
}

TEST(PinnedDirectory, OneThatCannotBeOpenedMakesCallsFailWithItsError) {
    const Planted dir("d/f=1 file=2 link->d none->missing");
    const struct {
        const WCHAR *directory;
        unsigned flags;
        DWORD error, of_search;
        const WCHAR *path, *pattern;
    } cases[] = {{TEXT("d"), PinnedDirectory::kNotALink, 0, 0, TEXT("d\\f"), TEXT("d\\*")},
                 {TEXT("link"), PinnedDirectory::kNone, 0, 0, TEXT("link\\f"), TEXT("link\\*")},
                 {TEXT("link\\"), PinnedDirectory::kNotALink, ERROR_PATH_NOT_FOUND, ERROR_DIRECTORY,
                  TEXT("link\\f"), TEXT("link\\*")},
                 {TEXT("file"), PinnedDirectory::kNone, ERROR_PATH_NOT_FOUND, ERROR_DIRECTORY,
                  TEXT("file\\f"), TEXT("file\\*")},
                 {TEXT("file\\d"), PinnedDirectory::kNone, ERROR_PATH_NOT_FOUND,
                  ERROR_PATH_NOT_FOUND, TEXT("file\\d\\f"), TEXT("file\\d\\*")},
                 {TEXT("none"), PinnedDirectory::kNone, ERROR_PATH_NOT_FOUND, ERROR_PATH_NOT_FOUND,
                  TEXT("none\\f"), TEXT("none\\*")},
                 {TEXT("missing"), PinnedDirectory::kNone, ERROR_PATH_NOT_FOUND,
                  ERROR_PATH_NOT_FOUND, TEXT("missing\\f"), TEXT("missing\\*")}};
    for (const auto &c : cases) {
        SCOPED_TRACE(PrintToString(std::tuple(c.directory, c.flags)));
        const PinnedDirectory pin(c.directory, c.flags);
        EXPECT_EQ(pin.IsPinned(), c.error == 0);
        EXPECT_EQ(attribute_error(c.path), c.error);
        EXPECT_EQ(error_of(Opened(c.path, GENERIC_READ)), c.error);
        EXPECT_EQ(found_error(c.pattern), c.of_search);
        // What comes into its place afterwards is not reached either.
        if (std::u16string_view(c.directory) == u"missing") {
            plant("missing/f=3");
            EXPECT_EQ(error_of(DeleteFileW(c.path)), c.error);
        }
    }
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const PinnedDirectory pin(TEXT("d"), PinnedDirectory::kNone);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(attribute_error(TEXT("d\\f")), ERROR_TOO_MANY_OPEN_FILES);
    EXPECT_EQ(found_error(TEXT("d\\*")), ERROR_TOO_MANY_OPEN_FILES);
}

TEST(PinnedDirectory, RefusesToWriteThroughLinks) {
    for (const unsigned flags : {PinnedDirectory::kNone, PinnedDirectory::kNoLinksInIt}) {
        const bool refuses = flags != 0;
        const Planted dir("d/l->../out/f d/none->../out/new out/f=1");
        const PinnedDirectory pin(TEXT("d"), flags);
        EXPECT_TRUE(Opened(TEXT("d\\l"), GENERIC_READ));
        for (const DWORD creation :
             {CREATE_ALWAYS, OPEN_EXISTING, OPEN_ALWAYS, TRUNCATE_EXISTING}) {
            const Opened file(TEXT("d\\l"), GENERIC_READ | GENERIC_WRITE, 0, creation);
            EXPECT_EQ(!file, refuses) << creation;
        }
        EXPECT_EQ(!Opened(TEXT("d\\none"), GENERIC_READ, 0, OPEN_ALWAYS), refuses);
        EXPECT_EQ(tree("out"), refuses ? "f=1 " : "f= new= ");
    }
}

TEST(PinnedDirectory, OneSearchStoresLess) {
    const Planted dir("d/f=12345");
    set(TEXT("d\\f"), kHidden);
    WIN32_FIND_DATAW data;
    const auto find = [&](const WCHAR *path) {
        EXPECT_TRUE(FindClose(FindFirstFileW(path, &data)));
        return std::tuple(data.nFileSizeLow, data.dwFileAttributes);
    };
    PinnedDirectory pin(TEXT("d"), PinnedDirectory::kNone, Facts::kKinds);
    for (const WCHAR *path : {TEXT("d\\f*"), TEXT("d\\f")}) {
        pin.Want(Facts::kKinds);
        EXPECT_EQ(std::get<1>(find(path)), kNormal);
        EXPECT_EQ(find(path), std::tuple(5u, kHidden));
        pin.Want(Facts::kSizes);
        EXPECT_EQ(find(path), std::tuple(5u, kNormal));
        EXPECT_EQ(find(path), std::tuple(5u, kHidden));
    }
}

}  // namespace
